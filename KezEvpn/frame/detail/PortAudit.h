// What machines that program port by port tell an audit.
#pragma once

#include "KezEvpn/frame/PortProgrammingSm.h"
#include "KezHelper/Audit.h"
#include "KezHelper/TableView.h"

namespace Kez {

inline IntfVlanKey pairOf( const KezHelper::PortVlanKey & key ) {
  return { key.parentIntfId, key.vlanId };
}

// What is on record: `find( key )`, over the programmed ports of `statuses`.
template< class Data, class Status, class Find >
auto portsOnRecord( const PortStatuses< Status > & statuses, Find find ) {
  using Lists = PortLists< typename Status::Port >;
  const auto keysOf = [ &statuses ]( const auto & member ) {
    const IntfVlanKey pair = member.key();
    const auto ports = statuses.programmed( pair );
    std::vector< KezHelper::PortVlanKey > keys;
    keys.reserve( ports.size() );
    for ( const auto & port : ports ) {
      keys.push_back( { pair.intfId, Lists::intfIdOf( port ), pair.vlanId } );
    }
    return keys;
  };
  return KezHelper::tableView< KezHelper::PortVlanKey, Data >(
      [ &statuses ] { return statuses.members().range(); }, keysOf, find );
}

// What the inputs ask for: `find( pair )`, over the ports of the pairs that the machine knows.
template< class Data, class Find > auto portsAskedFor( const PortProgrammingSm & sm, Find find ) {
  const auto keysOf = [ &sm ]( const auto & member ) {
    const auto [ intfId, vlans ] = *member;
    std::vector< KezHelper::PortVlanKey > keys;
    for ( const auto port : portsNow( *sm.evpnLagMemberInfo(), intfId ) ) {
      for ( const auto vlanId : vlans->vlanId() ) {
        keys.push_back( { intfId, port, vlanId } );
      }
    }
    return keys;
  };
  const auto isPort = [ &sm ]( const KezHelper::PortVlanKey & key ) {
    return portsNow( *sm.evpnLagMemberInfo(), key.parentIntfId ).portHas( key.memberIntfId );
  };
  return KezHelper::tableView< KezHelper::PortVlanKey, Data >(
      [ &sm ] { return sm.intfVlanSet(); }, keysOf,
      [ isPort, find ]( const KezHelper::PortVlanKey & key ) {
        return isPort( key ) ? find( pairOf( key ) ) : std::optional< Data >();
      } );
}

} // namespace Kez
