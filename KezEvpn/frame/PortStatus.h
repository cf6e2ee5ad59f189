// What hardware has of entries that are programmed port by port: for each key, on which ports of
// its interface the entry is programmed, and which ports wait to be tried again.
//
// A machine owns one PortStatus, over the PortStatuses that it shows and its Parking. A
// status is there from the first try of a key until the key is unprogrammed. `programmed` holds
// exactly the ports that hardware has; a key is parked exactly while its status has unprogrammed
// ports. A port is in both only when it bears a force mark, by which it is to be programmed again.
//
// `Status` shows the sets of ports `programmed`, `unprogrammed` and `forceReprogram` of a key. What
// an entry consists of is the machine's own: it hands in the calls that create and remove one, and
// what is kept of a port beside, if anything, as a `Status::Port`.
#pragma once

#include "KezEvpn/KezEvpn.h"
#include "KezEvpn/frame/Parking.h"
#include "KezEvpn/frame/PortStatuses.h"
#include "Vex/Said.h"

#include <optional>
#include <vector>

namespace Kez {

// What becomes of a programmed port that bears a force mark: it is removed and programmed anew, or
// programmed over what hardware has.
enum class ForceMark { removeFirst, programOver };

// What is traced of ports, at level 5, nothing where a text is empty; and by which operation of the
// helper they are programmed, for whom an answer of it ends.
struct PortTexts {
  std::string_view noLagConfiguration = {};
  std::string_view noLagMembers = {};
  std::string_view alreadyProgrammed = {};
  std::string_view programmed = {};
  std::string_view failed = {};
  std::string_view invalidHwId = {};
  std::string_view operation = {};
};

// What a LAG lacks to have ports.
enum class LagLack { nothing, configuration, members };
LagLack lagLack( const EvpnLagMemberInfo & lags, Wire::IntfId intfId );
// Says it.
void explainMissingPorts( const EvpnLagMemberInfo & lags, Wire::IntfId intfId, Explanation & out );

// The interface itself, or the ports of a LAG.
KezPortList portsNow( const EvpnLagMemberInfo & lags, Wire::IntfId intfId );

// Of the ports of several keys, on how many hardware has what is asked for, and on which not.
struct PortTally {
  static constexpr size_t mostNamed = 8;

