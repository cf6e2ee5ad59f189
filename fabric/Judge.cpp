#include "fabric/Judge.h"

#include "agent/Send.h"
#include "switch/Random.h"

namespace Fabric {

using Switch::Crossing;
using Switch::Forwarded;
using Switch::Frame;
using Vex::text;

namespace {

constexpr Wire::EthAddr broadcast = 0xffff'ffff'ffff;

// A walk under way. What came over a tunnel must not leave over one: so it ends.
class Walker {
public:
  Walker( const Network & network, VlanId vlanId, const Frame & frame, std::vector< Hop > * way )
      : network_( network ), vlanId_( vlanId ), tag_( network.topology().vlans.at( vlanId ) ),
        frame_( frame ), way_( way ) {
    walk_.copies.resize( network.topology().segments.size() );
  }

  Walk walkFrom( const Entry & entry ) {
    const auto in = Crossing::onPort( entry.port, tag_ );
    forward( entry.node, in, first_ );
    walk_.flooded = first_.flooded;
    for ( const auto & copy : first_.copies ) {
      if ( !copy.isOverTunnel() ) {
        deliver( entry.node, copy );
      } else {
        cross( entry.node, copy );
      }
    }
    return std::move( walk_ );
  }

private:
  void forward( Index node, const Crossing & in, Forwarded & out ) {
    network_.node( node )->forward( in, frame_, out );
    if ( way_ ) {
      way_->push_back( { node, in, out } );
    }
  }

  void cross( Index from, const Crossing & copy ) {
    const Index to = nodeBehind( copy.tunnelId );
    if ( !network_.node( to ) ) {
      return;
    }
    forward( to, Crossing::overTunnel( tunnelTo( from ), copy.labels ), second_ );
    for ( const auto & each : second_.copies ) {
      if ( each.isOverTunnel() ) {
        walk_.wrong = network_.topology().nodes[ to ] + " sends from tunnel to tunnel";
      } else {
        deliver( to, each );
      }
    }
  }

  void deliver( Index node, const Crossing & copy ) {
    const auto segment = network_.segmentAt( node, copy.port );
    const auto & all = network_.topology().segments;
    if ( !segment || copy.tag != tag_ || !all[ *segment ].vlans.contains( vlanId_ ) ) {
      walk_.wrong = network_.topology().nodes[ node ] + " sends " + text( copy ) +
                    ", which is not of VLAN " + text( vlanId_ );
    } else if ( network_.isUp( node, copy.port ) ) {
      ++walk_.copies[ *segment ];
    }
  }

