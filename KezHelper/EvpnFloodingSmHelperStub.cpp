#include "KezHelper/EvpnFloodingSmHelperStub.h"

namespace KezHelper {

using Kez::HwProgrammingStatus;

Vex::Ptr< EvpnFloodingSmHelperStub > evpnFloodingSmHelperStubFactory( const Vex::String & name ) {
  return Vex::makePtr< EvpnFloodingSmHelperStub >( name );
}

HwProgrammingStatus EvpnFloodingSmHelperStub::createVlan( Bridging::VlanId vlanId,
                                                          Bridging::VlanIdOrNone dot1q ) {
  createVlanVlanIdIs( vlanId );
  createVlanDot1qIs( dot1q );
  createVlanCountIs( createVlanCount() + 1 );
  return createVlanRc();
}

void EvpnFloodingSmHelperStub::deleteVlan( Bridging::VlanId vlanId, Bridging::VlanIdOrNone dot1q ) {
  deleteVlanVlanIdIs( vlanId );
  deleteVlanDot1qIs( dot1q );
  deleteVlanCountIs( deleteVlanCount() + 1 );
}

HwProgrammingStatus EvpnFloodingSmHelperStub::createNonDfPort( Wire::IntfId, Wire::IntfId intfId,
                                                               Bridging::VlanId vlanId ) {
  createNonDfPortIntfIdIs( intfId );
  createNonDfPortVlanIdIs( vlanId );
  createNonDfPortCountIs( createNonDfPortCount() + 1 );
  return createNonDfPortRc();
}

void EvpnFloodingSmHelperStub::deleteNonDfPort( Wire::IntfId, Wire::IntfId intfId,
                                                Bridging::VlanId vlanId ) {
  deleteNonDfPortIntfIdIs( intfId );
  deleteNonDfPortVlanIdIs( vlanId );
  deleteNonDfPortCountIs( deleteNonDfPortCount() + 1 );
}

HwProgrammingStatus EvpnFloodingSmHelperStub::createVlanToDot1qMapping(
    Wire::IntfId parentIntfId, Wire::IntfId memberIntfId, Bridging::VlanId vlanId,
    Bridging::VlanIdOrNone dot1q ) {
  createVlanToDot1qParentIntfIdIs( parentIntfId );
  createVlanToDot1qMemberIntfIdIs( memberIntfId );
  createVlanToDot1qVlanIdIs( vlanId );
  createVlanToDot1qDot1qIs( dot1q );
  createVlanToDot1qCountIs( createVlanToDot1qCount() + 1 );
  return createVlanToDot1qRc();
}

void EvpnFloodingSmHelperStub::deleteVlanToDot1qMapping( Wire::IntfId parentIntfId,
                                                         Wire::IntfId memberIntfId,
                                                         Bridging::VlanId vlanId,
                                                         Bridging::VlanIdOrNone dot1q ) {
  deleteVlanToDot1qParentIntfIdIs( parentIntfId );
  deleteVlanToDot1qMemberIntfIdIs( memberIntfId );
  deleteVlanToDot1qVlanIdIs( vlanId );
  deleteVlanToDot1qDot1qIs( dot1q );
  deleteVlanToDot1qCountIs( deleteVlanToDot1qCount() + 1 );
}

HwProgrammingStatus EvpnFloodingSmHelperStub::createEsiData(
    Wire::IntfId parentIntfId, Wire::IntfId memberIntfId, Bridging::VlanId vlanId,
    const Tunnel::TunnelTable::TunnelId & tid, const Kez::HwTunnelId & hwTid,
    Wire::MplsLabel dfEsiLabel, Wire::MplsLabel ) {
  createEsiDataParentIntfIdIs( parentIntfId );
  createEsiDataMemberIntfIdIs( memberIntfId );
  createEsiDataVlanIdIs( vlanId );
  createEsiDataTidIs( tid );
  createEsiDataHwTidIs( hwTid );
  createEsiDataLabelIs( dfEsiLabel );
  createEsiDataCountIs( createEsiDataCount() + 1 );
  return createEsiDataRc();
}

void EvpnFloodingSmHelperStub::deleteEsiData( Wire::IntfId parentIntfId, Wire::IntfId memberIntfId,
                                              Bridging::VlanId vlanId,
                                              const Tunnel::TunnelTable::TunnelId & tid,
                                              const Kez::HwTunnelId & hwTid ) {
  deleteEsiDataParentIntfIdIs( parentIntfId );
  deleteEsiDataMemberIntfIdIs( memberIntfId );
  deleteEsiDataVlanIdIs( vlanId );
  deleteEsiDataTidIs( tid );
  deleteEsiDataHwTidIs( hwTid );
  deleteEsiDataCountIs( deleteEsiDataCount() + 1 );
}

} // namespace KezHelper
