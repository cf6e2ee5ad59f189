// What the simulated switch and every output entity must hold once nothing is due any more: plain
// functions of the inputs, which share no code with the machines. What hardware keeps by history
// is a function of more than the inputs; Expectations.cpp says in one place what that is.
#pragma once

#include "sim/System.h"

#include <map>
#include <set>

namespace Sim {

// What a route asks for: nothing, something that is no port map, or one.
struct Wish {
  enum Kind { none, other, portMap } kind = none;
  Wire::MplsLabel label;
  Wire::IntfId intfId;
  friend bool operator==( const Wish &, const Wish & ) = default;
};
Wish wish( const Mpls::LfibStatus & status, Mpls::RouteKey routeKey );

// An interface in a VLAN.
using VlanIntf = std::pair< Bridging::VlanId, Wire::IntfId >;

// What expectations need to know of the past. It is kept here and not taken from the machines: it
// outlives them, and what a start or an end of a mark makes of it is said below.
struct History {
  // What membership was last judged by, and how.
  std::map< VlanIntf, Bridging::VlanPortConfig > configured;
  std::map< VlanIntf, Bridging::VlanPortStatus > up;
  std::set< Wire::IntfId > filtered;
  std::set< VlanIntf > members;

  // What each route asked for when it was told of last; a route that changed since is not here.
  std::map< Mpls::RouteKey, Wish > told;

  // Only asked about where the machine concerned is not told to follow.
  bool poolsLimited = false;   // a pool of hardware tunnel ids has or had a size
  bool poolsDisturbed = false; // one changed its size, or failed as planned, with tunnels in use
  bool updatesInPlace = false; // ESI data could at some time be created over what is there
};

// Follows the members of VLANs, to be called after each change that their machine hears of.
void judgeMembers( const System & system, History & history );

// When that machine looks at all of its inputs again.
void judgeMembersAnew( const System & system, History & history );

// The agent has started anew, over inputs that stand: every machine looks at all of them, and
// hardware has no past, unless it was taken over.
void startAnew( const System & system, History & history );

// How the switch and the outputs differ from what they must hold; empty when they do not.
Vex::String differences( const System & system, const History & history );

// Whether nothing is missing or kept by history that the machines would change if they looked
// again.
bool complete( const System & system, const History & history );

// All that the switch holds, without the ids that depend on who came first.
Vex::String switchContents( const System & system );

} // namespace Sim
