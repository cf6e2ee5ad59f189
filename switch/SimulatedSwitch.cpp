#include "switch/SimulatedSwitch.h"

#include "KezHelper/KezBaseHelper.h"
#include "Ringlog/Trace.h"
#include "switch/SwitchJournal.h"

static Ringlog::Handle traceHandle( "KezSimulatedSwitch" );

namespace Switch {

Kez::HwTunnelId HwTunnelIdPool::next() const {
  // Without a released one those in use are 1 to their number.
  return releaseds() > 0
             ? ( *released().begin() ).value
             : Kez::HwTunnelId( hwTunnelIdType(), static_cast< uint32_t >( inUses() + 1 ) );
}

Kez::HwTunnelId HwTunnelIdPool::takeFor( Tunnel::TunnelTable::TunnelId tunnelId ) {
  const auto id = next();
  if ( releaseds() > 0 ) {
    releasedDeq();
  }
  inUseIs( id, tunnelId );
  return id;
}

void HwTunnelIdPool::giveBack( Kez::HwTunnelId hwTunnelId ) {
  inUseDel( hwTunnelId );
  releasedEnq( hwTunnelId );
}

void HwTunnelIdPool::releaseGaps() {
  const auto all = inUses();
  size_t found = 0;
  for ( uint32_t number = 1; found < all; ++number ) {
    const Kez::HwTunnelId id( hwTunnelIdType(), number );
    if ( inUseHas( id ) ) {
      ++found;
    } else {
      releasedEnq( id );
    }
  }
}

bool SimulatedSwitch::refuses( Operation operation, const Vex::String & arguments,
                               const Vex::String & what ) {
  refusalCountInc( operation );
  lastRefusalIs( stringValue( operation ) + " " + arguments + ": " + what );
  TRACE( 1, "wrong call ", lastRefusal() );
  if ( strictness() == Strictness::fatal ) {
    Kez::KezBaseHelper::kezAssert( "wrong call " + lastRefusal() );
  }
  return strictness() == Strictness::refuse;
}

void SimulatedSwitch::decide( Operation operation, bool room, SwitchAnswer & answer ) {
  if ( const auto plan = fault( operation ); plan && plan->strikes() ) {
    answer.outcome = Outcome::planned;
    answer.failure = plan->answer();
  } else if ( !room ) {
    answer.outcome = Outcome::full;
    answer.failure = Failure::tableFull;
  }
}

void SimulatedSwitch::tell( Operation operation, const Vex::String & arguments,
                            SwitchAnswer & answer ) {
  SwitchCall call{ operation, arguments, std::move( answer ) };
  for ( auto * listener : listeners_ ) {
    listener->hear( call );
  }
  answer = std::move( call.answer );
}

void SimulatedSwitch::count( Operation operation, Outcome outcome ) {
  switch ( outcome ) {
  case Outcome::done:
    successCountInc( operation );
    break;
  case Outcome::planned:
    faultCountInc( operation );
    TRACE( 2, operation, " fails as planned" );
    break;
  case Outcome::full:
    fullCountInc( operation );
    TRACE( 2, operation, " finds no room" );
    break;
  case Outcome::refused:
    break;
  }
}

bool SimulatedSwitch::journalHasRoom( Table table ) const {
  return journal_->hasRoom( table );
}

size_t SimulatedSwitch::entries( Table table ) const {
  const auto inUse = [ this ]( Kez::HwTunnelIdType type ) {
    const auto pool = hwTunnelIdPool( type );
    return pool ? pool->inUses() : 0;
  };
  switch ( table ) {
  case Table::vlan:
    return vlans();
  case Table::dot1qMapping:
    return dot1qMappings();
  case Table::nonDfPort:
    return nonDfPorts();
  case Table::esiData:
    return esiDatas();
  case Table::esiPortMap:
    return esiPortMaps();
  case Table::hwTunnelIdTypeDefault:
    return inUse( Kez::hwTunnelIdTypeDefault );
  case Table::hwTunnelIdTypeSharedEsi:
    return inUse( Kez::hwTunnelIdTypeSharedEsi );
  case Table::fec:
    return fecs();
  case Table::floodSetDest:
    return floodSetDests();
  case Table::macEntry:
    return macEntrys();
  }
  VEX_ASSERT( 0 );
}

} // namespace Switch
