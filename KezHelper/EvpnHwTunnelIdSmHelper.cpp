#include "KezHelper/EvpnHwTunnelIdSmHelper.h"

namespace KezHelper {

Kez::HwTunnelId EvpnHwTunnelIdSmHelper::getHwTunnelId( Kez::HwTunnelIdType ) {
  unimplemented( "getHwTunnelId" );
  return Kez::HwTunnelId();
}

void EvpnHwTunnelIdSmHelper::releaseHwTunnelId( const Kez::HwTunnelId & ) {
  unimplemented( "releaseHwTunnelId" );
}

} // namespace KezHelper
