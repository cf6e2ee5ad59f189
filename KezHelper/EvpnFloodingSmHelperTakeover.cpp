#include "KezHelper/EvpnFloodingSmHelperTakeover.h"

namespace KezHelper {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Kez::HwProgrammingStatus;

EvpnFloodingSmHelperTakeover::EvpnFloodingSmHelperTakeover(
    const Vex::String & name, const Vex::Ptr< Takeover > & takeover,
    const Vex::Ptr< EvpnFloodingSmHelper > & chip )
    : EvpnFloodingSmHelperOver( name, chip ) {
  const auto tables = chip->inventory();
  takeOver( esiData_, takeover, SweepRank::port, tables.esiData );
  takeOver( nonDfPort_, takeover, SweepRank::port, tables.nonDfPort );
  takeOver( dot1qMapping_, takeover, SweepRank::port, tables.dot1qMapping );
  takeOver( vlan_, takeover, SweepRank::vlan, tables.vlan );
  watchChip();
}

template< class Key, class Data >
void EvpnFloodingSmHelperTakeover::takeOver( Table< Key, Data > & table,
                                             const Vex::Ptr< Takeover > & takeover, SweepRank rank,
                                             const HwTable< Key, Data > * inventory ) {
  if ( inventory ) {
    table.emplace( takeover, rank, *inventory, [ this ]( const Key & key, const Data & data ) {
      removeEntry( *chip(), key, data );
    } );
  }
}

template< class Key, class Data >
HwProgrammingStatus EvpnFloodingSmHelperTakeover::createIn( Table< Key, Data > & table,
                                                            const Key & key, const Data & data,
                                                            bool writesOver ) {
  const auto create = [ & ] { return createEntry( *chip(), key, data ); };
  return table ? table->create( key, data, HwProgrammingStatus::programmed, writesOver, create )
               : create();
}

template< class Key, class Data >
void EvpnFloodingSmHelperTakeover::removeFrom( Table< Key, Data > & table, const Key & key,
                                               const Data & data ) {
  if ( !table || table->removes( key ) ) {
    removeEntry( *chip(), key, data );
  }
}

HwProgrammingStatus EvpnFloodingSmHelperTakeover::create( VlanId key, VlanIdOrNone data ) {
  return createIn( vlan_, key, data, false );
}

HwProgrammingStatus EvpnFloodingSmHelperTakeover::create( const PortVlanKey & key,
                                                          VlanIdOrNone data ) {
  return createIn( dot1qMapping_, key, data, false );
}

HwProgrammingStatus EvpnFloodingSmHelperTakeover::create( const PortVlanKey & key,
                                                          Vex::NoValue data ) {
  return createIn( nonDfPort_, key, data, false );
}

HwProgrammingStatus EvpnFloodingSmHelperTakeover::create( const PortVlanKey & key,
                                                          const EsiData & data ) {
  return createIn( esiData_, key, data, updateSupportedOnCreateEsiData() );
}

void EvpnFloodingSmHelperTakeover::remove( VlanId key, VlanIdOrNone data ) {
  removeFrom( vlan_, key, data );
}

void EvpnFloodingSmHelperTakeover::remove( const PortVlanKey & key, VlanIdOrNone data ) {
  removeFrom( dot1qMapping_, key, data );
}

void EvpnFloodingSmHelperTakeover::remove( const PortVlanKey & key, Vex::NoValue data ) {
  removeFrom( nonDfPort_, key, data );
}

void EvpnFloodingSmHelperTakeover::remove( const PortVlanKey & key, const EsiData & data ) {
  removeFrom( esiData_, key, data );
}

} // namespace KezHelper
