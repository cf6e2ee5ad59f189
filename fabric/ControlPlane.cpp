#include "fabric/ControlPlane.h"

#include "Vex/Text.h"

#include <algorithm>

namespace Fabric {

using Vex::text;
using Wire::MplsLabel;

namespace {

constexpr uint32_t labelsOfNode = 10'000;
constexpr uint32_t firstEsiLabel = 9'000;

uint32_t placeOf( const Topology & topology, VlanId vlanId ) {
  return static_cast< uint32_t >(
      std::distance( topology.vlans.begin(), topology.vlans.find( vlanId ) ) );
}

uint32_t labelBase( Index node ) {
  return static_cast< uint32_t >( node + 1 ) * labelsOfNode;
}

String tepTo( Index node ) {
  return text( tunnelTo( node ).intfId() );
}

String segmentPath( IntfId intfId ) {
  return "evpnStatus.ethernetSegmentStatus[" + text( intfId ) + "]";
}

String mplsDest( MplsLabel label, Index node ) {
  return "mpls(," + text( label ) + "," + text( tunnelTo( node ) ) + ")";
}

// The inputs of one switch, being put together.
class Writer {
public:
  Writer( const Topology & topology, Index node, const LocalView & view, const Routes & received )
      : topology_( topology ), node_( node ), view_( view ), received_( received ) {}

  Inputs inputs() {
    const auto vlans = topology_.vlansOf( node_ );
    for ( const auto vlanId : vlans ) {
      addVlan( vlanId );
    }
    for ( Index segment = 0; segment < topology_.segments.size(); ++segment ) {
      if ( const auto * const link = topology_.segments[ segment ].linkOf( node_ ) ) {
        addLink( *link, topology_.segments[ segment ].vlans );
        if ( topology_.segments[ segment ].isMultihomed() ) {
          addSegment( segment, *link );
        }
      }
    }
    for ( const auto & [ key, value ] : received_ ) {
      if ( key.kind == RouteKind::multicast && vlans.contains( key.vlanId ) ) {
        add( "floodSetOutput.vlanFloodSet[" + text( key.vlanId ) +
             "].floodSet[ff:ff:ff:ff:ff:ff].destSet[" +
             mplsDest( floodLabel( topology_, key.node, key.vlanId ), key.node ) + "]" );
      }
    }
    addHosts( vlans );
    return std::move( inputs_ );
  }

private:
  void add( const String & path, const String & value = {} ) { inputs_.emplace( path, value ); }
  bool isReceived( const RouteKey & key ) const { return received_.contains( key ); }

  void addVlan( VlanId vlanId );
  void addLink( const Link & link, const std::set< VlanId > & vlans );
  void addSegment( Index segment, const Link & link );
  std::optional< Index > forwarder( Index segment, const Link & own, VlanId vlanId ) const;
  void addHosts( const std::set< VlanId > & vlans );
  void addRemoteHost( const String & host, Index segment, VlanId vlanId );

