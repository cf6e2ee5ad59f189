#include "agent/SimulatedSwitch.h"

#include "KezHelper/KezBaseHelper.h"
#include "Ringlog/Trace.h"

#include <algorithm>

static Ringlog::Handle traceHandle( "KezSimulatedSwitch" );

namespace Agent {

namespace {

constexpr auto fallible = vexNames( FallibleOperation() );
static_assert( std::equal( fallible.begin(), fallible.end(), vexNames( Operation() ).begin() ),
               "the fallible operations are the first of all, in their order" );

} // namespace

Kez::HwTunnelId HwTunnelIdPool::take() {
  // Without a released one those in use are 1 to their number.
  const auto id = releaseds() > 0 ? releasedDeq()
                                  : Kez::HwTunnelId( hwTunnelIdType(),
                                                     static_cast< uint32_t >( inUses() + 1 ) );
  inUseIs( id );
  return id;
}

void HwTunnelIdPool::giveBack( Kez::HwTunnelId hwTunnelId ) {
  inUseDel( hwTunnelId );
  releasedEnq( hwTunnelId );
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

std::optional< Failure > SimulatedSwitch::failureOf( FallibleOperation operation, bool room ) {
  if ( const auto plan = fault( operation ); plan && plan->strikes() ) {
    faultCountInc( operation );
    TRACE( 2, operation, " fails as planned" );
    return plan->answer();
  }
  if ( !room ) {
    fullCountInc( operation );
    TRACE( 2, operation, " finds no room" );
    return Failure::tableFull;
  }
  return std::nullopt;
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
  }
  VEX_ASSERT( 0 );
}

} // namespace Agent
