#include "L2Rib/Dest.h"

namespace L2Rib {

DestTunnelId::DestTunnelId( Tunnel::TunnelTable::TunnelId tunnelId )
    : WordValue( tunnelId.value() ) {
  if ( tunnelId.value() > vexHighest ) {
    throw Vex::RangeError( "L2Rib::DestDataMpls::tunnelId: expected " + Vex::String( vexExpected ) +
                           ", found " + Vex::text( tunnelId ) );
  }
}

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
    dest = Dest::ofMpls( data( DestDataMpls() ) );
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
