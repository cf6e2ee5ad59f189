// The soft switch, as the host sees it: a chip that forwards on a thread of its own and answers
// later. It has the driver's books, what its calls and tables are for the helpers, and what hosts
// its ports have learned.
//
// A real product has its driver's handle of the chip here.
#pragma once

#include "SwitchCalls.h"
#include "TableFeed.h"

namespace LinuxPe {

class SoftSwitch : public Vex::Entity {
  VEX_ENTITY( SoftSwitch, "LinuxPe::SoftSwitch" )
  VEX_OUTPUT( 1, books, SimulatedSwitch )
  VEX_OUTPUT( 2, forwarding, Switch::ForwardingInput )
  // Behind which port each host has been seen; it is in `forwarding` too, unless somebody else had
  // put it there.
  VEX_MAP( 3, learnedHost, Bridging::MacVlanPair, Wire::IntfId )
  VEX_COMPUTED( 10, fromPorts, uint64_t )
  VEX_COMPUTED( 11, fromCore, uint64_t )
  VEX_COMPUTED( 12, toPorts, uint64_t )
  VEX_COMPUTED( 13, toCore, uint64_t )
  VEX_COMPUTED( 14, malformed, uint64_t )
  VEX_COMPUTED( 15, wrongTag, uint64_t )
  VEX_COMPUTED( 16, forOthers, uint64_t )
  VEX_COMPUTED( 17, unknownPeer, uint64_t )
  VEX_COMPUTED( 18, expired, uint64_t )
  VEX_COMPUTED( 19, notForwarded, uint64_t )
  VEX_COMPUTED( 20, noNextHop, uint64_t )
  VEX_COMPUTED( 21, notSent, uint64_t )
  VEX_COMPUTED( 22, missed, uint64_t )
  VEX_ATTRIBUTES( books, forwarding, learnedHost, fromPorts, fromCore, toPorts, toCore, malformed,
                  wrongTag, forOthers, unknownPeer, expired, notForwarded, noNextHop, notSent,
                  missed )

public:
  static constexpr auto vexAccess = Vex::Access::readOnly;

  // Raises std::runtime_error when an interface cannot be used.
  SoftSwitch( const SwitchOptions & options, const Vex::Ptr< SimulatedSwitch > & books,
              const Vex::Ptr< Switch::ForwardingInput > & forwarding,
              const Vex::Ptr< const Kez::LagCreatorConfigDir > & lags,
              const Vex::Ptr< const Evpn::EvpnStatus > & segments,
              const Vex::Ptr< const CoreConfig > & core );
  ~SoftSwitch() override;

  KezHelper::EvpnFloodingLateChips flooding() {
    return { vlan_, dot1qMapping_, nonDfPort_, esiData_ };
  }
  KezHelper::LateEsiPortMapChip & esiPortMap() { return esiPortMap_; }

  // Whenever the descriptor is readable, on the host's thread: takes the switch's answers, and what
  // it has learned.
  int descriptor() const { return thread_.descriptor(); }
  void serve();
  // Until no call is outstanding, nor any that its answer leads to.
  void awaitAnswers( const KezHelper::LateCalls & calls );

private:
  void handleHost( const HostEvent & event );

  SwitchThread thread_;
  SwitchCalls< VlanTable > vlan_;
  SwitchCalls< MappingTable > dot1qMapping_;
  SwitchCalls< NonDfPortTable > nonDfPort_;
  SwitchCalls< EsiDataTable > esiData_;
  SwitchCalls< EsiPortMapTable > esiPortMap_;
  const Vex::Ptr< const TableFeed > feed_;
};

} // namespace LinuxPe
