#include "fabric/Network.h"

#include "fabric/Words.h"

#include "Vex/Clock.h"
#include "switch/Random.h"

#include <algorithm>

namespace Fabric {

using Switch::randomNumber;
using Vex::Clock;
using Vex::text;

namespace {

// At most, in seconds: a route's way, the time after which inputs follow, that between some of them
// and the next. What an agent, its machines and their hardware put off takes less than the last.
constexpr double routeTime = 0.5;
constexpr double firstWriteTime = 0.05;
constexpr double nextWriteTime = 0.02;
constexpr double settleTime = 60;
constexpr uint64_t mostWrites = 4;

uint64_t hashOf( std::string_view text ) {
  uint64_t hash = 0xcbf29ce484222325;
  for ( const char c : text ) {
    hash = ( hash ^ static_cast< unsigned char >( c ) ) * 0x100000001b3;
  }
  return hash;
}

} // namespace

Network::Network( const Topology & topology, uint64_t seed )
    : topology_( topology ), seed_( seed ), members_( topology.nodes.size() ) {
  Clock::virtualIs( 0 );
  for ( const auto & host : topology_.hosts ) {
    hostAt_.push_back( { host.segment, 0 } );
  }
  for ( Index segment = 0; segment < topology_.segments.size(); ++segment ) {
    for ( const auto & link : topology_.segments[ segment ].links ) {
      for ( const auto port : link.ports ) {
        segmentAt_.emplace( std::pair( link.node, port ), segment );
      }
      const auto & preference = topology_.segments[ segment ].preference;
      const auto at = preference.find( link.node );
      members_[ link.node ].view.preference[ segment ] = at == preference.end() ? 0 : at->second;
    }
  }
  for ( Index node = 0; node < members_.size(); ++node ) {
    returnSwitch( node );
  }
}

// --- Lines

void Network::execute( std::string_view line ) {
  static constexpr std::pair< std::string_view, void ( Network::* )( Vex::TextCursor & ) >
      commands[] = {
        { "fail", &Network::failLine },       { "return", &Network::returnLine },
        { "move", &Network::moveLine },       { "prefer", &Network::preferLine },
        { "restart", &Network::restartLine }, { "refuse", &Network::refuseLine },
        { "late", &Network::lateLine },       { "delay", &Network::delayLine },
        { "pass", &Network::passLine },
      };
  KezShell::inTextAt( 1, [ & ] {
    Vex::TextCursor in( line );
    const auto name = KezShell::takeWord( in );
    const auto at = std::ranges::find( commands, name, []( auto & each ) { return each.first; } );
    if ( at == std::end( commands ) ) {
      KezShell::failAt( 0, "fail, return, move, prefer, restart, refuse, late, delay or pass",
                        name );
    }
    ( this->*at->second )( in );
  } );
  observer_();
}

void Network::failLine( Vex::TextCursor & in ) {
  failOrReturn( in, true );
}

void Network::returnLine( Vex::TextCursor & in ) {
  failOrReturn( in, false );
}

// The host is heard at all of its links.
void Network::moveLine( Vex::TextCursor & in ) {
  const Index host = takeHost( in, topology_ );
  const size_t offset = in.offset();
  const Index segment = takeSegment( in, topology_ );
  Vex::expectEnd( in );
  if ( !topology_.segments[ segment ].vlans.contains( topology_.hosts[ host ].vlanId ) ) {
    KezShell::failAt( offset, "a segment with the host's VLAN",
                      topology_.segments[ segment ].name );
  }
  if ( hostAt_[ host ].segment != segment ) {
    hostAt_[ host ] = { segment, hostAt_[ host ].sequence + 1 };
    for ( const auto & link : topology_.segments[ segment ].links ) {
      viewChanged( link.node );
    }
  }
}

void Network::preferLine( Vex::TextCursor & in ) {
  const Index segment = takeSegment( in, topology_ );
  const size_t offset = in.offset();
  const Index node = takeNode( in, topology_ );
  const auto preference = takeValue< uint32_t >( in );
  Vex::expectEnd( in );
  if ( !topology_.segments[ segment ].linkOf( node ) ) {
    KezShell::failAt( offset, "a switch of the segment", topology_.nodes[ node ] );
  }
  members_[ node ].view.preference[ segment ] = preference;
  viewChanged( node );
}

void Network::restartLine( Vex::TextCursor & in ) {
  auto & member = members_[ takeNode( in, topology_ ) ];
  const bool hitless = skipWord( in, "hitless" );
  Vex::expectEnd( in );
  if ( member.node ) {
    member.node->restart( hitless );
  }
}

void Network::refuseLine( Vex::TextCursor & in ) {
  auto & member = members_[ takeNode( in, topology_ ) ];
  const auto operation = takeValue< Switch::FallibleOperation >( in );
  const auto calls = takeValue< uint32_t >( in );
  Vex::expectEnd( in );
  hinder( member, { Node::refusalLine( operation, calls ) } );
}

void Network::lateLine( Vex::TextCursor & in ) {
  auto & member = members_[ takeNode( in, topology_ ) ];
  const auto seconds = text( takeValue< double >( in ) );
  Vex::expectEnd( in );
  hinder( member, Node::latenessLines( seconds ) );
}

void Network::hinder( Member & member, const std::vector< String > & lines ) {
  for ( const auto & line : lines ) {
    member.node ? member.node->line( line ) : member.hindrances.push_back( line );
  }
  member.hindered = true;
}

void Network::delayLine( Vex::TextCursor & in ) {
  auto & member = members_[ takeNode( in, topology_ ) ];
  member.delayed.emplace_back( KezShell::takeRest( in ) );
}

void Network::passLine( Vex::TextCursor & in ) {
  const auto seconds = takeValue< double >( in );
  Vex::expectEnd( in );
  pass( seconds );
}

void Network::failOrReturn( Vex::TextCursor & in, bool fails ) {
  if ( skipWord( in, "switch" ) ) {
    const Index node = takeNode( in, topology_ );
    Vex::expectEnd( in );
    if ( fails != !members_[ node ].node ) {
      fails ? failSwitch( node ) : returnSwitch( node );
    }
    return;
  }
  expectWord( in, "link" );
  const Index node = takeNode( in, topology_ );
  const size_t offset = in.offset();
  const auto intfId = takeValue< IntfId >( in );
  Vex::expectEnd( in );
  bool found = false;
  auto & down = members_[ node ].downPorts;
  for ( const auto & segment : topology_.segments ) {
    const auto * const link = segment.linkOf( node );
    if ( !link ) {
      continue;
    }
    for ( const auto port : link->ports ) {
      if ( port == intfId || link->intfId == intfId ) {
        fails ? void( down.insert( port ) ) : void( down.erase( port ) );
        found = true;
      }
    }
  }
  if ( !found ) {
    KezShell::failAt( offset, "a link of the switch", text( intfId ) );
  }
  viewChanged( node );
}

void Network::failSwitch( Index node ) {
  auto & member = members_[ node ];
  member.callsOfEarlier += member.node->hardwareCalls();
  member.hindrances = member.node->hindrances();
  member.node = nullptr;
  for ( const auto & [ key, value ] : member.originated ) {
    for ( Index to = 0; to < members_.size(); ++to ) {
      tell( to, key, std::nullopt );
    }
  }
  std::erase_if( messages_, [ & ]( const auto & each ) { return each.second.to == node; } );
  member.view = { {}, member.view.preference, {} };
  member.originated.clear();
  member.received.clear();
  member.inputs.clear();
  member.writesAt.reset();
}

void Network::returnSwitch( Index node ) {
  auto & member = members_[ node ];
  // Half of the switches replace what they have programmed for a segment in place.
  member.node = std::make_unique< Node >( randomNumber( seed_, node ) % 2 == 0 );
  for ( const auto & line : std::exchange( member.hindrances, {} ) ) {
    member.node->line( line );
  }
  for ( Index from = 0; from < members_.size(); ++from ) {
    for ( const auto & [ key, value ] : members_[ from ].originated ) {
      tell( node, key, value );
    }
  }
  viewChanged( node );
}

// --- What switches see, tell each other and write

void Network::viewChanged( Index node ) {
  auto & member = members_[ node ];
  if ( !member.node ) {
    return;
  }
  member.view.ports.clear();
  for ( const auto & segment : topology_.segments ) {
    if ( const auto * const link = segment.linkOf( node ) ) {
      std::ranges::remove_copy_if(
          link->ports, std::inserter( member.view.ports, member.view.ports.end() ),
          [ & ]( IntfId port ) { return member.downPorts.contains( port ); } );
    }
  }
  std::erase_if( member.view.hosts, [ & ]( const auto & each ) {
    return !member.view.isUp( *topology_.segments[ each.second.segment ].linkOf( node ) );
  } );
  for ( Index host = 0; host < hostAt_.size(); ++host ) {
    const auto * const link = topology_.segments[ hostAt_[ host ].segment ].linkOf( node );
    if ( link && member.view.isUp( *link ) ) {
      member.view.hosts[ host ] = hostAt_[ host ];
    }
  }
  originate( node );
  inputsAreStale( node );
}

// To one that has failed nothing is told.
void Network::tell( Index to, const RouteKey & key, std::optional< uint32_t > value ) {
  if ( to == key.node || !members_[ to ].node ) {
    return;
  }
  auto & last = lastMessage_[ { key.node, to } ];
  const auto number = ( uint64_t( key.kind ) << 32 ) ^ ( key.segment << 16 ) ^ key.vlanId.value();
  last = std::max( last, Clock::now() + routeTime * drawn( key.node * 64 + to, number, key.host ) );
  messages_.emplace( last, Message{ to, key, value } );
}

void Network::originate( Index node ) {
  auto & member = members_[ node ];
  auto routes = routesOf( topology_, node, member.view );
  for ( Index to = 0; to < members_.size(); ++to ) {
    for ( const auto & [ key, value ] : member.originated ) {
      if ( !routes.contains( key ) ) {
        tell( to, key, std::nullopt );
      }
    }
    for ( const auto & [ key, value ] : routes ) {
      const auto told = member.originated.find( key );
      if ( told == member.originated.end() || told->second != value ) {
        tell( to, key, value );
      }
    }
  }
  member.originated = std::move( routes );
}

void Network::inputsAreStale( Index node ) {
  auto & member = members_[ node ];
  member.judged = false;
  if ( !member.writesAt ) {
    member.writesAt = Clock::now() + firstWriteTime * drawn( node, 1, 0 );
  }
}

// In an order that is drawn, the first last.
void Network::listWrites( Index node ) {
  auto & member = members_[ node ];
  if ( !member.judged ) {
    member.wanted = inputsOf( topology_, node, member.view, member.received );
    member.judged = true;
  }
  std::vector< std::pair< uint64_t, String > > writes;
  const auto salt = randomNumber( seed_, ++draws_ );
  const auto add = [ & ]( const String & path ) {
    if ( std::ranges::none_of( member.delayed, [ & ]( const String & prefix ) {
           return path.starts_with( prefix );
         } ) ) {
      writes.emplace_back( randomNumber( salt, hashOf( path ) ), path );
    }
  };
  for ( const auto & [ path, value ] : member.inputs ) {
    if ( !member.wanted.contains( path ) ) {
      add( path );
    }
  }
  for ( const auto & [ path, value ] : member.wanted ) {
    const auto at = member.inputs.find( path );
    if ( at == member.inputs.end() || at->second != value ) {
      add( path );
    }
  }
  std::ranges::sort( writes );
  member.toWrite.clear();
  for ( auto & [ order, path ] : writes ) {
    member.toWrite.push_back( std::move( path ) );
  }
}

void Network::writeSome( Index node ) {
  auto & member = members_[ node ];
  if ( !member.judged || member.toWrite.empty() ) {
    listWrites( node );
  }
  const auto number = 1 + randomNumber( seed_, ++draws_ ) % mostWrites;
  for ( uint64_t i = 0; i < number && !member.toWrite.empty(); ++i ) {
    write( member, member.toWrite.back() );
    member.toWrite.pop_back();
  }
  member.writesAt.reset();
  if ( !member.toWrite.empty() ) {
    member.writesAt = Clock::now() + nextWriteTime * drawn( node, 2, 0 );
  }
}

// A label's route is told of when anything on its way has changed.
void Network::write( Member & member, const String & path ) {
  const auto at = member.wanted.find( path );
  if ( at == member.wanted.end() ) {
    member.node->line( "del " + path );
    member.inputs.erase( path );
  } else {
    member.node->line( "set " + path + " " + at->second );
    member.inputs[ path ] = at->second;
  }
  if ( path.starts_with( "lfibStatus." ) ) {
    const auto label = path.substr( path.find_last_of( ":[" ) + 1 );
    member.node->line( "set lfibTrackingStatus.routeKeyBacklog[" + label );
  }
}

// --- Time

void Network::settle() {
  for ( Index node = 0; node < members_.size(); ++node ) {
    auto & member = members_[ node ];
    member.delayed.clear();
    member.hindrances.clear();
    if ( member.node ) {
      member.node->line( "del switch.fault" );
      for ( const auto & line : Node::latenessLines( "0" ) ) {
        member.node->line( line );
      }
      inputsAreStale( node );
    }
  }
  pass( settleTime );
  for ( auto & member : members_ ) {
    member.hindered = false;
  }
}

void Network::pass( double seconds ) {
  const double end = Clock::now() + seconds;
  observer_();
  for ( auto next = nextTime(); next && *next <= end; next = nextTime() ) {
    Clock::advanceTo( *next );
    step();
    observer_();
  }
  Clock::advanceTo( end );
}

std::optional< double > Network::nextTime() const {
  std::optional< double > next;
  const auto consider = [ & ]( std::optional< double > time ) {
    if ( time && ( !next || *time < *next ) ) {
      next = time;
    }
  };
  if ( !messages_.empty() ) {
    consider( messages_.begin()->first );
  }
  for ( const auto & member : members_ ) {
    if ( member.node ) {
      consider( member.writesAt );
      consider( member.node->nextDeadline() );
    }
  }
  return next;
}

void Network::step() {
  const double now = Clock::now();
  while ( !messages_.empty() && messages_.begin()->first <= now ) {
    const auto [ to, key, value ] = messages_.extract( messages_.begin() ).mapped();
    auto & received = members_[ to ].received;
    value ? void( received[ key ] = *value ) : void( received.erase( key ) );
    if ( value && forgetMoved( members_[ to ].view, key, *value ) ) {
      originate( to );
    }
    inputsAreStale( to );
  }
  for ( Index node = 0; node < members_.size(); ++node ) {
    auto & member = members_[ node ];
    if ( member.node && member.writesAt && *member.writesAt <= now ) {
      writeSome( node );
    }
    if ( member.node ) {
      member.node->catchUp();
    }
  }
}

double Network::drawn( uint64_t a, uint64_t b, uint64_t c ) const {
  const auto now = static_cast< uint64_t >( Clock::now() * 1e6 );
  const auto number = randomNumber( randomNumber( randomNumber( seed_, now ) ^ a, b ), c );
  return static_cast< double >( number >> 11 ) * 0x1p-53;
}

// --- What stands

bool Network::isUp( Index node, IntfId port ) const {
  return members_[ node ].node && !members_[ node ].downPorts.contains( port );
}

bool Network::isAttached( Index segment ) const {
  return std::ranges::any_of( topology_.segments[ segment ].links, [ & ]( const Link & link ) {
    return std::ranges::any_of( link.ports,
                                [ & ]( IntfId port ) { return isUp( link.node, port ); } );
  } );
}

std::optional< Index > Network::segmentAt( Index node, IntfId port ) const {
  const auto at = segmentAt_.find( { node, port } );
  return at == segmentAt_.end() ? std::nullopt : std::optional( at->second );
}

const String * Network::input( Index node, const String & path ) const {
  const auto at = members_[ node ].inputs.find( path );
  return at == members_[ node ].inputs.end() ? nullptr : &at->second;
}

uint64_t Network::hardwareCalls() const {
  uint64_t calls = 0;
  for ( const auto & member : members_ ) {
    calls += member.callsOfEarlier + ( member.node ? member.node->hardwareCalls() : 0 );
  }
  return calls;
}

} // namespace Fabric
