#include "agent/Wiring.h"

#include "KezEvpn/KezEvpnEsiFilteringDecapSm.h"
#include "KezEvpn/KezEvpnFloodFilterSm.h"
#include "KezEvpn/KezEvpnFloodingDot1qSm.h"
#include "KezEvpn/KezEvpnFloodingEsiSm.h"
#include "KezEvpn/KezEvpnHwTunnelIdSm.h"
#include "KezEvpn/KezEvpnLagSm.h"
#include "KezEvpn/KezEvpnRemoteInfoFinderSm.h"
#include "KezEvpn/KezEvpnVlanMembershipSm.h"
#include "agent/SwitchEsiFilteringDecapHelper.h"
#include "agent/SwitchFloodingHelper.h"
#include "agent/SwitchHwTunnelIdHelper.h"

namespace Agent {

Wiring wire() {
  Roots roots;
  const auto acsd = roots.rootIs( Role::input, "acsd", Vex::makePtr< Kez::KezCommonSmData >() );
  const auto lagConfigDir =
      roots.rootIs( Role::input, "lagConfigDir", Vex::makePtr< Kez::LagCreatorConfigDir >() );
  const auto bridgingConfig =
      roots.rootIs( Role::input, "bridgingConfig", Vex::makePtr< Bridging::Config >() );
  const auto vlanStatusDir =
      roots.rootIs( Role::input, "vlanStatusDir", Vex::makePtr< Bridging::VlanStatusDir >() );
  const auto evpnStatus =
      roots.rootIs( Role::input, "evpnStatus", Vex::makePtr< Evpn::EvpnStatus >() );
  const auto evpnMplsConfig =
      roots.rootIs( Role::input, "evpnMplsConfig", Vex::makePtr< Evpn::MplsConfig >() );
  const auto floodSetOutput =
      roots.rootIs( Role::input, "floodSetOutput", Vex::makePtr< L2Rib::FloodSetOutput >() );
  const auto lfibStatus =
      roots.rootIs( Role::input, "lfibStatus", Vex::makePtr< Mpls::LfibStatus >( "lfibStatus" ) );
  const auto lfibTrackingStatus =
      roots.rootIs( Role::input, "lfibTrackingStatus", Vex::makePtr< Mpls::LfibTrackingStatus >() );

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

  const auto hardware = roots.rootIs( Role::hardware, "switch", Vex::makePtr< SimulatedSwitch >() );
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

  roots.rootIs( Role::machine, "evpnLagSm",
                Kez::evpnLagSmFactory( acsd, lagConfigDir, evpnLagMemberInfo ) );
  roots.rootIs( Role::machine, "kezEvpnVlanMembershipSm",
                Kez::kezEvpnVlanMembershipSmFactory( bridgingConfig, vlanStatusDir, evpnStatus,
                                                     evpnVlanStatus ) );
  roots.rootIs( Role::machine, "evpnRemoteInfoFinderSm",
                Kez::evpnRemoteInfoFinderSmFactory( floodSetOutput, evpnRemoteInfo ) );
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
  roots.rootIs( Role::machine, "esiFilteringDecapSm",
                Kez::esiFilteringDecapSmFactory( esiFilteringDecapHelper, lfibStatus, scheduler,
                                                 lfibTrackingStatus, lfibHwStatus ) );
  return { std::move( roots ), scheduler };
}

} // namespace Agent
