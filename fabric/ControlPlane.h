// What EVPN would have each switch know, in plain functions: the routes that a switch originates
// from what it sees by itself, and the inputs of its agent by these and the routes of others that
// have reached it.
//
// Each switch has labels of its own, and on every other one the tunnel to it has the same id.
#pragma once

#include "fabric/Topology.h"

#include "Tunnel/TunnelTable.h"
#include "Wire/MplsLabel.h"

namespace Fabric {

// Inclusive multicast; Ethernet auto-discovery per segment, with the ESI label, and per VLAN, with
// the label for hosts; Ethernet segment, with the preference; host, with a sequence number.
enum class RouteKind { multicast, segmentDiscovery, vlanDiscovery, segment, host };

struct RouteKey {
  RouteKind kind;
  Index node; // its originator
  Index segment = 0;
  VlanId vlanId{};
  Index host = 0;
  friend auto operator<=>( const RouteKey &, const RouteKey & ) = default;
};

// To the preference of a segment route, the sequence number of a host's.
using Routes = std::map< RouteKey, uint32_t >;

// Where a host was heard, and as which of its places.
struct Learned {
  Index segment = 0;
  uint32_t sequence = 0;
};

// What a switch sees by itself.
struct LocalView {
  std::set< IntfId > ports;               // that are up
  std::map< Index, uint32_t > preference; // by segment
  std::map< Index, Learned > hosts;

  bool isUp( const Link & link ) const;
};

// Of an agent: attribute paths to values, which are empty for members of sets.
using Inputs = std::map< String, String >;

Routes routesOf( const Topology & topology, Index node, const LocalView & view );
Inputs inputsOf( const Topology & topology, Index node, const LocalView & view,
                 const Routes & received );

// Drops the host of a route that tells of a later place than the view has. Whether it did.
bool forgetMoved( LocalView & view, const RouteKey & key, uint32_t sequence );

// --- Names

Tunnel::TunnelTable::TunnelId tunnelTo( Index node );
Index nodeBehind( Tunnel::TunnelTable::TunnelId tunnelId );

Wire::MplsLabel floodLabel( const Topology & topology, Index node, VlanId vlanId );
Wire::MplsLabel hostLabel( const Topology & topology, Index node, VlanId vlanId );
Wire::MplsLabel esiLabel( Index node, Index segment );

// Of inputs, of which the fabric asks what they say.
String floodFilterPath( VlanId vlanId, IntfId intfId );
String forwarderPath( IntfId intfId, VlanId vlanId );
String remoteEsiLabelPath( IntfId intfId, Index node );
String localEsiLabelPath( IntfId intfId );
// The label stands behind the path's last ':' or '[', and in the paths of all that make its route.
String filterViaPath( Wire::MplsLabel label );
String filterViaSetPath( Wire::MplsLabel label );
String filterRoutePath( Wire::MplsLabel label );

} // namespace Fabric
