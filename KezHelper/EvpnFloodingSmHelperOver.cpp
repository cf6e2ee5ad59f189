#include "KezHelper/EvpnFloodingSmHelperOver.h"

namespace KezHelper {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Kez::HwProgrammingStatus;
using Tunnel::TunnelTable::TunnelId;
using Wire::IntfId;

void EvpnFloodingSmHelperOver::VexChip::onAttribute( Vex::AttrId, const void * ) {
  handleNotifier();
}

void EvpnFloodingSmHelperOver::VexChip::handleNotifier() {
  sm()->updateSupportedOnCreateEsiDataIs( notifier()->updateSupportedOnCreateEsiData() );
  sm()->programCpuIntfIs( notifier()->programCpuIntf() );
}

HwProgrammingStatus EvpnFloodingSmHelperOver::createVlan( VlanId vlanId, VlanIdOrNone dot1q ) {
  return create( vlanId, dot1q );
}

void EvpnFloodingSmHelperOver::deleteVlan( VlanId vlanId, VlanIdOrNone dot1q ) {
  remove( vlanId, dot1q );
}

HwProgrammingStatus EvpnFloodingSmHelperOver::createNonDfPort( IntfId parentIntfId, IntfId intfId,
                                                               VlanId vlanId ) {
  return create( PortVlanKey( parentIntfId, intfId, vlanId ), Vex::NoValue() );
}

void EvpnFloodingSmHelperOver::deleteNonDfPort( IntfId parentIntfId, IntfId intfId,
                                                VlanId vlanId ) {
  remove( PortVlanKey( parentIntfId, intfId, vlanId ), Vex::NoValue() );
}

HwProgrammingStatus EvpnFloodingSmHelperOver::createVlanToDot1qMapping( IntfId parentIntfId,
                                                                        IntfId memberIntfId,
                                                                        VlanId vlanId,
                                                                        VlanIdOrNone dot1q ) {
  return create( PortVlanKey( parentIntfId, memberIntfId, vlanId ), dot1q );
}

void EvpnFloodingSmHelperOver::deleteVlanToDot1qMapping( IntfId parentIntfId, IntfId memberIntfId,
                                                         VlanId vlanId, VlanIdOrNone dot1q ) {
  remove( PortVlanKey( parentIntfId, memberIntfId, vlanId ), dot1q );
}

HwProgrammingStatus EvpnFloodingSmHelperOver::createEsiData(
    IntfId parentIntfId, IntfId memberIntfId, VlanId vlanId, const TunnelId & tid,
    const Kez::HwTunnelId & hwTid, Wire::MplsLabel dfEsiLabel, Wire::MplsLabel localEsiLabel ) {
  return create( PortVlanKey( parentIntfId, memberIntfId, vlanId ),
                 EsiData( tid, hwTid, dfEsiLabel, localEsiLabel ) );
}

void EvpnFloodingSmHelperOver::deleteEsiData( IntfId parentIntfId, IntfId memberIntfId,
                                              VlanId vlanId, const TunnelId & tid,
                                              const Kez::HwTunnelId & hwTid ) {
  remove( PortVlanKey( parentIntfId, memberIntfId, vlanId ), EsiData( tid, hwTid, {}, {} ) );
}

HwProgrammingStatus createEntry( EvpnFloodingSmHelper & helper, VlanId key, VlanIdOrNone data ) {
  return helper.createVlan( key, data );
}

HwProgrammingStatus createEntry( EvpnFloodingSmHelper & helper, const PortVlanKey & key,
                                 VlanIdOrNone data ) {
  return helper.createVlanToDot1qMapping( key.parentIntfId, key.memberIntfId, key.vlanId, data );
}

HwProgrammingStatus createEntry( EvpnFloodingSmHelper & helper, const PortVlanKey & key,
                                 Vex::NoValue ) {
  return helper.createNonDfPort( key.parentIntfId, key.memberIntfId, key.vlanId );
}

HwProgrammingStatus createEntry( EvpnFloodingSmHelper & helper, const PortVlanKey & key,
                                 const EsiData & data ) {
  return helper.createEsiData( key.parentIntfId, key.memberIntfId, key.vlanId, data.tunnelId,
                               data.hwTunnelId, data.dfEsiLabel, data.localEsiLabel );
}

void removeEntry( EvpnFloodingSmHelper & helper, VlanId key, VlanIdOrNone data ) {
  helper.deleteVlan( key, data );
}

void removeEntry( EvpnFloodingSmHelper & helper, const PortVlanKey & key, VlanIdOrNone data ) {
  helper.deleteVlanToDot1qMapping( key.parentIntfId, key.memberIntfId, key.vlanId, data );
}

void removeEntry( EvpnFloodingSmHelper & helper, const PortVlanKey & key, Vex::NoValue ) {
  helper.deleteNonDfPort( key.parentIntfId, key.memberIntfId, key.vlanId );
}

void removeEntry( EvpnFloodingSmHelper & helper, const PortVlanKey & key, const EsiData & data ) {
  helper.deleteEsiData( key.parentIntfId, key.memberIntfId, key.vlanId, data.tunnelId,
                        data.hwTunnelId );
}

} // namespace KezHelper
