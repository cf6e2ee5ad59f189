#include "agent/Wiring.h"

#include "KezEvpn/KezEvpnEsiFilteringDecapSm.h"
#include "KezEvpn/KezEvpnFloodFilterSm.h"
#include "KezEvpn/KezEvpnFloodSetFecSm.h"
#include "KezEvpn/KezEvpnFloodingDot1qSm.h"
#include "KezEvpn/KezEvpnFloodingEsiSm.h"
#include "KezEvpn/KezEvpnHwTunnelIdSm.h"
#include "KezEvpn/KezEvpnLagSm.h"
#include "KezEvpn/KezEvpnRemoteInfoFinderSm.h"
#include "KezEvpn/KezEvpnVlanFloodSetFilterSm.h"
#include "KezEvpn/KezEvpnVlanFloodSetSm.h"
#include "KezEvpn/KezEvpnVlanMembershipSm.h"
#include "agent/SwitchEsiFilteringDecapHelper.h"
#include "agent/SwitchFloodSets.h"
#include "agent/SwitchFloodingHelper.h"
#include "agent/SwitchHwTunnelIdHelper.h"

namespace Agent {

namespace {

// An entity that stands among the roots, or null.
template< class T > Vex::Ptr< T > standing( const Roots & roots, const Vex::String & name ) {
  const auto * root = roots.root( name );
  return root ? Vex::dynamicCast< T >( root->entity ) : nullptr;
}

Vex::Ptr< SimulatedSwitch > emptySwitch( const Vex::Ptr< const SimulatedSwitch > & earlier ) {
  auto hardware = Vex::makePtr< SimulatedSwitch >();
  if ( earlier ) {
    for ( const auto [ table, entries ] : earlier->capacity() ) {
      hardware->capacityIs( table, entries );
    }
    hardware->listenersOf( *earlier );
  }
  return hardware;
}

// The inputs of an earlier agent, or new ones.
class Inputs {
public:
  explicit Inputs( const Roots & earlier ) : earlier_( earlier.ofRole( Role::input ) ) {}