  const Topology & topology_;
  const Index node_;
  const LocalView & view_;
  const Routes & received_;
  Inputs inputs_;
};

void Writer::addVlan( VlanId vlanId ) {
  add( "evpnStatus.vlanToDot1q[" + text( vlanId ) + "]", text( topology_.vlans.at( vlanId ) ) );
  const auto labelPath = []( MplsLabel label ) {
    return "forwardingInput.serviceLabel[" + text( label ) + "]";
  };
  add( labelPath( floodLabel( topology_, node_, vlanId ) ), text( vlanId ) + ",flood" );
  add( labelPath( hostLabel( topology_, node_, vlanId ) ), text( vlanId ) + ",unicast" );
}

void Writer::addLink( const Link & link, const std::set< VlanId > & vlans ) {
  for ( const auto port : link.ports ) {
    if ( port != link.intfId && view_.ports.contains( port ) ) {
      add( "lagConfigDir.lagConfig[" + text( link.intfId ) + "].member[" + text( port ) + "]",
           "portProgRxTx" );
    }
  }
  for ( const auto vlanId : vlans ) {
    if ( view_.isUp( link ) ) {
      add( "vlanStatusDir.vlanStatus[" + text( vlanId ) + "].vlanPortStatus[" +
               text( link.intfId ) + "]",
           "forwarding" );
    }
  }
}

void Writer::addSegment( Index segment, const Link & link ) {
  const auto label = esiLabel( node_, segment );
  const auto via = "evpnEthernetSegmentFilter:" + text( label );
  add( localEsiLabelPath( link.intfId ), "2:" + text( label ) );
  add( filterViaPath( label ), via + "," + text( label ) + "," + text( link.intfId ) );
  add( filterViaSetPath( label ), text( label ) + "," + via );
  add( filterRoutePath( label ), text( label ) + "," + text( label ) );
  for ( const auto & [ node, intfId, ports ] : topology_.segments[ segment ].links ) {
    if ( isReceived( { RouteKind::segmentDiscovery, node, segment } ) ) {
      add( remoteEsiLabelPath( link.intfId, node ), "2:" + text( esiLabel( node, segment ) ) );
    }
  }
  for ( const auto vlanId : topology_.segments[ segment ].vlans ) {
    const auto elected = forwarder( segment, link, vlanId );
    if ( elected != node_ ) {
      add( floodFilterPath( vlanId, link.intfId ) );
    }
    if ( elected && elected != node_ ) {
      add( forwarderPath( link.intfId, vlanId ), tepTo( *elected ) );
    }
  }
}

// By the VLAN's number modulo that of the candidates, in the order of their addresses; or the first
// of those with the highest preference.
std::optional< Index > Writer::forwarder( Index segment, const Link & own, VlanId vlanId ) const {
  std::map< Index, uint32_t > candidates;
  for ( const auto & link : topology_.segments[ segment ].links ) {
    const auto route = received_.find( { RouteKind::segment, link.node, segment } );
    if ( route != received_.end() ) {
      candidates.emplace( link.node, route->second );
    }
  }
  if ( view_.isUp( own ) ) {
    candidates.emplace( node_, view_.preference.at( segment ) );
  }
  if ( candidates.empty() ) {
    return std::nullopt;
  }
  if ( topology_.segments[ segment ].byPreference ) {
    const auto byPreference = []( const auto & a, const auto & b ) { return a.second < b.second; };
    return std::ranges::max_element( candidates, byPreference )->first;
  }
  return std::next( candidates.begin(), vlanId.value() % ptrdiff_t( candidates.size() ) )->first;
}

// The last place that is known counts, and of several homes that tell of it each.
void Writer::addHosts( const std::set< VlanId > & vlans ) {
  std::map< Index, Learned > last = view_.hosts;
  for ( const auto & [ key, sequence ] : received_ ) {
    if ( key.kind == RouteKind::host ) {
      const auto [ at, added ] = last.emplace( key.host, Learned{ key.segment, sequence } );
      if ( !added && at->second.sequence < sequence ) {
        at->second = { key.segment, sequence };
      }
    }
  }
  for ( const auto & [ index, learned ] : last ) {
    const auto & host = topology_.hosts[ index ];
    const auto key = text( host.mac ) + "," + text( host.vlanId );
    const auto * const link = topology_.segments[ learned.segment ].linkOf( node_ );
    if ( link && view_.isUp( *link ) ) {
      add( "forwardingInput.localHost[" + key + "]", text( link->intfId ) );
    } else if ( vlans.contains( host.vlanId ) ) {
      addRemoteHost( key, learned.segment, host.vlanId );
    }
  }
}

// Over all switches of the segment, whichever of them told of the host.
void Writer::addRemoteHost( const String & host, Index segment, VlanId vlanId ) {
  const auto place = placeOf( topology_, vlanId );
  const auto vlans = topology_.vlans.size();
  String members;
  for ( const auto & link : topology_.segments[ segment ].links ) {
    const RouteKey ofSegment{ RouteKind::segmentDiscovery, link.node, segment };
    const RouteKey ofVlan{ RouteKind::vlanDiscovery, link.node, segment, vlanId };
    const bool discovered = isReceived( ofVlan ) && isReceived( ofSegment );
    if ( discovered || !topology_.segments[ segment ].isMultihomed() ) {
      const auto object = std::to_string( link.node * vlans + place + 1 );
      add( "hostOutput.dest[" + object + "]",
           mplsDest( hostLabel( topology_, link.node, vlanId ), link.node ) );
      members += ( members.empty() ? "" : "," ) + object;
    }
  }
  if ( !members.empty() ) {
    const auto balance = std::to_string( 1'000'000 + segment * vlans + place );
    add( "hostOutput.loadBalance[" + balance + "]", "[" + members + "]" );
    add( "hostOutput.host[" + host + "]", balance );
  }
}

} // namespace

bool LocalView::isUp( const Link & link ) const {
  return std::ranges::any_of( link.ports,
                              [ this ]( IntfId port ) { return ports.contains( port ); } );
}

Routes routesOf( const Topology & topology, Index node, const LocalView & view ) {
  Routes routes;
  for ( const auto vlanId : topology.vlansOf( node ) ) {
    routes[ { RouteKind::multicast, node, 0, vlanId } ];
  }
  for ( Index segment = 0; segment < topology.segments.size(); ++segment ) {
    const auto * const link = topology.segments[ segment ].linkOf( node );
    if ( !link || !view.isUp( *link ) ) {
      continue;
    }
    if ( topology.segments[ segment ].isMultihomed() ) {
      routes[ { RouteKind::segmentDiscovery, node, segment } ];
      routes[ { RouteKind::segment, node, segment } ] = view.preference.at( segment );
      for ( const auto vlanId : topology.segments[ segment ].vlans ) {
        routes[ { RouteKind::vlanDiscovery, node, segment, vlanId } ];
      }
    }
  }
  for ( const auto & [ host, learned ] : view.hosts ) {
    routes[ { RouteKind::host, node, learned.segment, topology.hosts[ host ].vlanId, host } ] =
        learned.sequence;
  }
  return routes;
}

Inputs inputsOf( const Topology & topology, Index node, const LocalView & view,
                 const Routes & received ) {
  return Writer( topology, node, view, received ).inputs();
}

bool forgetMoved( LocalView & view, const RouteKey & key, uint32_t sequence ) {
  const auto at = view.hosts.find( key.host );
  const bool moved =
      key.kind == RouteKind::host && at != view.hosts.end() && at->second.sequence < sequence;
  if ( moved ) {
    view.hosts.erase( at );
  }
  return moved;
}

Tunnel::TunnelTable::TunnelId tunnelTo( Index node ) {
  return node + 1;
}

Index nodeBehind( Tunnel::TunnelTable::TunnelId tunnelId ) {
  return tunnelId.value() - 1;
}

MplsLabel floodLabel( const Topology & topology, Index node, VlanId vlanId ) {
  return labelBase( node ) + 2 * placeOf( topology, vlanId );
}

MplsLabel hostLabel( const Topology & topology, Index node, VlanId vlanId ) {
  return labelBase( node ) + 2 * placeOf( topology, vlanId ) + 1;
}

MplsLabel esiLabel( Index node, Index segment ) {
  return labelBase( node ) + firstEsiLabel + static_cast< uint32_t >( segment );
}

String floodFilterPath( VlanId vlanId, IntfId intfId ) {
  return "evpnStatus.evpnVlanFloodStatus[" + text( vlanId ) + "].floodFilter[" + text( intfId ) +
         "]";
}

String forwarderPath( IntfId intfId, VlanId vlanId ) {
  return segmentPath( intfId ) + ".designatedForwarderTep[" + text( vlanId ) + "]";
}

String remoteEsiLabelPath( IntfId intfId, Index node ) {
  return segmentPath( intfId ) + ".remoteEsiLabel[" + tepTo( node ) + "]";
}

String localEsiLabelPath( IntfId intfId ) {
  return "evpnStatus.localEsiLabel[" + text( intfId ) + "]";
}

String filterViaPath( MplsLabel label ) {
  return "lfibStatus.evpnEthernetSegmentFilterVia[evpnEthernetSegmentFilter:" + text( label ) + "]";
}

String filterViaSetPath( MplsLabel label ) {
  return "lfibStatus.viaSet[" + text( label ) + "]";
}

String filterRoutePath( MplsLabel label ) {
  return "lfibStatus.route[" + text( label ) + "]";
}

} // namespace Fabric
