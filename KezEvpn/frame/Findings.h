// How a machine's own state breaks what the machine states of it, a line each; none when it holds.
#pragma once

#include "Vex/Text.h"

#include <vector>

namespace Kez {

class Findings {
public:
  // Adds a line, `name` and the pieces, unless it holds.
  explicit Findings( const Vex::String & name ) : name_( name ) {}

  template< class... Pieces > void expect( bool holds, const Pieces &... pieces ) {
    if ( !holds ) {
      add( pieces... );
    }
  }
  template< class... Pieces > void add( const Pieces &... pieces ) {
    Vex::TextBuffer line;
    ( appendBriefText( line, pieces ), ... );
    lines_.push_back( line.str() );
  }

  // What was added to the name.
  const std::vector< Vex::String > & lines() const { return lines_; }
  Vex::String text() const {
    Vex::String all;
    for ( const auto & line : lines_ ) {
      all += name_ + ": " + line + "\n";
    }
    return all;
  }

private:
  const Vex::String name_;
  std::vector< Vex::String > lines_;
};

} // namespace Kez
