#include "agent/Wiring.h"

#include "KezEvpn/KezEvpnFloodFilterSm.h"
#include "KezEvpn/KezEvpnFloodingDot1qSm.h"
#include "KezEvpn/KezEvpnLagSm.h"
#include "KezEvpn/KezEvpnRemoteInfoFinderSm.h"
#include "KezEvpn/KezEvpnVlanMembershipSm.h"
#include "agent/SwitchFloodingHelper.h"

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

  const auto evpnLagMemberInfo =
      roots.rootIs( Role::output, "evpnLagMemberInfo", Kez::evpnLagMemberInfoFactory() );
  const auto evpnVlanStatus =
      roots.rootIs( Role::output, "evpnVlanStatus", Kez::evpnVlanStatusFactory() );
  const auto evpnRemoteInfo =
      roots.rootIs( Role::output, "evpnRemoteInfo", Kez::evpnRemoteInfoFactory() );

  const auto hardware = roots.rootIs( Role::hardware, "switch", Vex::makePtr< SimulatedSwitch >() );
  const auto floodingHelper =
      roots.rootIs( Role::hardware, "floodingHelper",
                    Vex::makePtr< SwitchFloodingHelper >( "floodingHelper", hardware ) );

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
  return { std::move( roots ), scheduler };
}

} // namespace Agent
