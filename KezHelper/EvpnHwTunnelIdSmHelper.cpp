#include "KezHelper/EvpnHwTunnelIdSmHelper.h"

namespace KezHelper {

Kez::HwTunnelId EvpnHwTunnelIdSmHelper::getHwTunnelId( Kez::HwTunnelIdType ) {
  unimplemented( "getHwTunnelId" );
  return Kez::HwTunnelId();
}

Kez::HwTunnelId EvpnHwTunnelIdSmHelper::getHwTunnelIdForTunnel( Kez::HwTunnelIdType hwTunnelIdType,
                                                                Tunnel::TunnelTable::TunnelId ) {
  return getHwTunnelId( hwTunnelIdType );
}

void EvpnHwTunnelIdSmHelper::releaseHwTunnelId( const Kez::HwTunnelId & ) {
  unimplemented( "releaseHwTunnelId" );
}

} // namespace KezHelper
