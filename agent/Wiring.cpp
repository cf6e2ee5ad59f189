#include "agent/Wiring.h"

#include "KezEvpn/KezEvpnLagSm.h"
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

  const auto evpnLagMemberInfo =
      roots.rootIs( Role::output, "evpnLagMemberInfo", Kez::evpnLagMemberInfoFactory() );
  const auto evpnVlanStatus =
      roots.rootIs( Role::output, "evpnVlanStatus", Kez::evpnVlanStatusFactory() );

  roots.rootIs( Role::machine, "evpnLagSm",
                Kez::evpnLagSmFactory( acsd, lagConfigDir, evpnLagMemberInfo ) );
  roots.rootIs( Role::machine, "kezEvpnVlanMembershipSm",
                Kez::kezEvpnVlanMembershipSmFactory( bridgingConfig, vlanStatusDir, evpnStatus,
                                                     evpnVlanStatus ) );

  const auto hardware = roots.rootIs( Role::hardware, "switch", Vex::makePtr< SimulatedSwitch >() );
  roots.rootIs( Role::hardware, "floodingHelper",
                Vex::makePtr< SwitchFloodingHelper >( "floodingHelper", hardware ) );

  const auto scheduler =
      roots.rootIs( Role::runtime, "scheduler", Vex::makePtr< Loom::TaskScheduler >() );
  return { std::move( roots ), scheduler };
}

} // namespace Agent
