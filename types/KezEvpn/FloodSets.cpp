#include "KezEvpn/FloodSets.h"

namespace Kez {

using Tunnel::TunnelTable::TunnelId;

namespace {

constexpr uint32_t typeOfTunnelsWithAPathAVlan = 14;

} // namespace

MplsFloodSetVia mplsFloodSetVia( TunnelId tunnelId, Wire::MplsLabel label,
                                 Bridging::VlanId vlanId ) {
  const bool pathAVlan = tunnelId.type() == typeOfTunnelsWithAPathAVlan;
  return { tunnelId, label, pathAVlan ? Bridging::VlanIdOrNone( vlanId ) : 0u };
}

MplsFloodSetVia mplsFloodSetVia( const VlanMacDest & dest ) {
  return mplsFloodSetVia( destMplsTunnelId( dest.dest ), dest.dest.mpls().label(), dest.vlanId );
}

Vex::Ptr< VlanFloodSetConfig > vlanFloodSetConfigFactory( const Bridging::MacVlanPair & key ) {
  return Vex::makePtr< VlanFloodSetConfig >( key );
}

Vex::Ptr< EvpnVlanFloodSetHwConfig > evpnVlanFloodSetHwConfigFactory() {
  return Vex::makePtr< EvpnVlanFloodSetHwConfig >();
}

Vex::Ptr< VlanFloodSetStatus > vlanFloodSetStatusFactory( const Bridging::MacVlanPair & key ) {
  return Vex::makePtr< VlanFloodSetStatus >( key );
}

Vex::Ptr< EvpnVlanFloodSetHwStatus > evpnVlanFloodSetHwStatusFactory() {
  return Vex::makePtr< EvpnVlanFloodSetHwStatus >();
}

Vex::Ptr< HwInfoMapping > hwInfoMappingFactory() {
  return Vex::makePtr< HwInfoMapping >();
}

Vex::Ptr< TunnelIdToMplsFloodSetVia > tunnelIdToMplsFloodSetViaFactory( TunnelId tunnelId ) {
  return Vex::makePtr< TunnelIdToMplsFloodSetVia >( tunnelId );
}

Vex::Ptr< MplsFloodSetViaToFloodSetStatus >
mplsFloodSetViaToFloodSetStatusFactory( const MplsFloodSetVia & via ) {
  return Vex::makePtr< MplsFloodSetViaToFloodSetStatus >( via );
}

} // namespace Kez
