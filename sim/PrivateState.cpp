#include "sim/PrivateState.h"

#include "sim/Differences.h"

namespace Sim {

using Switch::PortVlanKey;
using Wire::IntfId;

namespace {

// The ports that machines have on record as programmed.
template< class Statuses > std::set< PortVlanKey > programmedOf( const Statuses & statuses ) {
  std::set< PortVlanKey > programmed;
  for ( const auto & [ key, status ] : statuses ) {
    for ( const auto port : status->programmed() ) {
      programmed.emplace( key.intfId, port, key.vlanId );
    }
  }
  return programmed;
}

template< class Range > std::set< PortVlanKey > keysOf( const Range & range ) {
  std::set< PortVlanKey > keys;
  for ( const auto & [ key, value ] : range ) {
    keys.insert( key );
  }
  return keys;
}

} // namespace

Vex::String brokenState( const System & system ) {
  using Bridging::VlanId;
  using Bridging::VlanIdOrNone;
  if ( system.lateCalls->pending() > 0 ) {
    return ""; // hardware has yet to become what is on record
  }
  Differences out;
  const Switch::SimulatedSwitch & hardware = *system.hardware;
  const auto & takeover = system.wiring.takeover;
  const bool all = !takeover || takeover->hasEnded(); // else hardware has more
  out.same( "evpnFloodingDot1qSm: programmed", keysOf( hardware.dot1qMapping() ),
            programmedOf( system.dot1qSm->dot1qStatus() ), all );
  for ( const auto & [ key, tag ] : hardware.dot1qMapping() ) {
    out.expect( !all || system.dot1qSm->intfVlanDot1q( { key.parentIntfId, key.vlanId } ) == tag,
                "evpnFloodingDot1qSm: another tag is on record" );
  }
  out.same( "evpnFloodingDot1qSm.programmedDot1q",
            pairsOf< VlanId, VlanIdOrNone >( hardware.vlan() ),
            pairsOf< VlanId, VlanIdOrNone >( system.dot1qSm->programmedDot1q() ), all );
  out.same( "kezEvpnFloodFilterSm: programmed", setOf( hardware.nonDfPort() ),
            programmedOf( system.floodFilterSm->programmedStatus() ), all );
  out.same( "evpnFloodingEsiSm: programmed", keysOf( hardware.esiData() ),
            programmedOf( system.esiSm->esiStatus() ), all );
  for ( const auto & [ key, data ] : hardware.esiData() ) {
    const auto status = system.esiSm->esiStatus( { key.parentIntfId, key.vlanId } );
    out.expect( !all || ( status && status->ids( key.memberIntfId ) ==
                                        Kez::EsiIds( data.hwTunnelId, data.localEsiLabel ) ),
                "evpnFloodingEsiSm: other ids are on record" );
  }
  std::set< std::pair< IntfId, Wire::MplsLabel > > portMaps;
  for ( const auto & [ routeKey, via ] : system.decapSm->routeEsiFilterVia() ) {
    portMaps.emplace( via.intfId, via.label );
  }
  out.same( "esiFilteringDecapSm.routeEsiFilterVia",
            pairsOf< IntfId, Wire::MplsLabel >( hardware.esiPortMap() ), portMaps, all );
  return out.text();
}

} // namespace Sim
