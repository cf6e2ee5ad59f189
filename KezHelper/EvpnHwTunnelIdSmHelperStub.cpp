#include "KezHelper/EvpnHwTunnelIdSmHelperStub.h"

namespace KezHelper {

Vex::Ptr< EvpnHwTunnelIdSmHelperStub >
evpnHwTunnelIdSmHelperStubFactory( const Vex::String & name ) {
  return Vex::makePtr< EvpnHwTunnelIdSmHelperStub >( name );
}

Kez::HwTunnelId EvpnHwTunnelIdSmHelperStub::getHwTunnelId( Kez::HwTunnelIdType hwTunnelIdType ) {
  getHwTunnelIdCountInc();
  getHwTunnelIdHwTunnelIdTypeIs( hwTunnelIdType );
  VEX_ASSERT( freeHwTunnelIdHas( hwTunnelIdType ) );
  return freeHwTunnelId( hwTunnelIdType )->hwTunnelIdDeq();
}

void EvpnHwTunnelIdSmHelperStub::releaseHwTunnelId( const Kez::HwTunnelId & hwTunnelId ) {
  releaseHwTunnelIdCountInc();
  releaseHwTunnelIdHwTunnelIdIs( hwTunnelId );
  VEX_ASSERT( freeHwTunnelIdHas( hwTunnelId.hwTunnelIdType() ) );
  freeHwTunnelId( hwTunnelId.hwTunnelIdType() )->hwTunnelIdEnq( hwTunnelId );
}

} // namespace KezHelper
