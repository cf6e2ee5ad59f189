// The flooding helper over the simulated switch. Wrong calls are
//
//   - a creation of what is there, but of a VLAN with the tag that it has and, where
//     `updateSupportedOnCreateEsiData` is set, of ESI data, which it updates;
//   - a mapping on a VLAN that is not there or has another tag, and ESI data with an invalid
//   hardware tunnel id;
//   - a deletion of what is not there or has another tag.
//
// A VLAN may be deleted before its mappings, which stand until each is deleted. Every call is
// traced at level 5 with what it answered.
#pragma once

#include "KezHelper/EvpnFloodingSmHelper.h"
#include "switch/SimulatedSwitch.h"

namespace Switch {

class SwitchFloodingHelper : public KezHelper::EvpnFloodingSmHelper {
  VEX_ENTITY( SwitchFloodingHelper, "Switch::SwitchFloodingHelper",
              KezHelper::EvpnFloodingSmHelper )
  VEX_OUTPUT( 3, simulatedSwitch, SimulatedSwitch )
  VEX_ATTRIBUTES( simulatedSwitch )

public:
  SwitchFloodingHelper( const Vex::String & name, const Vex::Ptr< SimulatedSwitch > & hardware );

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
  // Finds the entry by the ports and VLAN alone.
  void deleteEsiData( Wire::IntfId parentIntfId, Wire::IntfId memberIntfId, Bridging::VlanId vlanId,
                      const Tunnel::TunnelTable::TunnelId & tid,
                      const Kez::HwTunnelId & hwTid ) override;
  KezHelper::EvpnFloodingInventory inventory() const override;
  Vex::String refusalReason() const override { return simulatedSwitch_->lastFailure(); }

private:
  template< class Key, class Data >
  using Table = const std::unique_ptr< const KezHelper::HwTable< Key, Data > >;

  Table< Bridging::VlanId, Bridging::VlanIdOrNone > vlan_;
  Table< PortVlanKey, Bridging::VlanIdOrNone > dot1qMapping_;
  Table< PortVlanKey, Vex::NoValue > nonDfPort_;
  Table< PortVlanKey, EsiData > esiData_;
};

} // namespace Switch
