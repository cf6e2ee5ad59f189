// A flooding helper without hardware: counts the calls of each operation, keeps the arguments of
// the latest, and answers what it was set to, `programmed` at first.
#pragma once

#include "KezHelper/EvpnFloodingSmHelper.h"

namespace KezHelper {

class EvpnFloodingSmHelperStub : public EvpnFloodingSmHelper {
  VEX_ENTITY( EvpnFloodingSmHelperStub, "KezHelper::EvpnFloodingSmHelperStub",
              EvpnFloodingSmHelper )

  VEX_ATTRIBUTE( 3, createVlanVlanId, Bridging::VlanId )
  VEX_ATTRIBUTE( 4, createVlanDot1q, Bridging::VlanIdOrNone )
  VEX_ATTRIBUTE( 5, createVlanCount, uint32_t )
  VEX_ATTRIBUTE( 6, createVlanRc, Kez::HwProgrammingStatus )

  VEX_ATTRIBUTE( 7, deleteVlanVlanId, Bridging::VlanId )
  VEX_ATTRIBUTE( 8, deleteVlanDot1q, Bridging::VlanIdOrNone )
  VEX_ATTRIBUTE( 9, deleteVlanCount, uint32_t )

  // The ports alone, not their parents.
  VEX_ATTRIBUTE( 10, createNonDfPortIntfId, Wire::IntfId )
  VEX_ATTRIBUTE( 11, createNonDfPortVlanId, Bridging::VlanId )
  VEX_ATTRIBUTE( 12, createNonDfPortCount, uint32_t )
  VEX_ATTRIBUTE( 13, createNonDfPortRc, Kez::HwProgrammingStatus )

  VEX_ATTRIBUTE( 14, deleteNonDfPortIntfId, Wire::IntfId )
  VEX_ATTRIBUTE( 15, deleteNonDfPortVlanId, Bridging::VlanId )
  VEX_ATTRIBUTE( 16, deleteNonDfPortCount, uint32_t )

  VEX_ATTRIBUTE( 17, createVlanToDot1qParentIntfId, Wire::IntfId )
  VEX_ATTRIBUTE( 18, createVlanToDot1qMemberIntfId, Wire::IntfId )
  VEX_ATTRIBUTE( 19, createVlanToDot1qVlanId, Bridging::VlanId )
  VEX_ATTRIBUTE( 20, createVlanToDot1qDot1q, Bridging::VlanIdOrNone )
  VEX_ATTRIBUTE( 21, createVlanToDot1qCount, uint32_t )
  VEX_ATTRIBUTE( 22, createVlanToDot1qRc, Kez::HwProgrammingStatus )

  VEX_ATTRIBUTE( 23, deleteVlanToDot1qParentIntfId, Wire::IntfId )
  VEX_ATTRIBUTE( 24, deleteVlanToDot1qMemberIntfId, Wire::IntfId )
  VEX_ATTRIBUTE( 25, deleteVlanToDot1qVlanId, Bridging::VlanId )
  VEX_ATTRIBUTE( 26, deleteVlanToDot1qDot1q, Bridging::VlanIdOrNone )
  VEX_ATTRIBUTE( 27, deleteVlanToDot1qCount, uint32_t )

  VEX_ATTRIBUTE( 28, createEsiDataParentIntfId, Wire::IntfId )
  VEX_ATTRIBUTE( 29, createEsiDataMemberIntfId, Wire::IntfId )
  VEX_ATTRIBUTE( 30, createEsiDataVlanId, Bridging::VlanId )
  VEX_ATTRIBUTE( 31, createEsiDataTid, Tunnel::TunnelTable::TunnelId )
  VEX_ATTRIBUTE( 32, createEsiDataHwTid, Kez::HwTunnelId )
  VEX_ATTRIBUTE( 33, createEsiDataLabel, Wire::MplsLabel ) // the designated forwarder's
  VEX_ATTRIBUTE( 34, createEsiDataCount, uint32_t )
  VEX_ATTRIBUTE( 35, createEsiDataRc, Kez::HwProgrammingStatus )

