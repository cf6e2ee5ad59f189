// Writes a report's page: a template (report.html) with the data as JSON in it, which the
// template's script draws. Of a data's text nothing can be taken for markup.
#pragma once

#include "report/Report.h"

#include <ranges>

namespace Agent {

class ReportPage {
public:
  explicit ReportPage( std::ostream & out ) : out_( out ) {}

  // The template up to where the data stand, and from there on.
  void begin();
  void end();

  template< class Members > void object( const Members & members ) {
    open( '{' );
    members();
    close( '}' );
  }
  template< class Value > void member( std::string_view name, const Value & value ) {
    this->name( name );
    put( value );
  }

  void machines( const Roots & roots );
  void samples( const std::vector< Report::Column > & columns,
                const std::vector< Report::Sample > & samples );
  void histogram( std::string_view name, const Histogram & histogram );
  void events( const std::deque< Report::Event > & events );
  void tables( const Roots & roots );

private:
  void put( std::string_view text );
  void put( const char * text ) { put( std::string_view( text ) ); }
  void put( const Vex::String & text ) { put( std::string_view( text ) ); }
  void put( double number );
  void put( Vex::PlainInteger auto number ) { item() << number; }
  template< std::ranges::range Range > void put( const Range & range ) {
    open( '[' );
    for ( const auto & each : range ) {
      put( each );
    }
    close( ']' );
  }
  template< class Elements > void array( std::string_view name, const Elements & elements ) {
    this->name( name );
    open( '[' );
    elements();
    close( ']' );
  }
  void table( const Vex::Entity & root, const Vex::AttributeType & attribute );

  void name( std::string_view name );
  void open( char bracket );
  void close( char bracket );
  // Where the next value goes.
  std::ostream & item();

  std::ostream & out_;
  bool first_ = true; // of an array or object
};

} // namespace Agent
