#include "KezHelper/EvpnFloodingSmHelper.h"

namespace KezHelper {

using Kez::HwProgrammingStatus;

HwProgrammingStatus EvpnFloodingSmHelper::createVlan( Bridging::VlanId, Bridging::VlanIdOrNone ) {
  return HwProgrammingStatus::notProgrammed;
}

void EvpnFloodingSmHelper::deleteVlan( Bridging::VlanId, Bridging::VlanIdOrNone ) {}

HwProgrammingStatus EvpnFloodingSmHelper::createNonDfPort( Wire::IntfId, Wire::IntfId,
                                                           Bridging::VlanId ) {
  return HwProgrammingStatus::notProgrammed;
}

void EvpnFloodingSmHelper::deleteNonDfPort( Wire::IntfId, Wire::IntfId, Bridging::VlanId ) {}

HwProgrammingStatus EvpnFloodingSmHelper::createVlanToDot1qMapping( Wire::IntfId, Wire::IntfId,
                                                                    Bridging::VlanId,
                                                                    Bridging::VlanIdOrNone ) {
  unimplemented( "createVlanToDot1qMapping" );
  return HwProgrammingStatus::notProgrammed;
}

void EvpnFloodingSmHelper::deleteVlanToDot1qMapping( Wire::IntfId, Wire::IntfId, Bridging::VlanId,
                                                     Bridging::VlanIdOrNone ) {
  unimplemented( "deleteVlanToDot1qMapping" );
}

HwProgrammingStatus EvpnFloodingSmHelper::createEsiData( Wire::IntfId, Wire::IntfId,
                                                         Bridging::VlanId,
                                                         const Tunnel::TunnelTable::TunnelId &,
                                                         const Kez::HwTunnelId &, Wire::MplsLabel,
                                                         Wire::MplsLabel ) {
  unimplemented( "addEsiData" );
  return HwProgrammingStatus::notProgrammed;
}

void EvpnFloodingSmHelper::deleteEsiData( Wire::IntfId, Wire::IntfId, Bridging::VlanId,
                                          const Tunnel::TunnelTable::TunnelId &,
                                          const Kez::HwTunnelId & ) {
  unimplemented( "deleteEsiData" );
}

} // namespace KezHelper