  const Network & network_;
  const VlanId vlanId_;
  const Bridging::VlanIdOrNone tag_;
  const Frame & frame_;
  std::vector< Hop > * way_;
  Walk walk_;
  Forwarded first_;
  Forwarded second_;
};

// Whether the forwarder is told which segment a flood is from, by the inputs of both.
bool isToldOfSegment( const Network & network, Index node, const Link & from,
                      const Link & forwarder, Index segment, VlanId vlanId ) {
  const auto * const tep = network.input( node, forwarderPath( from.intfId, vlanId ) );
  const auto label = esiLabel( forwarder.node, segment );
  const auto at = forwarder.node;
  return tep && *tep == text( tunnelTo( at ).intfId() ) &&
         network.input( node, remoteEsiLabelPath( from.intfId, at ) ) &&
         network.input( node, localEsiLabelPath( from.intfId ) ) &&
         network.input( at, localEsiLabelPath( forwarder.intfId ) ) &&
         network.input( at, filterViaPath( label ) ) &&
         network.input( at, filterViaSetPath( label ) ) &&
         network.input( at, filterRoutePath( label ) ) && !network.isHindered( node ) &&
         !network.isHindered( at );
}

} // namespace

Walk walk( const Network & network, const Entry & entry, const Frame & frame,
           std::vector< Hop > * way ) {
  return Walker( network, entry.vlanId, frame, way ).walkFrom( entry );
}

void showWay( std::ostream & out, const Network & network, const std::vector< Hop > & way ) {
  for ( const auto & hop : way ) {
    out << network.topology().nodes[ hop.node ] << ", from " << text( hop.in ) << ": ";
    Agent::showForwarded( out, hop.forwarded );
  }
}

std::vector< Entry > entriesOf( const Network & network, Index host ) {
  std::vector< Entry > entries;
  for ( const auto & link : network.topology().segments[ network.segmentOf( host ) ].links ) {
    for ( const auto port : link.ports ) {
      if ( network.isUp( link.node, port ) ) {
        entries.push_back( { link.node, port, network.topology().hosts[ host ].vlanId } );
      }
    }
  }
  return entries;
}

uint32_t allowedCopies( const Network & network, const Entry & entry, Index segment ) {
  const auto & to = network.topology().segments[ segment ];
  const bool isOrigin = network.segmentAt( entry.node, entry.port ) == segment;
  uint32_t copies = 0;
  for ( const auto & link : to.links ) {
    const bool filtered = network.input( link.node, floodFilterPath( entry.vlanId, link.intfId ) );
    if ( !network.node( link.node ) || ( filtered && !network.isHindered( link.node ) ) ) {
      continue;
    }
    const bool excluded =
        isOrigin &&
        ( link.node == entry.node || isToldOfSegment( network, entry.node, *to.linkOf( entry.node ),
                                                      link, segment, entry.vlanId ) );
    copies += !excluded;
  }
  return copies;
}

// --- Judge

namespace {

bool isReachable( const Network & network, Index from, Index to ) {
  const Index target = network.segmentOf( to );
  return target != network.segmentOf( from ) && network.isAttached( target );
}

// How many copies reach the segment once inputs everywhere say the same.
uint32_t wantedCopies( const Network & network, const Sent & sent, Index segment ) {
  if ( sent.to ) {
    return segment == network.segmentOf( *sent.to ) && isReachable( network, sent.host, *sent.to );
  }
  return network.topology().segments[ segment ].vlans.contains( sent.entry.vlanId ) &&
         segment != network.segmentOf( sent.host ) && network.isAttached( segment );
}

Bounds boundsOf( const Network & network, const Sent & sent, bool flooded, Index segment ) {
  const auto wanted = wantedCopies( network, sent, segment );
  if ( sent.atRest && ( !sent.to || isReachable( network, sent.host, *sent.to ) ) ) {
    return { wanted, wanted };
  }
  if ( sent.to && segment != network.segmentOf( *sent.to ) ) {
    return {};
  }
  return { 0, flooded || !sent.to ? allowedCopies( network, sent.entry, segment ) : 1 };
}

String copiesText( const Network & network, const Sent & sent, Index segment, uint32_t copies,
                   const Bounds & bounds ) {
  std::ostringstream out;
  out << network.topology().segments[ segment ].name << " has " << copies
      << ( copies == 1 ? " copy of a " : " copies of a " );
  if ( sent.to ) {
    out << "frame to " << network.topology().hosts[ *sent.to ].name;
  } else {
    out << "flood";
  }
  out << ", not " << bounds.most << "; ";
  return out.str();
}

} // namespace

Way wayOf( const Network & network, const Sent & sent ) {
  Way way;
  way.sent = sent;
  way.walked = walk( network, sent.entry, sent.frame, &way.hops );
  way.wrong = way.walked.wrong;
  for ( Index segment = 0; segment < way.walked.copies.size(); ++segment ) {
    const auto copies = way.walked.copies[ segment ];
    const auto & bounds =
        way.bounds.emplace_back( boundsOf( network, sent, way.walked.flooded, segment ) );
    if ( copies < bounds.least || copies > bounds.most ) {
      way.wrong += copiesText( network, sent, segment, copies, bounds );
    }
  }
  return way;
}

Sent floodOf( const Network & network, Index host, const Entry & entry ) {
  return { host, std::nullopt, entry, { network.topology().hosts[ host ].mac, broadcast } };
}

Sent frameTo( const Network & network, Index host, Index to, const Entry & entry ) {
  const auto & hosts = network.topology().hosts;
  return { host, to, entry, { hosts[ host ].mac, hosts[ to ].mac } };
}

Judge::Verdict Judge::flood( Index host, const Entry & entry, bool atRest ) {
  auto sent = floodOf( network_, host, entry );
  sent.frame.from = anyAddress();
  sent.atRest = atRest;
  return verdict( sent );
}

Judge::Verdict Judge::unicast( Index host, Index to, const Entry & entry, bool atRest ) {
  auto sent = frameTo( network_, host, to, entry );
  sent.frame.from = anyAddress();
  sent.atRest = atRest;
  return verdict( sent );
}

// What inputs allow is looked up only where it decides.
Judge::Verdict Judge::verdict( const Sent & sent ) {
  const auto walked = walk( network_, sent.entry, sent.frame );
  ++frames_;
  last_ = sent;
  Verdict verdict;
  bool wrong = !walked.wrong.empty();
  for ( Index segment = 0; segment < walked.copies.size(); ++segment ) {
    const auto copies = walked.copies[ segment ];
    const auto wanted = wantedCopies( network_, sent, segment );
    const bool counts = !sent.to || segment == network_.segmentOf( *sent.to );
    verdict.lost |= copies < wanted;
    verdict.doubled |= counts && copies > ( sent.to ? 1 : wanted );
    if ( sent.atRest ? copies != wanted : copies > 0 ) {
      const auto bounds = boundsOf( network_, sent, walked.flooded, segment );
      wrong |= copies < bounds.least || copies > bounds.most;
    }
  }
  if ( wrong ) {
    auto way = wayOf( network_, sent );
    std::ostringstream out;
    out << way.wrong << "the frame's way:\n";
    showWay( out, network_, way.hops );
    verdict.wrong = out.str();
    wrongIs( std::move( way ) );
  }
  return verdict;
}

std::optional< Way > Judge::way() const {
  const bool canBeSent = last_ && network_.isUp( last_->entry.node, last_->entry.port );
  return wrong_ || !canBeSent ? wrong_ : wayOf( network_, *last_ );
}

void Judge::wrongIs( Way way ) {
  if ( !wrong_ ) {
    wrong_ = std::move( way );
  }
}

String Judge::some( size_t number, bool atRest ) {
  String wrong;
  for ( size_t i = 0; i < number && wrong.empty() && !network_.topology().hosts.empty(); ++i ) {
    wrong = one( atRest );
  }
  return wrong;
}

String Judge::one( bool atRest ) {
  const auto & hosts = network_.topology().hosts;
  const Index host = below( hosts.size() );
  const auto entries = entriesOf( network_, host );
  if ( entries.empty() ) {
    return "";
  }
  const auto & entry = entries[ below( entries.size() ) ];
  const Index to = below( hosts.size() );
  const bool known = to != host && hosts[ to ].vlanId == entry.vlanId &&
                     network_.segmentOf( to ) != network_.segmentOf( host );
  return ( known ? unicast( host, to, entry, atRest ) : flood( host, entry, atRest ) ).wrong;
}

String Judge::all() {
  const auto & hosts = network_.topology().hosts;
  for ( Index host = 0; host < hosts.size(); ++host ) {
    for ( const auto & entry : entriesOf( network_, host ) ) {
      auto wrong = flood( host, entry, true ).wrong;
      for ( Index to = 0; to < hosts.size() && wrong.empty(); ++to ) {
        if ( hosts[ to ].vlanId == entry.vlanId && isReachable( network_, host, to ) ) {
          wrong = unicast( host, to, entry, true ).wrong;
        }
      }
      if ( !wrong.empty() ) {
        return wrong;
      }
    }
  }
  return "";
}

// Addresses of hosts, as the hashes by which ports and vias are chosen are weak.
Wire::EthAddr Judge::anyAddress() {
  return Switch::randomNumber( network_.seed(), ++draws_ ) & 0xfeff'ffff'ffff;
}

uint64_t Judge::below( uint64_t n ) {
  return Switch::randomNumber( network_.seed(), ++draws_ ) % n;
}

} // namespace Fabric
