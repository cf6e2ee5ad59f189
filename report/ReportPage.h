// Writes a report's page, a part of its data after the other.
#pragma once

#include "report/Page.h"
#include "report/Report.h"

namespace Agent {

class ReportPage : public Page {
public:
  explicit ReportPage( std::ostream & out );

  void sources( const std::vector< Report::Source > & sources );
  void machines( const Roots & roots );
  void samples( const std::vector< Report::Column > & columns,
                const std::vector< Report::Sample > & samples );
  void histogram( std::string_view name, const Histogram & histogram );
  void events( const std::deque< Report::Event > & events );
  void tables( const Roots & roots );

private:
  void table( const Vex::Entity & root, const Vex::AttributeType & attribute );
};

} // namespace Agent
