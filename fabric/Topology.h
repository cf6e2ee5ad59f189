// What a fabric consists of: switches that reach each other over tunnels, segments, each a device
// or a network with links to some of them, and hosts behind segments. Its text form has a line
// each:
//
//   switch leaf1
//   vlan 10 tag 110
//   segment rack1 vlans 10,20
//   link rack1 leaf1 Port-Channel1 Ethernet1,Ethernet2 preference 100
//   link rack1 leaf2 Ethernet7
//   host a 00:00:00:00:00:01 vlan 10 at rack1
//
// Blank lines, and those that begin with #, are for readers. What is named has a line before. A
// VLAN without a tag has its own number. A link is by a LAG of ports or by one port. Where a link
// of a segment has a preference the forwarder is elected by preference, else by service carving.
#pragma once

#include "Bridging/VlanId.h"
#include "Wire/EthAddr.h"
#include "Wire/IntfId.h"

#include <map>
#include <optional>
#include <set>
#include <vector>

namespace Fabric {

using Bridging::VlanId;
using Vex::String;
using Wire::IntfId;

// What has a name is known by its place among its like.
using Index = size_t;

struct Link {
  Index node = 0; // the switch
  IntfId intfId;
  std::vector< IntfId > ports; // the interface itself unless it is a LAG
};

struct Segment {
  String name;
  std::set< VlanId > vlans;
  std::vector< Link > links;                // at most one a switch
  bool byPreference = false;                // how its forwarder is elected
  std::map< Index, uint32_t > preference{}; // by switch; those without one have 0

  bool isMultihomed() const { return links.size() > 1; }
  // Null for a switch that is not on it.
  const Link * linkOf( Index node ) const;
};

struct Host {
  String name;
  Wire::EthAddr mac;
  VlanId vlanId;
  Index segment = 0; // which it is behind at first
};

struct Topology {
  std::vector< String > nodes;
  std::map< VlanId, Bridging::VlanIdOrNone > vlans; // to their tags
  std::vector< Segment > segments;
  std::vector< Host > hosts;

  // Those of its segments.
  std::set< VlanId > vlansOf( Index node ) const;
};

// Raises std::runtime_error, which says NAME:LINE:COLUMN and what is wrong there.
Topology readTopology( const String & name, std::string_view text );

// Where the name stands among those of `all`, if it does.
template< class All, class NameOf >
std::optional< Index > indexOf( const All & all, std::string_view name, NameOf && nameOf ) {
  for ( Index i = 0; i < all.size(); ++i ) {
    if ( nameOf( all[ i ] ) == name ) {
      return i;
    }
  }
  return std::nullopt;
}

} // namespace Fabric
