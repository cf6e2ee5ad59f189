// Writes a report's page: a template (report.html) with the data as JSON in it, which the
// template's script draws. Of a data's text nothing can be taken for markup.
#pragma once

#include "Vex/Json.h"
#include "report/Report.h"

namespace Agent {

class ReportPage : public Vex::JsonWriter {
public:
  // What could end the script element that the data stand in, or begin markup in it, is guarded.
  explicit ReportPage( std::ostream & out ) : JsonWriter( out, "<>&" ), out_( out ) {}

  // The template up to where the data stand, and from there on.
  void begin();
  void end();

  void machines( const Roots & roots );
  void samples( const std::vector< Report::Column > & columns,
                const std::vector< Report::Sample > & samples );
  void histogram( std::string_view name, const Histogram & histogram );
  void events( const std::deque< Report::Event > & events );
  void tables( const Roots & roots );

private:
  void table( const Vex::Entity & root, const Vex::AttributeType & attribute );

  std::ostream & out_;
};

} // namespace Agent
