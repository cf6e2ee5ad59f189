#include "fabric/WayPage.h"

#include "agent/Send.h"
#include "report/Page.h"

namespace Fabric {

using Vex::text;

extern const Agent::PageTemplate wayTemplate;

namespace {

// The first line, without the separator that may end it.
String headline( const String & told ) {
  auto line = told.substr( 0, told.find( '\n' ) );
  line.erase( line.find_last_not_of( "; " ) + 1 );
  return line;
}

class WayPage : public Agent::Page {
public:
  WayPage( std::ostream & out, const Network & network )
      : Page( out, wayTemplate ), network_( network ), topology_( network.topology() ) {}

  void nodes();
  void segments( const std::optional< Way > & way );
  void hosts();
  void frame( const Sent & sent );
  void hops( const Way & way );

private:
  void link( const Link & link );
  // Where a copy leads: to a segment or to a switch, and the next hop if it goes on there.
  void target( const Way & way, Index hop, const Switch::Crossing & copy, Index & nextHop );
  void stopPlace( Index node, const Switch::Stop & stop );

  const Network & network_;
  const Topology & topology_;
};

void WayPage::nodes() {
  arrayMember( "nodes", [ & ] {
    for ( Index node = 0; node < topology_.nodes.size(); ++node ) {
      object( [ & ] {
        member( "name", topology_.nodes[ node ] );
        member( "up", network_.node( node ) != nullptr );
      } );
    }
  } );
}

void WayPage::link( const Link & link ) {
  object( [ & ] {
    member( "node", link.node );
    member( "intf", text( link.intfId ) );
    arrayMember( "ports", [ & ] {
      for ( const auto port : link.ports ) {
        object( [ & ] {
          member( "name", text( port ) );
          member( "up", network_.isUp( link.node, port ) );
        } );
      }
    } );
  } );
}

void WayPage::segments( const std::optional< Way > & way ) {
  arrayMember( "segments", [ & ] {
    for ( Index segment = 0; segment < topology_.segments.size(); ++segment ) {
      const auto & each = topology_.segments[ segment ];
      object( [ & ] {
        member( "name", each.name );
        arrayMember( "vlans", [ & ] {
          for ( const auto vlanId : each.vlans ) {
            put( vlanId.value() );
          }
        } );
        arrayMember( "links", [ & ] {
          for ( const auto & its : each.links ) {
            link( its );
          }
        } );
        if ( way ) {
          const auto & bounds = way->bounds[ segment ];
          member( "copies", way->walked.copies[ segment ] );
          member( "least", bounds.least );
          member( "most",
                  bounds.most == Bounds::any ? std::nullopt : std::optional( bounds.most ) );
        }
      } );
    }
  } );
}

void WayPage::hosts() {
  arrayMember( "hosts", [ & ] {
    for ( Index host = 0; host < topology_.hosts.size(); ++host ) {
      const auto & each = topology_.hosts[ host ];
      object( [ & ] {
        member( "name", each.name );
        member( "mac", text( each.mac ) );
        member( "vlan", each.vlanId.value() );
        member( "segment", network_.segmentOf( host ) );
      } );
    }
  } );
}

void WayPage::frame( const Sent & sent ) {
  name( "frame" );
  object( [ & ] {
    member( "host", sent.host );
    member( "to", sent.to );
    member( "fromMac", text( sent.frame.from ) );
    member( "toMac", text( sent.frame.to ) );
    member( "vlan", sent.entry.vlanId.value() );
    member( "node", sent.entry.node );
    member( "port", text( sent.entry.port ) );
  } );
}

void WayPage::target( const Way & way, Index hop, const Switch::Crossing & copy, Index & nextHop ) {
  const auto & from = way.hops[ hop ];
  const auto tag = topology_.vlans.at( way.sent.entry.vlanId );
  String fate;
  bool wrong = false;
  object( [ & ] {
    if ( copy.isOverTunnel() ) {
      const Index to = nodeBehind( copy.tunnelId );
      member( "node", to );
      if ( hop > 0 ) {
        fate = "from tunnel to tunnel";
        wrong = true;
      } else if ( !network_.node( to ) ) {
        fate = "lost: the switch has failed";
      } else {
        member( "hop", nextHop++ );
      }
    } else {
      const auto segment = network_.segmentAt( from.node, copy.port );
      member( "segment", segment );
      if ( !segment || copy.tag != tag ||
           !topology_.segments[ *segment ].vlans.contains( way.sent.entry.vlanId ) ) {
        fate = "not of VLAN " + text( way.sent.entry.vlanId );
        wrong = true;
      } else if ( !network_.isUp( from.node, copy.port ) ) {
        fate = "lost: the link has failed";
      } else {
        wrong = way.walked.copies[ *segment ] > way.bounds[ *segment ].most;
        fate = wrong ? "arrives, one of too many" : "arrives";
      }
    }
    member( "fate", fate );
    member( "wrong", wrong );
  } );
}

void WayPage::stopPlace( Index node, const Switch::Stop & stop ) {
  object( [ & ] {
    if ( stop.tunnelId.value() != 0 && nodeBehind( stop.tunnelId ) < topology_.nodes.size() ) {
      member( "node", nodeBehind( stop.tunnelId ) );
    }
    for ( Index segment = 0; segment < topology_.segments.size(); ++segment ) {
      const auto * const its = topology_.segments[ segment ].linkOf( node );
      if ( its && its->intfId == stop.intfId ) {
        member( "segment", segment );
      }
    }
  } );
}

void WayPage::hops( const Way & way ) {
  Index nextHop = 1;
  arrayMember( "hops", [ & ] {
    for ( Index hop = 0; hop < way.hops.size(); ++hop ) {
      const auto & each = way.hops[ hop ];
      object( [ & ] {
        member( "node", each.node );
        member( "in", text( each.in ) );
        Agent::putForwarded( *this, each.forwarded );
        arrayMember( "targets", [ & ] {
          for ( const auto & copy : each.forwarded.copies ) {
            target( way, hop, copy, nextHop );
          }
        } );
        arrayMember( "stopPlaces", [ & ] {
          for ( const auto & stop : each.forwarded.stopped ) {
            stopPlace( each.node, stop );
          }
        } );
      } );
    }
  } );
}

} // namespace

void writeWayPage( std::ostream & out, const String & topologyName, const Network & network,
                   const std::optional< Way > & way, const String & wrong ) {
  const bool isFrames = way && !way->wrong.empty() && !wrong.empty();
  WayPage page( out, network );
  page.write( [ & ] {
    page.member( "topology", topologyName );
    page.member( "seed", text( network.seed() ) );
    page.member( "time", Vex::Clock::now() );
    page.member( "wrong", headline( isFrames ? way->wrong : wrong ) );
    page.nodes();
    page.segments( way );
    page.hosts();
    if ( way ) {
      page.frame( way->sent );
      page.hops( *way );
    }
  } );
}

} // namespace Fabric
