// How a machine's own state breaks what the machine states of it, a line each; none when it holds.
#pragma once

#include "Vex/Text.h"

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
    text_.append( name_ );
    text_.append( ": " );
    ( appendBriefText( text_, pieces ), ... );
    text_.append( '\n' );
  }

  std::string_view text() const { return text_.view(); }

private:
  const Vex::String name_;
  Vex::TextBuffer text_;
};

} // namespace Kez
