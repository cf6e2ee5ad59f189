// The switch's tables, as its own thread has them: what the machines have programmed, and what else
// forwarding takes. They are entities like the host's, and no entity is both threads'. What is in
// them forwards by the rules of Switch::ForwardingPlane.
//
// A real product has the chip's memories here.
#pragma once

#include "switch/ForwardingPlane.h"

namespace LinuxPe {

// Where tunnels lead: the peer's MAC address on the core network.
class CoreConfig : public Vex::Entity {
  VEX_ENTITY( CoreConfig, "LinuxPe::CoreConfig" )
  VEX_MAP( 1, nextHop, Tunnel::TunnelTable::TunnelId, Wire::EthAddr )
  VEX_ATTRIBUTES( nextHop )
};

struct Tables {
  const Vex::Ptr< Switch::SimulatedSwitch > hardware = Vex::makePtr< Switch::SimulatedSwitch >();
  const Vex::Ptr< Switch::ForwardingInput > forwarding = Vex::makePtr< Switch::ForwardingInput >();
  const Vex::Ptr< Kez::LagCreatorConfigDir > lags = Vex::makePtr< Kez::LagCreatorConfigDir >();
  const Vex::Ptr< Evpn::EvpnStatus > segments = Vex::makePtr< Evpn::EvpnStatus >();
  const Vex::Ptr< CoreConfig > core = Vex::makePtr< CoreConfig >();
  const Vex::Ptr< Switch::ForwardingPlane > plane =
      Vex::makePtr< Switch::ForwardingPlane >( hardware, forwarding, lags, segments );

  // The LAG that a port is in, or the port.
  Wire::IntfId interfaceOf( Wire::IntfId port ) const;
  // Not valid when nobody is known there.
  Tunnel::TunnelTable::TunnelId tunnelTo( Wire::EthAddr nextHop ) const;
};

} // namespace LinuxPe
