// The simulated switch: the tables that a forwarding chip keeps, filled by the hardware helpers
// that stand on it (SwitchFloodingHelper), and the decision whether a call of theirs is carried
// out:
//
//   1. A wrong call, one that real hardware refuses (deleting what is not there, adding what is),
//      is its caller's fault. `strictness` says what becomes of it; its text is kept.
//   2. A right one fails if the operation's fault plan says so,
//   3. or if it adds an entry to a full table.
//
// Each operation has its number of calls, and of those that were carried out, failed as planned,
// found no room, or were wrong. A wrong call that is carried out all the same is in two of these.
// What paths write, tables included, is no call. Of each call it is known how long its answer took.
#pragma once

#include "KezEvpn/FloodSets.h"
#include "KezHelper/EvpnFloodingSmHelper.h"
#include "KezHelper/HwFecs.h"
#include "Vex/DurationHistogram.h"
#include "switch/SwitchCall.h"

#include <vector>

namespace Switch {

// A wrong call is carried out as far as it can be, left undone, or ends the process.
VEX_ENUM( Strictness, "Switch::Strictness", count, refuse, fatal )

using KezHelper::EsiData;
using KezHelper::HwFec;
using KezHelper::PortVlanKey;

// The hardware tunnel ids of one type: 1, 2, and so on. The one that was given back first is the
// first to be given out again, before a fresh one.
class HwTunnelIdPool : public Vex::Entity {
  VEX_ENTITY( HwTunnelIdPool, "Switch::HwTunnelIdPool" )
  VEX_KEY( HwTunnelIdPool, hwTunnelIdType, Kez::HwTunnelIdType )
  VEX_MAP( 1, inUse, Kez::HwTunnelId, Tunnel::TunnelTable::TunnelId ) // for which it was got
  VEX_QUEUE( 2, released, Kez::HwTunnelId )
  VEX_ATTRIBUTES( inUse, released )

public:
  Kez::HwTunnelId next() const;
  Kez::HwTunnelId takeFor( Tunnel::TunnelTable::TunnelId tunnelId );
  void giveBack( Kez::HwTunnelId hwTunnelId );
  // Once those in use are there, in no order: gives out what lies between them.
  void releaseGaps();
};

// What is wrong with a call, and what it answers when it is refused for that.
struct WrongCall {
  Vex::String what;
  Failure answer = Failure::notProgrammed;
};
inline std::optional< WrongCall > wrongIf( bool wrong, const char * what ) {
  return wrong ? std::optional( WrongCall{ what } ) : std::nullopt;
}

class SwitchJournal;

class SimulatedSwitch : public Vex::Entity {
  VEX_ENTITY( SimulatedSwitch, "Switch::SimulatedSwitch" )
  VEX_MAP( 1, vlan, Bridging::VlanId, Bridging::VlanIdOrNone )    // to its dot1q tag
  VEX_MAP( 2, dot1qMapping, PortVlanKey, Bridging::VlanIdOrNone ) // likewise
  VEX_SET( 3, nonDfPort, PortVlanKey )
  VEX_MAP( 4, esiData, PortVlanKey, EsiData )
  VEX_MAP( 5, esiPortMap, Wire::IntfId, Wire::MplsLabel ) // to the label that is not flooded to it
  VEX_ENTITIES( 6, hwTunnelIdPool, HwTunnelIdPool )
  VEX_MAP( 7, fec, uint64_t, HwFec ) // by its hardware id
  VEX_SET( 8, floodSetDest, Kez::FloodSetMplsDestConfig )
  VEX_MAP( 10, macEntry, Bridging::MacVlanPair, uint64_t ) // to the hardware id of a FEC
  VEX_COUNTER( 9, hwFecIdUse, uint64_t ) // how many of both use a FEC, by its hardware id

  VEX_MAP( 40, capacity, Table, uint32_t ) // entries; a table that is not named has room for all
  VEX_ENTITIES( 41, fault, FaultPlan )
  VEX_ATTRIBUTE( 42, strictness, Strictness, Strictness::refuse )

  VEX_COUNTER( 50, callCount, Operation )
  VEX_COUNTER( 51, successCount, Operation )
  VEX_COUNTER( 52, faultCount, FallibleOperation )
  VEX_COUNTER( 53, fullCount, FallibleOperation )
  VEX_COUNTER( 54, refusalCount, Operation )
  VEX_ATTRIBUTE( 55, lastRefusal, Vex::String )
  VEX_ATTRIBUTES( vlan, dot1qMapping, nonDfPort, esiData, esiPortMap, hwTunnelIdPool, fec,
                  floodSetDest, macEntry, hwFecIdUse, capacity, fault, strictness, callCount,
                  successCount, faultCount, fullCount, refusalCount, lastRefusal )

public:
  // Whether one more entry fits.
  bool hasRoom( Table table ) const {
    return ( !capacityHas( table ) || entries( table ) < capacity( table ) ) &&
           ( !journal_ || journalHasRoom( table ) );
  }
  // The same for an operation's entry, which needs no room if it is there.
  bool hasRoom( Operation operation, bool there ) const {
    return there || hasRoom( typeOf( operation ).table );
  }

