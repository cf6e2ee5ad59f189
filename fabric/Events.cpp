#include "fabric/Events.h"

#include "Vex/Text.h"
#include "switch/Operation.h"

#include <algorithm>
#include <numeric>

namespace Fabric {

using Vex::text;

namespace {

class Dice {
public:
  explicit Dice( std::mt19937_64 & random ) : random_( random ) {}

  uint64_t below( uint64_t n ) { return random_() % n; }
  uint64_t from( uint64_t least, uint64_t most ) { return least + below( most - least + 1 ); }
  bool oneIn( uint64_t n ) { return below( n ) == 0; }
  const auto & anyOf( const auto & all ) { return all[ below( all.size() ) ]; }

private:
  std::mt19937_64 & random_;
};

Wire::EthAddr anyAddress( std::mt19937_64 & random ) {
  return random() & 0xfeff'ffff'ffff;
}

std::vector< std::pair< Index, const Link * > > linksOf( const Topology & topology ) {
  std::vector< std::pair< Index, const Link * > > links;
  for ( Index segment = 0; segment < topology.segments.size(); ++segment ) {
    for ( const auto & link : topology.segments[ segment ].links ) {
      links.emplace_back( segment, &link );
    }
  }
  return links;
}

Event failure( EventKind kind, const String & what ) {
  return { kind, "fail " + what, "return " + what };
}

String linkName( const Topology & topology, const Link & link, IntfId intfId ) {
  return "link " + topology.nodes[ link.node ] + " " + text( intfId );
}

std::optional< Event > move( const Topology & topology, Dice & dice ) {
  const auto & host = dice.anyOf( topology.hosts );
  std::vector< Index > others;
  for ( Index segment = 0; segment < topology.segments.size(); ++segment ) {
    if ( segment != host.segment && topology.segments[ segment ].vlans.contains( host.vlanId ) ) {
      others.push_back( segment );
    }
  }
  if ( others.empty() ) {
    return std::nullopt;
  }
  const auto begin = "move " + host.name + " ";
  return Event{ EventKind::hostMoves, begin + topology.segments[ dice.anyOf( others ) ].name,
                begin + topology.segments[ host.segment ].name };
}

std::optional< Event > preference( const Topology & topology, Dice & dice ) {
  std::vector< const Segment * > all;
  for ( const auto & segment : topology.segments ) {
    if ( segment.byPreference && segment.isMultihomed() ) {
      all.push_back( &segment );
    }
  }
  if ( all.empty() ) {
    return std::nullopt;
  }
  const auto & segment = *dice.anyOf( all );
  const Index node = dice.anyOf( segment.links ).node;
  const auto begin = "prefer " + segment.name + " " + topology.nodes[ node ] + " ";
  const auto at = segment.preference.find( node );
  return Event{ EventKind::preferenceChanges, begin + std::to_string( dice.from( 0, 500 ) ),
                begin + std::to_string( at == segment.preference.end() ? 0 : at->second ) };
}

// Of so many VLANs.
std::vector< String > someVlans( Dice & dice, uint64_t number ) {
  std::vector< String > some;
  for ( uint64_t i = 1; i <= number; ++i ) {
    if ( dice.oneIn( 2 ) || ( some.empty() && i == number ) ) {
      some.push_back( std::to_string( 10 * i ) );
    }
  }
  return some;
}

// A topology, as its text.
class TopologyWriter {
public:
  explicit TopologyWriter( std::mt19937_64 & random )
      : random_( random ), dice_( random ),
        ports_( dice_.oneIn( 3 ) ? dice_.from( 2, 16 ) : dice_.from( 2, 5 ) ) {}

  String text() {
    const auto vlans = dice_.from( 1, 3 );
    for ( size_t i = 1; i <= ports_.size(); ++i ) {
      text_ += "switch s" + std::to_string( i ) + "\n";
    }
    for ( uint64_t i = 1; i <= vlans; ++i ) {
      text_ += "vlan " + std::to_string( 10 * i ) + " tag " + std::to_string( 100 + i ) + "\n";
    }
    const auto segments = dice_.from( 2, ports_.size() + 2 );
    for ( uint64_t i = 1; i <= segments; ++i ) {
      addSegment( std::to_string( i ), vlans );
    }
    return text_;
  }

private:
  void addSegment( const String & number, uint64_t vlans ) {
    const auto some = someVlans( dice_, vlans );
    String list;
    for ( const auto & vlan : some ) {
      list += ( list.empty() ? "" : "," ) + vlan;
    }
    text_ += "segment g" + number + " vlans " + list + "\n";
    std::vector< size_t > nodes( ports_.size() );
    std::iota( nodes.begin(), nodes.end(), 0 );
    std::ranges::shuffle( nodes, random_ );
    nodes.resize( std::min( nodes.size(), dice_.from( 1, 4 ) ) );
    const bool byPreference = dice_.oneIn( 3 );
    for ( const auto node : nodes ) {
      addLink( number, node );
      text_ += byPreference ? " preference " + std::to_string( dice_.from( 0, 300 ) ) : "";
      text_ += "\n";
    }
    for ( const auto & vlan : some ) {
      for ( const auto & piece : { String( "host h" ), number, String( "-" ), vlan, String( " " ),
                                   Vex::text( anyAddress( random_ ) ), String( " vlan " ), vlan,
                                   String( " at g" ), number, String( "\n" ) } ) {
        text_ += piece;
      }
    }
  }

