#include "KezEvpn/KezEvpn.h"

#include "Vex/Assert.h"

namespace Kez {

using Tunnel::TunnelTable::TunnelId;

Vex::String TunnelIdToHwTunnelId::rookString() const {
  return "[" + Vex::text( key ) + "] " + Vex::text( hwTunnelId );
}

TunnelId srTeOrDynamicTunnelIntfIdToTunnelId( Wire::IntfId intfId ) {
  return Wire::TepIntfId( intfId ).tunnelId();
}

TunnelId destMplsTunnelId( const L2Rib::Dest & dest ) {
  VEX_ASSERT( dest.destType() == L2Rib::destTypeMpls_ );
  const auto & mpls = dest.mpls();
  return Wire::FecIdIntfId::isSrTePolicyIntfId( mpls.intfId() )
             ? Wire::FecIdIntfId::tunnelId( mpls.intfId() )
             : mpls.tunnelId();
}

Vex::Ptr< EvpnVlanStatus > evpnVlanStatusFactory() {
  return Vex::makePtr< EvpnVlanStatus >();
}

Vex::Ptr< EvpnLagMemberInfo > evpnLagMemberInfoFactory() {
  return Vex::makePtr< EvpnLagMemberInfo >();
}

Vex::Ptr< EvpnRemoteInfo > evpnRemoteInfoFactory() {
  return Vex::makePtr< EvpnRemoteInfo >();
}

} // namespace Kez
