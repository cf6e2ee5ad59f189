#include "Mpls/Fec.h"

#include "Vex/ListText.h"

namespace Rook::Fib {

uint32_t FecVias::hash( uint32_t seed ) const {
  for ( const auto & via : *this ) {
    seed = via.hash( seed );
  }
  return seed;
}

void appendText( Vex::TextBuffer & out, const FecVias & vias ) {
  Vex::appendList( out, vias, [ & ]( const FecVia & via ) {
    out.append( '(' );
    appendBrief( out, via );
    out.append( ')' );
  } );
}

void parseText( Vex::TextCursor & in, FecVias & vias ) {
  vias.clear();
  Vex::parseList( in, [ & ] {
    in.expect( "(" );
    parseBrief( in, vias.emplace_back() );
    in.expect( ")" );
  } );
}

} // namespace Rook::Fib
