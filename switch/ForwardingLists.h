// A switch's tables put together for frames: which VLAN a frame on a port belongs to, and for each
// VLAN where its floods go, in an order that does not depend on that of the tables.
#pragma once

#include "Evpn/EvpnStatus.h"
#include "Kez/LagConfig.h"
#include "switch/Frame.h"
#include "switch/SimulatedSwitch.h"

#include <map>
#include <set>

namespace Switch {

// A copy, or why it is not made.
struct CopyOrStop {
  Crossing copy;
  std::optional< Stop > stop;
};

// Over a via of a FEC, by its index: under the via's label, and over the tunnel that its hardware
// tunnel id stands for, if it has one, else over the one that its interface does.
CopyOrStop overVia( const SimulatedSwitch & hardware, uint64_t hwFecId, const HwFec & fec,
                    size_t index );

// The ways out of a VLAN, as its tables have them.
class VlanLists {
public:
  // A port of an interface: how it is left, and what stops floods there; what is not mapped
  // stops all.
  struct Port {
    Crossing copy;
    std::optional< StopReason > barrier;
  };
  // An interface of the VLAN, with its ports among those of all; a LAG without any has no member
  // that sends.
  struct Outlet {
    Wire::IntfId intfId;
    uint32_t first = 0;
    uint32_t count = 0;
    Wire::MplsLabel esiLabel; // of its ESI port map
  };
  // A destination of a flood set. Its copy has the service label alone.
  struct Dest : CopyOrStop {
    Kez::HwTunnelId hwTunnelId;
  };
  using Dests = std::vector< Dest >;

  std::vector< Outlet > outlets;
  std::vector< Port > ports;
  std::map< Wire::EthAddr, Dests > floodSets;

  // Null for an interface that is not the VLAN's.
  const Outlet * outlet( Wire::IntfId intfId ) const;
  // The one of an outlet that has any to which the frame goes.
  const Port & port( const Outlet & outlet, uint32_t hash ) const {
    return ports[ outlet.first + ( outlet.count == 1 ? 0 : hash % outlet.count ) ];
  }
  // Those of the group's own flood set, or of the one that all frames share. Null without either.
  const Dests * dests( Wire::EthAddr group ) const;
};

class ForwardingLists {
public:
  // Where frames of a VLAN come in.
  struct Entrance {
    PortVlanKey key;
    bool receives = true;
    std::optional< EsiData > esiData;
  };

  ForwardingLists( const SimulatedSwitch & hardware, const Kez::LagCreatorConfigDir & lagConfigDir,
                   const Evpn::EvpnStatus & evpnStatus );

  // Null where no VLAN has the tag on the port. Of several the lowest has it.
  const Entrance * entrance( Wire::IntfId port, Bridging::VlanIdOrNone tag ) const;
  // Null for one that hardware does not have.
  const VlanLists * vlan( Bridging::VlanId vlanId ) const { return vlans_.find( vlanId ); }
  bool isOwnEsiLabel( Wire::MplsLabel label ) const { return ownEsiLabels_.contains( label ); }

private:
  struct PortTag {
    Wire::IntfId port;
    Bridging::VlanIdOrNone tag;
    VEX_VALUE( PortTag, "Switch::PortTag", port, tag )
  };
  using LagPorts = std::map< Wire::IntfId, std::map< Wire::IntfId, Hardware::Lag::PortProgType > >;

  void readLags( const Kez::LagCreatorConfigDir & lagConfigDir );
  void readMappings( const SimulatedSwitch & hardware );
  void readFloodSets( const SimulatedSwitch & hardware );
  // Whether what is programmed on a port for an interface counts: the port is one of that
  // interface's now.
  bool holds( const PortVlanKey & key ) const;
  bool receives( const PortVlanKey & key ) const;
  std::vector< Wire::IntfId > sendingPorts( Wire::IntfId intfId ) const;
  void addOutlet( const SimulatedSwitch & hardware, Bridging::VlanId vlanId, VlanLists & vlan,
                  Wire::IntfId intfId ) const;

  LagPorts lagPorts_;
  std::set< Wire::IntfId > allLagPorts_;
  std::set< Wire::MplsLabel > ownEsiLabels_;
  Vex::Collection< PortTag, Entrance > entrances_;
  Vex::Collection< Bridging::VlanId, VlanLists > vlans_;
};

} // namespace Switch
