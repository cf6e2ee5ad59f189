#include "L2Rib/Dest.h"

namespace L2Rib {

void appendText( Vex::TextBuffer & out, const Dest & dest ) {
  switch ( dest.destType() ) {
  case destTypeIntf_:
    out.append( "intf(" );
    appendText( out, dest.intfId() );
    break;
  case destTypeVxlan_:
    out.append( "vxlan(" );
    appendText( out, dest.vtep() );
    break;
  case destTypeTunnel_:
    out.append( "tunnel(" );
    appendText( out, dest.tunnelId() );
    break;
  case destTypeMpls_:
    out.append( "mpls(" );
    appendBrief( out, dest.mpls() );
    break;
  }
  out.append( ')' );
}

void parseText( Vex::TextCursor & in, Dest & dest ) {
  const auto data = [ & ]< class T >( T value ) {
    parseBriefText( in, value );
    in.expect( ")" );
    return value;
  };
  if ( in.skip( "mpls(" ) ) {
    const char * const begin = in.at();
    const auto mpls = data( DestDataMpls() );
    if ( mpls.tunnelId().value() >> Wire::IntfId::numberBits ) {
      in.atIs( begin );
      in.fail( "a tunnel id of at most 56 bits, which an interface can stand for" );
    }
    dest = Dest::ofMpls( mpls );
  } else if ( in.skip( "intf(" ) ) {
    dest = Dest::ofIntf( data( Wire::IntfId() ) );
  } else if ( in.skip( "vxlan(" ) ) {
    dest = Dest::ofVxlan( data( Wire::Ip4Addr() ) );
  } else if ( in.skip( "tunnel(" ) ) {
    dest = Dest::ofTunnel( data( Tunnel::TunnelTable::TunnelId() ) );
  } else {
    in.fail( "intf(<interface>), vxlan(<IPv4 address>), tunnel(<tunnel id>) or "
             "mpls(<interface>,<label>,<tunnel id>)" );
  }
}

std::ostream & operator<<( std::ostream & out, const Dest & dest ) {
  return out << Vex::text( dest );
}

} // namespace L2Rib
