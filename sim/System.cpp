#include "sim/System.h"

namespace Sim {

namespace {

const Vex::Ptr< Vex::Entity > & entityAt( const Agent::Roots & roots, std::string_view name ) {
  const auto * root = roots.root( name );
  VEX_ASSERT( root );
  return root->entity;
}

template< class T > Vex::Ptr< T > at( const Agent::Wiring & wiring, std::string_view name ) {
  const auto entity = Vex::dynamicCast< T >( entityAt( wiring.roots, name ) );
  VEX_ASSERT( entity );
  return entity;
}

} // namespace

Parked::Parked( const Agent::Roots & roots, const char * machine, const char * holder,
                const char * collection )
    : holder_( entityAt( roots, holder ).get() ),
      collection_( holder_->fwkType().attribute( collection ) ) {
  const auto & sm = *entityAt( roots, machine );
  const auto task = sm.fwkType().attribute( "reviewUnprogrammed" )->target( sm );
  review_ = dynamic_cast< const Loom::Task * >( task.get() );
  VEX_ASSERT( collection_ && review_ );
}

System::System( const Agent::Wiring & wiring )
    : wiring( wiring ), lagConfigDir( at< Kez::LagCreatorConfigDir >( wiring, "lagConfigDir" ) ),
      bridgingConfig( at< Bridging::Config >( wiring, "bridgingConfig" ) ),
      vlanStatusDir( at< Bridging::VlanStatusDir >( wiring, "vlanStatusDir" ) ),
      evpnStatus( at< Evpn::EvpnStatus >( wiring, "evpnStatus" ) ),
      evpnMplsConfig( at< Evpn::MplsConfig >( wiring, "evpnMplsConfig" ) ),
      floodSetOutput( at< L2Rib::FloodSetOutput >( wiring, "floodSetOutput" ) ),
      lfibStatus( at< Mpls::LfibStatus >( wiring, "lfibStatus" ) ),
      evpnLagMemberInfo( at< Kez::EvpnLagMemberInfo >( wiring, "evpnLagMemberInfo" ) ),
      evpnVlanStatus( at< Kez::EvpnVlanStatus >( wiring, "evpnVlanStatus" ) ),
      evpnRemoteInfo( at< Kez::EvpnRemoteInfo >( wiring, "evpnRemoteInfo" ) ),
      tunnelIdHwTunnelId( at< Kez::TunnelIdToHwTunnelIdMapping >( wiring, "tunnelIdHwTunnelId" ) ),
      lfibHwStatus( at< Mpls::LfibHwStatus >( wiring, "lfibHwStatus" ) ),
      mplsFloodSetOutput( at< L2Rib::FloodSetOutput >( wiring, "mplsFloodSetOutput" ) ),
      fecRequest( at< Kez::FecIdToHwFecIdRequest >( wiring, "mplsFloodSetFecRequest" ) ),
      hwInfoMapping( at< Kez::HwInfoMapping >( wiring, "hwInfoMapping" ) ),
      hwConfig( at< Kez::EvpnVlanFloodSetHwConfig >( wiring, "vlanFloodSetHwConfig" ) ),
      hardware( at< Agent::SimulatedSwitch >( wiring, "switch" ) ),
      fecResponse( at< Kez::FecIdToHwFecIdResponse >( wiring, "mplsFloodSetFecResponse" ) ),
      hwStatus( at< Kez::EvpnVlanFloodSetHwStatus >( wiring, "vlanFloodSetHwStatus" ) ),
      switchFloodSets( at< Agent::SwitchFloodSets >( wiring, "switchFloodSets" ) ),
      dot1q( wiring.roots, "evpnFloodingDot1qSm", "evpnFloodingDot1qSm", "unprogrammedDot1q" ),
      floodFilter( wiring.roots, "kezEvpnFloodFilterSm", "kezEvpnFloodFilterSm",
                   "unprogrammedFilter" ),
      esi( wiring.roots, "evpnFloodingEsiSm", "evpnFloodingEsiSm", "unprogrammedEsi" ),
      routes( wiring.roots, "esiFilteringDecapSm", "lfibHwStatus", "unprogrammedRoute" ),
      tunnels( wiring.roots, "evpnHwTunnelIdSm", "evpnHwTunnelIdSm", "unprogrammedTunnel" ) {}

std::optional< Mpls::RouteKey > System::portMapOwner( Wire::IntfId intfId ) const {
  const auto & sm = *entityAt( wiring.roots, "esiFilteringDecapSm" );
  const auto owner = sm.fwkType().attribute( "intfRoute" )->member( sm, Vex::text( intfId ) );
  return owner ? std::optional( Vex::parseBriefly< Mpls::RouteKey >( owner->value ) )
               : std::nullopt;
}

} // namespace Sim
