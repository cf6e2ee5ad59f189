#include "sim/System.h"

namespace Sim {

namespace {

template< class T > Vex::Ptr< T > at( const Agent::Wiring & wiring, std::string_view name ) {
  const auto * root = wiring.roots.root( name );
  VEX_ASSERT( root );
  auto entity = Vex::dynamicCast< T >( root->entity );
  VEX_ASSERT( entity );
  return entity;
}

} // namespace

System::System( const Agent::Wiring & wiring )
    : wiring( wiring ), lagConfigDir( at< Kez::LagCreatorConfigDir >( wiring, "lagConfigDir" ) ),
      bridgingConfig( at< Bridging::Config >( wiring, "bridgingConfig" ) ),
      vlanStatusDir( at< Bridging::VlanStatusDir >( wiring, "vlanStatusDir" ) ),
      evpnStatus( at< Evpn::EvpnStatus >( wiring, "evpnStatus" ) ),
      evpnMplsConfig( at< Evpn::MplsConfig >( wiring, "evpnMplsConfig" ) ),
      floodSetOutput( at< L2Rib::FloodSetOutput >( wiring, "floodSetOutput" ) ),
      hostOutput( at< L2Rib::HostOutput >( wiring, "hostOutput" ) ),
      toggles( at< Kez::FeatureToggles >( wiring, "toggles" ) ),
      lfibStatus( at< Mpls::LfibStatus >( wiring, "lfibStatus" ) ),
      lfibTrackingStatus( at< Mpls::LfibTrackingStatus >( wiring, "lfibTrackingStatus" ) ),
      evpnLagMemberInfo( at< Kez::EvpnLagMemberInfo >( wiring, "evpnLagMemberInfo" ) ),
      evpnVlanStatus( at< Kez::EvpnVlanStatus >( wiring, "evpnVlanStatus" ) ),
      evpnRemoteInfo( at< Kez::EvpnRemoteInfo >( wiring, "evpnRemoteInfo" ) ),
      tunnelIdHwTunnelId( at< Kez::TunnelIdToHwTunnelIdMapping >( wiring, "tunnelIdHwTunnelId" ) ),
      lfibHwStatus( at< Mpls::LfibHwStatus >( wiring, "lfibHwStatus" ) ),
      mplsFloodSetOutput( at< L2Rib::FloodSetOutput >( wiring, "mplsFloodSetOutput" ) ),
      fecRequest( at< Kez::FecIdToHwFecIdRequest >( wiring, "mplsFloodSetFecRequest" ) ),
      hwInfoMapping( at< Kez::HwInfoMapping >( wiring, "hwInfoMapping" ) ),
      hwConfig( at< Kez::EvpnVlanFloodSetHwConfig >( wiring, "vlanFloodSetHwConfig" ) ),
      macFecRequest( at< Kez::FecIdToHwFecIdRequest >( wiring, "macAddrFecRequest" ) ),
      macStatus( at< Kez::MacAddrFecStatus >( wiring, "macAddrFecStatus" ) ),
      hardware( at< Switch::SimulatedSwitch >( wiring, "switch" ) ),
      floodingHelper( at< KezHelper::EvpnFloodingSmHelper >( wiring, "floodingHelper" ) ),
      fecResponse( at< Kez::FecIdToHwFecIdResponse >( wiring, "mplsFloodSetFecResponse" ) ),
      hwStatus( at< Kez::EvpnVlanFloodSetHwStatus >( wiring, "vlanFloodSetHwStatus" ) ),
      switchFloodSets( at< Switch::SwitchFloodSets >( wiring, "switchFloodSets" ) ),
      macFecResponse( at< Kez::FecIdToHwFecIdResponse >( wiring, "macAddrFecResponse" ) ),
      macHwStatus( at< Kez::MacAddrHwStatus >( wiring, "macAddrHwStatus" ) ),
      switchMacs( at< Switch::SwitchMacs >( wiring, "switchMacs" ) ),
      audit( at< KezHelper::Audit >( wiring, "audit" ) ),
      lateCalls( at< KezHelper::LateCalls >( wiring, "lateCalls" ) ),
      membershipSm( at< Kez::KezEvpnVlanMembershipSm >( wiring, "kezEvpnVlanMembershipSm" ) ),
      dot1qSm( at< Kez::EvpnFloodingDot1qSm >( wiring, "evpnFloodingDot1qSm" ) ),
      floodFilterSm( at< Kez::KezEvpnFloodFilterSm >( wiring, "kezEvpnFloodFilterSm" ) ),
      hwTunnelIdSm( at< Kez::EvpnHwTunnelIdSm >( wiring, "evpnHwTunnelIdSm" ) ),
      esiSm( at< Kez::EvpnFloodingEsiSm >( wiring, "evpnFloodingEsiSm" ) ),
      fecSm( at< Kez::EvpnFloodSetFecSm >( wiring, "evpnFloodSetFecSm" ) ),
      floodSetSm( at< Kez::EvpnVlanFloodSetSm >( wiring, "evpnVlanFloodSetSm" ) ),
      filterSm( at< Kez::VlanFloodSetFilterSm >( wiring, "vlanFloodSetFilterSm" ) ),
      macSm( at< Kez::KezMacAddrFecRequestSm >( wiring, "kezMacAddrFecRequestSm" ) ),
      decapSm( at< Kez::EsiFilteringDecapSm >( wiring, "esiFilteringDecapSm" ) ) {}

} // namespace Sim
