#include "Mpls/Fec.h"

namespace Rook::Fib {

uint32_t FecVias::hash( uint32_t seed ) const {
  for ( const auto & via : *this ) {
    seed = via.hash( seed );
  }
  return seed;
}

void appendText( Vex::TextBuffer & out, const FecVias & vias ) {
  std::string_view opening = "[";
  for ( const auto & via : vias ) {
    out.append( opening );
    out.append( '(' );
    appendBrief( out, via );
    out.append( ')' );
    opening = ",";
  }
  out.append( vias.empty() ? "[]" : "]" );
}

void parseText( Vex::TextCursor & in, FecVias & vias ) {
  vias.clear();
  in.expect( "[" );
  while ( !in.skip( "]" ) ) {
    if ( !vias.empty() ) {
      in.expect( "," );
      in.skip( " " );
    }
    in.expect( "(" );
    parseBrief( in, vias.emplace_back() );
    in.expect( ")" );
  }
}

} // namespace Rook::Fib
