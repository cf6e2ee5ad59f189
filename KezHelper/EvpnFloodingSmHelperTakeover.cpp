#include "KezHelper/EvpnFloodingSmHelperTakeover.h"

namespace KezHelper {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Kez::HwProgrammingStatus;
using Tunnel::TunnelTable::TunnelId;
using Wire::IntfId;

namespace {

// Of a table that is taken over; another one's calls go to the chip.
template< class Part, class Key, class Data, class Create >
HwProgrammingStatus createIn( std::optional< Part > & part, const Key & key, const Data & data,
                              bool writesOver, Create && create ) {
  return part ? part->create( key, data, HwProgrammingStatus::programmed, writesOver, create )
              : create();
}

template< class Part, class Key >
bool removesFrom( std::optional< Part > & part, const Key & key ) {
  return !part || part->removes( key );
}

} // namespace

EvpnFloodingSmHelperTakeover::EvpnFloodingSmHelperTakeover(
    const Vex::String & name, const Vex::Ptr< Takeover > & takeover,
    const Vex::Ptr< EvpnFloodingSmHelper > & chip )
    : EvpnFloodingSmHelper( name ), chip_( chip ), chipReactor_( *this ) {
  const auto tables = chip->inventory();
  if ( tables.esiData ) {
    esiData_.emplace( takeover, SweepRank::port, *tables.esiData,
                      [ this ]( const PortVlanKey & key, const EsiData & ) {
                        chip_->deleteEsiData( key.parentIntfId, key.memberIntfId, key.vlanId,
                                              TunnelId(), Kez::HwTunnelId() );
                      } );
  }
  if ( tables.nonDfPort ) {
    nonDfPort_.emplace( takeover, SweepRank::port, *tables.nonDfPort,
                        [ this ]( const PortVlanKey & key, Vex::NoValue ) {
                          chip_->deleteNonDfPort( key.parentIntfId, key.memberIntfId, key.vlanId );
                        } );
  }
  if ( tables.dot1qMapping ) {
    dot1qMapping_.emplace( takeover, SweepRank::port, *tables.dot1qMapping,
                           [ this ]( const PortVlanKey & key, VlanIdOrNone dot1q ) {
                             chip_->deleteVlanToDot1qMapping( key.parentIntfId, key.memberIntfId,
                                                              key.vlanId, dot1q );
                           } );
  }
  if ( tables.vlan ) {
    vlan_.emplace(
        takeover, SweepRank::vlan, *tables.vlan,
        [ this ]( VlanId vlanId, VlanIdOrNone dot1q ) { chip_->deleteVlan( vlanId, dot1q ); } );
  }
  chipReactor_.notifierIs( chip );
}

void EvpnFloodingSmHelperTakeover::VexChip::onAttribute( Vex::AttrId, const void * ) {
  handleNotifier();
}

void EvpnFloodingSmHelperTakeover::VexChip::handleNotifier() {
  sm()->updateSupportedOnCreateEsiDataIs( notifier()->updateSupportedOnCreateEsiData() );
  sm()->programCpuIntfIs( notifier()->programCpuIntf() );
}

HwProgrammingStatus EvpnFloodingSmHelperTakeover::createVlan( VlanId vlanId, VlanIdOrNone dot1q ) {
  return createIn( vlan_, vlanId, dot1q, false,
                   [ & ] { return chip_->createVlan( vlanId, dot1q ); } );
}

void EvpnFloodingSmHelperTakeover::deleteVlan( VlanId vlanId, VlanIdOrNone dot1q ) {
  if ( removesFrom( vlan_, vlanId ) ) {
    chip_->deleteVlan( vlanId, dot1q );
  }
}

HwProgrammingStatus EvpnFloodingSmHelperTakeover::createNonDfPort( IntfId parentIntfId,
                                                                   IntfId intfId, VlanId vlanId ) {
  return createIn( nonDfPort_, PortVlanKey( parentIntfId, intfId, vlanId ), Vex::NoValue(), false,
                   [ & ] { return chip_->createNonDfPort( parentIntfId, intfId, vlanId ); } );
}

void EvpnFloodingSmHelperTakeover::deleteNonDfPort( IntfId parentIntfId, IntfId intfId,
                                                    VlanId vlanId ) {
  if ( removesFrom( nonDfPort_, PortVlanKey( parentIntfId, intfId, vlanId ) ) ) {
    chip_->deleteNonDfPort( parentIntfId, intfId, vlanId );
  }
}

HwProgrammingStatus EvpnFloodingSmHelperTakeover::createVlanToDot1qMapping( IntfId parentIntfId,
                                                                            IntfId memberIntfId,
                                                                            VlanId vlanId,
                                                                            VlanIdOrNone dot1q ) {
  return createIn(
      dot1qMapping_, PortVlanKey( parentIntfId, memberIntfId, vlanId ), dot1q, false, [ & ] {
        return chip_->createVlanToDot1qMapping( parentIntfId, memberIntfId, vlanId, dot1q );
      } );
}

void EvpnFloodingSmHelperTakeover::deleteVlanToDot1qMapping( IntfId parentIntfId,
                                                             IntfId memberIntfId, VlanId vlanId,
                                                             VlanIdOrNone dot1q ) {
  if ( removesFrom( dot1qMapping_, PortVlanKey( parentIntfId, memberIntfId, vlanId ) ) ) {
    chip_->deleteVlanToDot1qMapping( parentIntfId, memberIntfId, vlanId, dot1q );
  }
}

HwProgrammingStatus EvpnFloodingSmHelperTakeover::createEsiData(
    IntfId parentIntfId, IntfId memberIntfId, VlanId vlanId, const TunnelId & tid,
    const Kez::HwTunnelId & hwTid, Wire::MplsLabel dfEsiLabel, Wire::MplsLabel localEsiLabel ) {
  return createIn( esiData_, PortVlanKey( parentIntfId, memberIntfId, vlanId ),
                   EsiData( tid, hwTid, dfEsiLabel, localEsiLabel ),
                   updateSupportedOnCreateEsiData(), [ & ] {
                     return chip_->createEsiData( parentIntfId, memberIntfId, vlanId, tid, hwTid,
                                                  dfEsiLabel, localEsiLabel );
                   } );
}

void EvpnFloodingSmHelperTakeover::deleteEsiData( IntfId parentIntfId, IntfId memberIntfId,
                                                  VlanId vlanId, const TunnelId & tid,
                                                  const Kez::HwTunnelId & hwTid ) {
  if ( removesFrom( esiData_, PortVlanKey( parentIntfId, memberIntfId, vlanId ) ) ) {
    chip_->deleteEsiData( parentIntfId, memberIntfId, vlanId, tid, hwTid );
  }
}

} // namespace KezHelper
