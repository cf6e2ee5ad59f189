#include "KezEvpn/frame/PortStatus.h"

namespace Kez {

LagLack lagLack( const EvpnLagMemberInfo & lags, Wire::IntfId intfId ) {
  if ( !isLag( intfId ) ) {
    return LagLack::nothing;
  }
  if ( !lags.lagToPortHas( intfId ) ) {
    return LagLack::configuration;
  }
  return lags.lagToPort( intfId ).ports() == 0 ? LagLack::members : LagLack::nothing;
}

void explainMissingPorts( const EvpnLagMemberInfo & lags, Wire::IntfId intfId, Explanation & out ) {
  switch ( lagLack( lags, intfId ) ) {
  case LagLack::configuration:
    out.awaits( "waiting for member ports of ", intfId, ", none published" );
    break;
  case LagLack::members:
    out.awaits( "waiting for member ports of ", intfId, ", an empty list published" );
    break;
  case LagLack::nothing:
    break;
  }
}

void explainPorts( std::string_view what, const PortTally & tally, Explanation & out ) {
  if ( tally.asked == 0 ) {
    return;
  }
  out.say( what, " on ", tally.programmed, " of ", Count{ tally.asked, "port" } );
  if ( tally.missing.empty() ) {
    return;
  }
  Vex::TextBuffer text;
  for ( const auto & each : tally.missing ) {
    text.append( text.view().empty() ? "" : "; " );
    text.append( each );
  }
  if ( const auto left = tally.asked - tally.programmed - tally.missing.size(); left > 0 ) {
    text.append( "; and " );
    appendText( text, left );
    text.append( " more" );
  }
  out.add( tally.anyRefused ? Standing::refused : Standing::waiting, "not on ", text.view() );
}

KezPortList portsNow( const EvpnLagMemberInfo & lags, Wire::IntfId intfId ) {
  if ( isLag( intfId ) ) {
    return lags.lagToPort( intfId );
  }
  KezPortList itself;
  itself.portIs( intfId, true );
  return itself;
}

} // namespace Kez