  void addLink( const String & segment, size_t node ) {
    const auto port = [ & ] { return "Ethernet" + std::to_string( ++ports_[ node ] ); };
    text_ += "link g" + segment + " s" + std::to_string( node + 1 ) + " ";
    const bool lag = !dice_.oneIn( 4 );
    text_ += lag ? "Port-Channel" + segment + " " : "";
    text_ += port();
    text_ += lag && dice_.oneIn( 2 ) ? "," + port() : "";
  }

  std::mt19937_64 & random_;
  Dice dice_;
  std::vector< size_t > ports_; // of each switch, that have a link
  String text_;
};

// Something more than what happens by itself.
String disturbance( const Topology & topology, Dice & dice ) {
  const auto & node = dice.anyOf( topology.nodes );
  if ( dice.oneIn( 3 ) ) {
    static const String delays[] = { "0.3", "1", "2.5" };
    return "late " + node + " " + delays[ dice.below( std::size( delays ) ) ];
  }
  // Who lacks a hardware tunnel id waits until one is given back, and here none is.
  auto operation =
      Switch::FallibleOperation::names()[ dice.below( Switch::FallibleOperation::names().size() ) ];
  if ( operation == "getHwTunnelId" ) {
    operation = "createNonDfPort";
  }
  return "refuse " + node + " " + String( operation ) + " " + std::to_string( dice.from( 1, 4 ) );
}

} // namespace

String randomTopology( uint64_t seed ) {
  std::mt19937_64 random( seed );
  return TopologyWriter( random ).text();
}

std::optional< Event > randomEvent( const Topology & topology, EventKind kind,
                                    std::mt19937_64 & random ) {
  Dice dice( random );
  const auto & node = dice.anyOf( topology.nodes );
  const auto links = linksOf( topology );
  const auto & link = *dice.anyOf( links ).second;
  switch ( kind ) {
  case EventKind::switchFails:
    return failure( kind, "switch " + node );
  case EventKind::linkFails:
    return failure( kind, linkName( topology, link, link.intfId ) );
  case EventKind::memberFails:
    if ( link.ports.size() < 2 ) {
      return std::nullopt;
    }
    return failure( kind, linkName( topology, link, dice.anyOf( link.ports ) ) );
  case EventKind::hostMoves:
    return move( topology, dice );
  case EventKind::preferenceChanges:
    return preference( topology, dice );
  case EventKind::coldRestart:
    return Event{ kind, "restart " + node, "" };
  case EventKind::hitlessRestart:
    return Event{ kind, "restart " + node + " hitless", "" };
  }
  return std::nullopt;
}

Sim::Lines randomLines( const Topology & topology, uint64_t seed, size_t events ) {
  std::mt19937_64 random( seed );
  Dice dice( random );
  Sim::Lines lines{ "rest" };
  static const String times[] = { "0.01", "0.1", "0.3", "1", "3" };
  const bool disturbed = dice.oneIn( 2 );
  for ( size_t i = 0; i < events; ++i ) {
    const auto kind = static_cast< EventKind >( dice.below( vexNames( EventKind() ).size() ) );
    const auto event = randomEvent( topology, kind, random );
    if ( disturbed && dice.oneIn( 6 ) ) {
      lines.push_back( disturbance( topology, dice ) );
    } else if ( event ) {
      lines.push_back( event->undo.empty() || dice.oneIn( 2 ) ? event->line : event->undo );
    }
    if ( dice.oneIn( 2 ) ) {
      lines.push_back( "pass " + times[ dice.below( std::size( times ) ) ] );
    }
    if ( dice.oneIn( 12 ) ) {
      lines.emplace_back( "rest" );
    }
  }
  lines.emplace_back( "rest" );
  return lines;
}

} // namespace Fabric