  VEX_ATTRIBUTE( 36, deleteEsiDataParentIntfId, Wire::IntfId )
  VEX_ATTRIBUTE( 37, deleteEsiDataMemberIntfId, Wire::IntfId )
  VEX_ATTRIBUTE( 38, deleteEsiDataVlanId, Bridging::VlanId )
  VEX_ATTRIBUTE( 39, deleteEsiDataTid, Tunnel::TunnelTable::TunnelId )
  VEX_ATTRIBUTE( 40, deleteEsiDataHwTid, Kez::HwTunnelId )
  VEX_ATTRIBUTE( 41, deleteEsiDataCount, uint32_t )

  VEX_ATTRIBUTES( createVlanVlanId, createVlanDot1q, createVlanCount, createVlanRc,
                  deleteVlanVlanId, deleteVlanDot1q, deleteVlanCount, createNonDfPortIntfId,
                  createNonDfPortVlanId, createNonDfPortCount, createNonDfPortRc,
                  deleteNonDfPortIntfId, deleteNonDfPortVlanId, deleteNonDfPortCount,
                  createVlanToDot1qParentIntfId, createVlanToDot1qMemberIntfId,
                  createVlanToDot1qVlanId, createVlanToDot1qDot1q, createVlanToDot1qCount,
                  createVlanToDot1qRc, deleteVlanToDot1qParentIntfId, deleteVlanToDot1qMemberIntfId,
                  deleteVlanToDot1qVlanId, deleteVlanToDot1qDot1q, deleteVlanToDot1qCount,
                  createEsiDataParentIntfId, createEsiDataMemberIntfId, createEsiDataVlanId,
                  createEsiDataTid, createEsiDataHwTid, createEsiDataLabel, createEsiDataCount,
                  createEsiDataRc, deleteEsiDataParentIntfId, deleteEsiDataMemberIntfId,
                  deleteEsiDataVlanId, deleteEsiDataTid, deleteEsiDataHwTid, deleteEsiDataCount )

public:
  using EvpnFloodingSmHelper::EvpnFloodingSmHelper;

  Kez::HwProgrammingStatus createVlan( Bridging::VlanId vlanId,
                                       Bridging::VlanIdOrNone dot1q ) override;
  void deleteVlan( Bridging::VlanId vlanId, Bridging::VlanIdOrNone dot1q ) override;
  Kez::HwProgrammingStatus createNonDfPort( Wire::IntfId parentIntfId, Wire::IntfId intfId,
                                            Bridging::VlanId vlanId ) override;
  void deleteNonDfPort( Wire::IntfId parentIntfId, Wire::IntfId intfId,
                        Bridging::VlanId vlanId ) override;
  Kez::HwProgrammingStatus createVlanToDot1qMapping( Wire::IntfId parentIntfId,
                                                     Wire::IntfId memberIntfId,
                                                     Bridging::VlanId vlanId,
                                                     Bridging::VlanIdOrNone dot1q ) override;
  void deleteVlanToDot1qMapping( Wire::IntfId parentIntfId, Wire::IntfId memberIntfId,
                                 Bridging::VlanId vlanId, Bridging::VlanIdOrNone dot1q ) override;
  Kez::HwProgrammingStatus createEsiData( Wire::IntfId parentIntfId, Wire::IntfId memberIntfId,
                                          Bridging::VlanId vlanId,
                                          const Tunnel::TunnelTable::TunnelId & tid,
                                          const Kez::HwTunnelId & hwTid, Wire::MplsLabel dfEsiLabel,
                                          Wire::MplsLabel localEsiLabel ) override;
  void deleteEsiData( Wire::IntfId parentIntfId, Wire::IntfId memberIntfId, Bridging::VlanId vlanId,
                      const Tunnel::TunnelTable::TunnelId & tid,
                      const Kez::HwTunnelId & hwTid ) override;
};

Vex::Ptr< EvpnFloodingSmHelperStub > evpnFloodingSmHelperStubFactory( const Vex::String & name );

} // namespace KezHelper