  size_t asked = 0;
  size_t programmed = 0;
  bool anyRefused = false;
  std::vector< Vex::String > missing; // the first few of the others
};
// Says it behind `what`: "mapped on 3 of 4 ports", and on which not.
void explainPorts( std::string_view what, const PortTally & tally, Explanation & out );

template< class Status > class PortStatus {
public:
  using Key = typename Status::FwkKey;
  using Port = typename Status::Port;

  PortStatus( StateMachine & owner, PortStatuses< Status > & statuses, Parking< Key > & parking,
              const Vex::Ptr< const EvpnLagMemberInfo > & lags, const PortTexts & texts )
      : owner_( owner ), statuses_( statuses ), parking_( parking ), lags_( lags ),
        texts_( texts ) {}

  // The ports to program; nothing for a LAG that has none.
  std::optional< KezPortList > portsOf( Wire::IntfId intfId ) const {
    switch ( lagLack( *lags_, intfId ) ) {
    case LagLack::configuration:
      say( texts_.noLagConfiguration );
      return std::nullopt;
    case LagLack::members:
      say( texts_.noLagMembers );
      return std::nullopt;
    case LagLack::nothing:
      break;
    }
    return portsNow( *lags_, intfId );
  }

  // What comes before programming a key's ports: it is parked no more, and `unprogram( port, isPort
  // )` runs for every programmed port that is not in `ports` or, under ForceMark::removeFirst,
  // bears a mark. True if there was one.
  template< class Unprogram >
  bool dropStalePorts( const Key & key, const KezPortList & ports, ForceMark forceMark,
                       Unprogram && unprogram ) {
    parking_.unpark( key );
    statuses_.unprogrammedDelAll( key );
    bool dropped = false;
    forEachProgrammed( key, [ & ]( Wire::IntfId port ) {
      const bool isPort = ports.portHas( port );
      if ( !isPort ||
           ( forceMark == ForceMark::removeFirst && statuses_.forceReprogramHas( key, port ) ) ) {
        unprogram( port, isPort );
        dropped = true;
      }
    } );
    return dropped;
  }

  // Runs `program( port )` for every port.
  template< class Program >
  void programPorts( const Key & key, const KezPortList & ports, Program && program ) {
    for ( const auto port : ports ) {
      program( port );
    }
    parking_.settle( key );
  }

  // Calls `create()` unless the port is programmed and unmarked, and records its answer: a port
  // that was refused is parked; an invalid hardware id is fatal.
  template< class Create >
  void programPort( const Key & key, const Port & port, Create && create ) {
    const auto intfId = PortLists< Port >::intfIdOf( port );
    if ( statuses_.makeOrHas( key, intfId ) && !statuses_.forceReprogramHas( key, intfId ) ) {
      say( texts_.alreadyProgrammed );
      return;
    }
    statuses_.unprogrammedDel( key, intfId );
    if ( statuses_.unprogrammeds( key ) == 0 ) {
      parking_.unpark( key );
    }
    answerIs( key, port, create() );
  }

  // Runs `unprogram( port )` for every programmed port; then the key has no status and is parked no
  // more. True if there was a port.
  template< class Unprogram > bool unprogramPorts( const Key & key, Unprogram && unprogram ) {
    parking_.release( key );
    const bool any = statuses_.programmeds( key ) > 0;
    forEachProgrammed( key, unprogram );
    statuses_.del( key );
    return any;
  }

  // Calls `remove()` if the port is programmed, and forgets the port. True if it was.
  template< class Remove >
  bool unprogramPort( const Key & key, Wire::IntfId port, Remove && remove ) {
    const bool programmed = statuses_.programmedHas( key, port );
    if ( programmed ) {
      dropPort( key, port, std::forward< Remove >( remove ) );
    }
    statuses_.unprogrammedDel( key, port );
    return programmed;
  }

  // What is programmed stays on record, to be programmed again or, if the key ends first, deleted.
  void forceReprogram( const Key & key ) {
    forEachProgrammed( key, [ & ]( Wire::IntfId port ) { forceReprogram( key, port ); } );
  }
  void forceReprogram( const Key & key, Wire::IntfId port ) {
    statuses_.forceReprogramIs( key, port );
  }

  // Calls `remove()` for a programmed port. A try of it that is due stays due.
  template< class Remove > void dropPort( const Key & key, Wire::IntfId port, Remove && remove ) {
    remove();
    statuses_.forceReprogramDel( key, port );
    statuses_.programmedDel( key, port );
  }

  // Hardware does not have what is on record: a port is on record no more, and is to be tried again
  // as if it had been refused.
  void lost( const Key & key, Wire::IntfId port ) {
    if ( statuses_.has( key ) ) {
      dropPort( key, port, [] {} );
      statuses_.unprogrammedIs( key, port );
      parking_.lose( key );
    }
  }

  // Nothing of the key is to be tried again until an input changes.
  void waitForInput( const Key & key ) {
    parking_.release( key );
    statuses_.unprogrammedDelAll( key );
  }

  // Says on which ports the key is in hardware, and on which it is not.
  void explain( const Key & key, Explanation & out ) const;

  // Counts the ports of a key that is asked for; those that are missing are named with their VLAN
  // if they are not all of one.
  void count( const Key & key, bool namesVlan, PortTally & tally ) const;

  // `isEntry( key )`: whether a parked key is one that is programmed port by port.
  template< class IsEntry > void check( Findings & out, IsEntry && isEntry ) const;
  void check( Findings & out ) const {
    check( out, []( const Key & ) { return true; } );
  }

private:
  // Runs `what( port )` for those programmed ports that are still there when it is their turn.
  template< class What > void forEachProgrammed( const Key & key, What && what ) const {
    for ( const Port & port : statuses_.programmed( key ) ) {
      if ( const auto intfId = PortLists< Port >::intfIdOf( port );
           statuses_.programmedHas( key, intfId ) ) {
        what( intfId );
      }
    }
  }
  void answerIs( const Key & key, const Port & port, HwProgrammingStatus rc );
  void say( std::string_view text ) const {
    if ( !text.empty() ) {
      const auto & traceHandle = owner_.handle();
      TRACE( 5, text );
    }
  }

  StateMachine & owner_;
  PortStatuses< Status > & statuses_;
  Parking< Key > & parking_;
  const Vex::Ptr< const EvpnLagMemberInfo > & lags_;
  const PortTexts & texts_;
};

template< class Status >
void PortStatus< Status >::answerIs( const Key & key, const Port & port, HwProgrammingStatus rc ) {
  const auto intfId = PortLists< Port >::intfIdOf( port );
  switch ( rc ) {
  case HwProgrammingStatus::programmed:
    say( texts_.programmed );
    statuses_.programmedIs( key, port );
    statuses_.forceReprogramDel( key, intfId );
    break;
  case HwProgrammingStatus::notProgrammed:
    say( texts_.failed );
    parking_.park( key );
    statuses_.unprogrammedIs( key, intfId );
    break;
  case HwProgrammingStatus::invalidHwId:
    say( texts_.invalidHwId );
    VEX_ASSERT_IN_SAYING( owner_.handle().source(), 0, texts_.operation, " ", key, " on ", intfId,
                          " -> ", rc );
    break;
  }
}

template< class Status >
void PortStatus< Status >::explain( const Key & key, Explanation & out ) const {
  const auto status = statuses_.get( key );
  if ( !status ) {
    return;
  }
  const auto ports = portsNow( *lags_, key.intfId );
  std::vector< Wire::IntfId > asWanted;
  std::vector< Wire::IntfId > anew;
  std::vector< Wire::IntfId > stale;
  for ( const auto port : status->programmed() ) {
    auto & which = !ports.portHas( port )              ? stale
                   : status->forceReprogramHas( port ) ? anew
                                                       : asWanted;
    which.push_back( port );
  }
  const auto say = [ & ]( Standing standing, std::string_view what, const auto & some ) {
    if ( !some.empty() ) {
      out.add( standing, what, Members{ some } );
    }
  };
  say( Standing::settled, "programmed on ", asWanted );
  say( Standing::waiting, "to be programmed anew, and as before till then, on ", anew );
  say( Standing::waiting, "still programmed, though it is no port of it any more, on ", stale );
  if ( status->unprogrammeds() > 0 ) {
    out.awaits( anew.empty() ? "not programmed on " : "not programmed anew on ",
                Members{ status->unprogrammed() } );
  }
}

template< class Status >
void PortStatus< Status >::count( const Key & key, bool namesVlan, PortTally & tally ) const {
  const auto refusal = parking_.refusal( key );
  for ( const auto port : portsNow( *lags_, key.intfId ) ) {
    ++tally.asked;
    const bool programmed = statuses_.programmedHas( key, port );
    if ( programmed && !statuses_.forceReprogramHas( key, port ) ) {
      ++tally.programmed;
      continue;
    }
    const bool refused = refusal.tries > 0 && statuses_.unprogrammedHas( key, port );
    tally.anyRefused |= refused;
    if ( tally.missing.size() == PortTally::mostNamed ) {
      continue;
    }
    Vex::TextBuffer text;
    appendText( text, port );
    if ( port != key.intfId ) {
      text.append( " of " );
      appendText( text, key.intfId );
    }
    if ( namesVlan ) {
      text.append( " in VLAN " );
      appendText( text, key.vlanId );
    }
    text.append( programmed ? ", as before till it is programmed anew" : "" );
    if ( refused ) {
      text.append( ", refused " );
      appendText( text, Times{ refusal.tries } );
      appendText( text, Because{ refusal.why } );
    }
    tally.missing.push_back( text.str() );
  }
}

template< class Status >
template< class IsEntry >
void PortStatus< Status >::check( Findings & out, IsEntry && isEntry ) const {
  for ( const auto & key : parking_.range() ) {
    out.expect( statuses_.has( key ) || !isEntry( key ), key, " is parked and has no status" );
    out.expect( statuses_.unprogrammeds( key ) > 0 || !statuses_.has( key ), key,
                " is parked and has no port that waits" );
  }
  for ( const auto & [ key, status ] : statuses_.uncommon() ) {
    out.expect( statuses_.has( key ), key, " has ports that wait and no status" );
    out.expect( parking_.has( key ) || status->unprogrammeds() == 0, key,
                " has ports that wait and is not parked" );
    for ( const auto port : status->unprogrammed() ) {
      out.expect( !status->programmedHas( port ) || status->forceReprogramHas( port ), key,
                  " waits for port ", port, ", which is programmed" );
    }
    for ( const auto port : status->forceReprogram() ) {
      out.expect( status->programmedHas( port ), key, " bears a mark on port ", port,
                  ", which is not programmed" );
    }
  }
}

} // namespace Kez