  template< class T, class... Arguments >
  Vex::Ptr< T > root( Roots & roots, const Vex::String & name,
                      const Arguments &... arguments ) const {
    const auto there = standing< T >( earlier_, name );
    return roots.rootIs( Role::input, name, there ? there : Vex::makePtr< T >( arguments... ) );
  }

private:
  const Roots earlier_;
};

} // namespace

Wiring wire( Roots earlier ) {
  Roots roots;
  const Inputs inputs( earlier );
  const auto empty = emptySwitch( standing< SimulatedSwitch >( earlier, "switch" ) );
  earlier = {};
  const auto acsd = inputs.root< Kez::KezCommonSmData >( roots, "acsd" );
  const auto lagConfigDir = inputs.root< Kez::LagCreatorConfigDir >( roots, "lagConfigDir" );
  const auto bridgingConfig = inputs.root< Bridging::Config >( roots, "bridgingConfig" );
  const auto vlanStatusDir = inputs.root< Bridging::VlanStatusDir >( roots, "vlanStatusDir" );
  const auto evpnStatus = inputs.root< Evpn::EvpnStatus >( roots, "evpnStatus" );
  const auto evpnMplsConfig = inputs.root< Evpn::MplsConfig >( roots, "evpnMplsConfig" );
  const auto floodSetOutput = inputs.root< L2Rib::FloodSetOutput >( roots, "floodSetOutput" );
  const auto lfibStatus = inputs.root< Mpls::LfibStatus >( roots, "lfibStatus", "lfibStatus" );
  const auto lfibTrackingStatus =
      inputs.root< Mpls::LfibTrackingStatus >( roots, "lfibTrackingStatus" );

  const auto evpnLagMemberInfo =
      roots.rootIs( Role::output, "evpnLagMemberInfo", Kez::evpnLagMemberInfoFactory() );
  const auto evpnVlanStatus =
      roots.rootIs( Role::output, "evpnVlanStatus", Kez::evpnVlanStatusFactory() );
  const auto evpnRemoteInfo =
      roots.rootIs( Role::output, "evpnRemoteInfo", Kez::evpnRemoteInfoFactory() );
  const auto tunnelIdHwTunnelId =
      roots.rootIs( Role::output, "tunnelIdHwTunnelId",
                    Kez::tunnelIdToHwTunnelIdMappingFactory( "tunnelIdHwTunnelId" ) );
  const auto lfibHwStatus = roots.rootIs( Role::output, "lfibHwStatus",
                                          Vex::makePtr< Mpls::LfibHwStatus >( "lfibHwStatus" ) );

  const auto mplsFloodSetOutput =
      roots.rootIs( Role::output, "mplsFloodSetOutput", Vex::makePtr< L2Rib::FloodSetOutput >() );
  const auto mplsFloodSetFecRequest =
      roots.rootIs( Role::output, "mplsFloodSetFecRequest", Kez::fecIdToHwFecIdRequestFactory() );
  const auto hwInfoMapping =
      roots.rootIs( Role::output, "hwInfoMapping", Kez::hwInfoMappingFactory() );
  const auto vlanFloodSetHwConfig =
      roots.rootIs( Role::output, "vlanFloodSetHwConfig", Kez::evpnVlanFloodSetHwConfigFactory() );

  const auto hardware = roots.rootIs( Role::hardware, "switch", empty );
  const auto floodingHelper =
      roots.rootIs( Role::hardware, "floodingHelper",
                    Vex::makePtr< SwitchFloodingHelper >( "floodingHelper", hardware ) );
  const auto hwTunnelIdHelper =
      roots.rootIs( Role::hardware, "hwTunnelIdHelper",
                    Vex::makePtr< SwitchHwTunnelIdHelper >( "hwTunnelIdHelper", hardware ) );
  const auto esiFilteringDecapHelper = roots.rootIs(
      Role::hardware, "esiFilteringDecapHelper",
      Vex::makePtr< SwitchEsiFilteringDecapHelper >( "esiFilteringDecapHelper", hardware ) );

  const auto scheduler =
      roots.rootIs( Role::runtime, "scheduler", Vex::makePtr< Loom::TaskScheduler >() );

  const auto mplsFloodSetFecResponse = roots.rootIs( Role::hardware, "mplsFloodSetFecResponse",
                                                     Kez::fecIdToHwFecIdResponseFactory() );
  const auto vlanFloodSetHwStatus = roots.rootIs( Role::hardware, "vlanFloodSetHwStatus",
                                                  Kez::evpnVlanFloodSetHwStatusFactory() );
  roots.rootIs( Role::hardware, "switchFloodSets",
                Vex::makePtr< SwitchFloodSets >( hardware, scheduler->timerWheel(),
                                                 mplsFloodSetFecRequest, mplsFloodSetFecResponse,
                                                 vlanFloodSetHwConfig, vlanFloodSetHwStatus ) );

  roots.rootIs( Role::machine, "evpnLagSm",
                Kez::evpnLagSmFactory( acsd, lagConfigDir, evpnLagMemberInfo ) );
  roots.rootIs( Role::machine, "kezEvpnVlanMembershipSm",
                Kez::kezEvpnVlanMembershipSmFactory( bridgingConfig, vlanStatusDir, evpnStatus,
                                                     evpnVlanStatus ) );
  roots.rootIs( Role::machine, "evpnRemoteInfoFinderSm",
                Kez::evpnRemoteInfoFinderSmFactory( mplsFloodSetOutput, evpnRemoteInfo ) );
  roots
      .rootIs( Role::machine, "evpnFloodingDot1qSm",
               Kez::evpnFloodingDot1qSmFactory( floodingHelper, scheduler, evpnLagMemberInfo,
                                                evpnVlanStatus, evpnStatus, evpnMplsConfig ) )
      ->handleInitialized();
  roots
      .rootIs( Role::machine, "kezEvpnFloodFilterSm",
               Kez::kezEvpnFloodFilterSmFactory( floodingHelper, scheduler, evpnLagMemberInfo,
                                                 evpnStatus ) )
      ->handleInitialized();
  roots
      .rootIs( Role::machine, "evpnHwTunnelIdSm",
               Kez::evpnHwTunnelIdSmFactory( hwTunnelIdHelper, scheduler, acsd, evpnStatus,
                                             evpnRemoteInfo, tunnelIdHwTunnelId ) )
      ->handleInitialized();
  roots
      .rootIs( Role::machine, "evpnFloodingEsiSm",
               Kez::evpnFloodingEsiSmFactory( floodingHelper, scheduler, evpnLagMemberInfo,
                                              evpnStatus, tunnelIdHwTunnelId ) )
      ->handleInitialized();
  const auto floodSetFecSm = roots.rootIs(
      Role::machine, "evpnFloodSetFecSm",
      Kez::evpnFloodSetFecSmFactory( mplsFloodSetOutput, tunnelIdHwTunnelId, vlanFloodSetHwStatus,
                                     mplsFloodSetFecRequest, mplsFloodSetFecResponse, hwInfoMapping,
                                     scheduler->timerWheel() ) );
  roots
      .rootIs( Role::machine, "evpnVlanFloodSetSm",
               Kez::evpnVlanFloodSetSmFactory( mplsFloodSetOutput, tunnelIdHwTunnelId,
                                               hwInfoMapping, vlanFloodSetHwConfig,
                                               vlanFloodSetHwStatus ) )
      ->handleInitialized();
  // What an earlier machine's FECs are used for is withdrawn before they are.
  floodSetFecSm->handleInitialized();
  roots
      .rootIs( Role::machine, "vlanFloodSetFilterSm",
               Kez::vlanFloodSetFilterSmFactory( L2Rib::destTypeMpls_, floodSetOutput,
                                                 mplsFloodSetOutput ) )
      ->handleInitialized();
  roots.rootIs( Role::machine, "esiFilteringDecapSm",
                Kez::esiFilteringDecapSmFactory( esiFilteringDecapHelper, lfibStatus, scheduler,
                                                 lfibTrackingStatus, lfibHwStatus ) );
  return { std::move( roots ), scheduler, hardware };
}

} // namespace Agent
