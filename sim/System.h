// The agent as the simulation sees it: its inputs, its outputs, the simulated switch, and of the
// machines what reflection shows. Valid until the agent restarts.
#pragma once

#include "Bridging/VlanConfig.h"
#include "Evpn/EvpnStatus.h"
#include "Kez/LagConfig.h"
#include "KezEvpn/TunnelIdToHwTunnelIdMapping.h"
#include "L2Rib/FloodSet.h"
#include "Loom/Task.h"
#include "Mpls/LfibStatus.h"
#include "agent/SimulatedSwitch.h"
#include "agent/SwitchFloodSets.h"
#include "agent/Wiring.h"

namespace Sim {

// The keys that a machine keeps for another try, and the task that makes it.
class Parked {
public:
  Parked( const Agent::Roots & roots, const char * machine, const char * holder,
          const char * collection );

  size_t size() const { return collection_->size( *holder_ ); }
  bool has( const Vex::String & key ) const {
    return collection_->member( *holder_, key ).has_value();
  }
  bool due() const { return review_->isScheduled(); }

private:
  const Vex::Entity * holder_;
  const Vex::AttributeType * collection_;
  const Loom::Task * review_;
};

struct System {
  explicit System( const Agent::Wiring & wiring );

  const Agent::Wiring & wiring;

  const Vex::Ptr< Kez::LagCreatorConfigDir > lagConfigDir;
  const Vex::Ptr< Bridging::Config > bridgingConfig;
  const Vex::Ptr< Bridging::VlanStatusDir > vlanStatusDir;
  const Vex::Ptr< Evpn::EvpnStatus > evpnStatus;
  const Vex::Ptr< Evpn::MplsConfig > evpnMplsConfig;
  const Vex::Ptr< L2Rib::FloodSetOutput > floodSetOutput;
  const Vex::Ptr< Mpls::LfibStatus > lfibStatus;

  const Vex::Ptr< Kez::EvpnLagMemberInfo > evpnLagMemberInfo;
  const Vex::Ptr< Kez::EvpnVlanStatus > evpnVlanStatus;
  const Vex::Ptr< Kez::EvpnRemoteInfo > evpnRemoteInfo;
  const Vex::Ptr< Kez::TunnelIdToHwTunnelIdMapping > tunnelIdHwTunnelId;
  const Vex::Ptr< Mpls::LfibHwStatus > lfibHwStatus;
  const Vex::Ptr< L2Rib::FloodSetOutput > mplsFloodSetOutput;
  const Vex::Ptr< Kez::FecIdToHwFecIdRequest > fecRequest;
  const Vex::Ptr< Kez::HwInfoMapping > hwInfoMapping;
  const Vex::Ptr< Kez::EvpnVlanFloodSetHwConfig > hwConfig;

  const Vex::Ptr< Agent::SimulatedSwitch > hardware;
  const Vex::Ptr< Kez::FecIdToHwFecIdResponse > fecResponse;
  const Vex::Ptr< Kez::EvpnVlanFloodSetHwStatus > hwStatus;
  const Vex::Ptr< Agent::SwitchFloodSets > switchFloodSets;

  const Parked dot1q, floodFilter, esi, routes;
  const Parked tunnels; // without a timer: what could help them wakes them

  // The route that has an interface's port map, as the machine has it on record.
  std::optional< Mpls::RouteKey > portMapOwner( Wire::IntfId intfId ) const;
};

} // namespace Sim
