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

KezPortList portsNow( const EvpnLagMemberInfo & lags, Wire::IntfId intfId ) {
  if ( isLag( intfId ) ) {
    return lags.lagToPort( intfId );
  }
  KezPortList itself;
  itself.portIs( intfId, true );
  return itself;
}

} // namespace Kez
