#include "L2Rib/Dest.h"

namespace L2Rib {

void appendText( Vex::TextBuffer & out, const Dest & dest ) {
  if ( dest.destType() == destTypeMpls_ ) {
    out.append( "mpls(" );
    appendBrief( out, dest.mpls() );
  } else {
    out.append( "intf(" );
    appendText( out, dest.intfId() );
  }
  out.append( ')' );
}

void parseText( Vex::TextCursor & in, Dest & dest ) {
  if ( in.skip( "mpls(" ) ) {
    DestDataMpls mpls;
    parseBrief( in, mpls );
    dest = Dest::ofMpls( mpls );
  } else if ( in.skip( "intf(" ) ) {
    Wire::IntfId intfId;
    parseText( in, intfId );
    dest = Dest::ofIntf( intfId );
  } else {
    in.fail( "intf(<interface>) or mpls(<interface>,<label>,<tunnel id>)" );
  }
  in.expect( ")" );
}

std::ostream & operator<<( std::ostream & out, const Dest & dest ) {
  return out << Vex::text( dest );
}

} // namespace L2Rib
