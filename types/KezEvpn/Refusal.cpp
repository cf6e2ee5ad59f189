#include "KezEvpn/Refusal.h"

#include "Vex/Clock.h"

namespace Kez {

Refusal Refusal::again( std::string_view reason ) const {
  const double now = Vex::Clock::now();
  return { tries + 1, tries == 0 ? now : first, now, Vex::String( reason ) };
}

void appendText( Vex::TextBuffer & out, const Refusal & refusal ) {
  appendText( out, refusal.tries );
  out.append( " since " );
  appendText( out, refusal.first );
  out.append( ", last " );
  appendText( out, refusal.last );
  if ( !refusal.why.empty() ) {
    out.append( ": " );
    out.append( refusal.why );
  }
}

void parseText( Vex::TextCursor & in, Refusal & refusal ) {
  refusal.why.clear();
  parseText( in, refusal.tries );
  in.expect( " since " );
  parseText( in, refusal.first );
  in.expect( ", last " );
  parseText( in, refusal.last );
  if ( in.skip( ": " ) ) {
    parseText( in, refusal.why );
  }
}

std::ostream & operator<<( std::ostream & out, const Refusal & refusal ) {
  return out << Vex::text( refusal );
}

} // namespace Kez