  size_t entries( Table table ) const;

  // How long answers took, from when they were asked for until they were given.
  const Vex::DurationHistogram & latency( Operation operation ) const {
    return latencies_[ static_cast< size_t >( operation ) ];
  }
  // Of the next call, which is taken to be answered at once otherwise.
  void latencyIs( double seconds ) { latency_ = seconds; }

  // What was answered to the latest creation that was not carried out: "no room", or the failure
  // that was planned, or what was wrong with it.
  const Vex::String & lastFailure() const { return lastFailure_; }

  // Of those that hear a call the later ones hear the answers of the earlier ones.
  void listenerIs( SwitchListener & listener ) { listeners_.push_back( &listener ); }
  void listenerDel( SwitchListener & listener ) { std::erase( listeners_, &listener ); }
  // Those of a switch that this one takes the place of.
  void listenersOf( const SimulatedSwitch & other ) { listeners_ = other.listeners_; }

  // What keeps the contents beyond the switch's life, null for nothing. It says so itself.
  SwitchJournal * journal() const { return journal_; }
  void journalIs( SwitchJournal * journal ) { journal_ = journal; }

  // Counts a call that adds or changes an entry; `room` is false when it adds one to a full table.
  // The failure to answer, or none when the call is to be carried out. `arguments()` and `given()`
  // are the texts of what the call says and of what it is given when it is carried out.
  template< class Arguments, class Given >
  std::optional< Failure > creation( Operation operation, bool room,
                                     const std::optional< WrongCall > & wrong,
                                     const Arguments & arguments, const Given & given ) {
    SwitchAnswer answer = begin( operation, wrong, arguments );
    if ( answer.outcome != Outcome::refused ) {
      decide( operation, room, answer );
    }
    if ( !listeners_.empty() ) [[unlikely]] {
      answer.given = given();
      tell( operation, arguments(), answer );
    }
    count( operation, answer.outcome );
    if ( answer.outcome == Outcome::done ) [[likely]] {
      return std::nullopt;
    }
    lastFailure_ = Vex::text( answer );
    return typeOf( operation ).answerFor( answer.failure );
  }
  template< class Arguments >
  std::optional< Failure > creation( Operation operation, bool room,
                                     const std::optional< WrongCall > & wrong,
                                     const Arguments & arguments ) {
    return creation( operation, room, wrong, arguments, [] { return Vex::String(); } );
  }

  // The same for a call that deletes an entry: whether it is to be carried out.
  template< class Arguments >
  bool deletion( Operation operation, const std::optional< WrongCall > & wrong,
                 const Arguments & arguments ) {
    SwitchAnswer answer = begin( operation, wrong, arguments );
    if ( !listeners_.empty() ) [[unlikely]] {
      tell( operation, arguments(), answer );
    }
    count( operation, answer.outcome );
    return answer.outcome == Outcome::done;
  }

private:
  template< class Arguments >
  SwitchAnswer begin( Operation operation, const std::optional< WrongCall > & wrong,
                      const Arguments & arguments ) {
    callCountInc( operation );
    latencies_[ static_cast< size_t >( operation ) ].add( std::exchange( latency_, 0 ) );
    SwitchAnswer answer;
    if ( wrong ) [[unlikely]] {
      answer.wrong = wrong->what;
      answer.failure = wrong->answer;
      if ( refuses( operation, arguments(), wrong->what ) ) {
        answer.outcome = Outcome::refused;
      }
    }
    return answer;
  }
  // Counts a wrong call. Whether it is to be left undone.
  bool refuses( Operation operation, const Vex::String & arguments, const Vex::String & what );
  // Of a call that is not refused.
  void decide( Operation operation, bool room, SwitchAnswer & answer );
  void tell( Operation operation, const Vex::String & arguments, SwitchAnswer & answer );
  void count( Operation operation, Outcome outcome );
  bool journalHasRoom( Table table ) const;

  std::vector< SwitchListener * > listeners_;
  Vex::String lastFailure_;
  SwitchJournal * journal_ = nullptr;
  std::array< Vex::DurationHistogram, operationTypes.size() > latencies_;
  double latency_ = 0;
};

} // namespace Switch
