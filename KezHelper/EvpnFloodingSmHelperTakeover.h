// The flooding helper of machines that start over hardware which is programmed already. It stands
// between them and a chip's helper, and takes over each of its tables that can be asked; see
// KezHelper/Takeover.h. With a chip that has no inventory, and once the takeover has ended, calls
// go to the chip as they come.
#pragma once

#include "KezHelper/EvpnFloodingSmHelper.h"
#include "KezHelper/Takeover.h"

namespace KezHelper {

class EvpnFloodingSmHelperTakeover : public EvpnFloodingSmHelper, public Vex::ReactorOwner {
public:
  // What the machines are to know of the chip.
  class VexChip : public Vex::ReactorOf< EvpnFloodingSmHelperTakeover, EvpnFloodingSmHelper > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
    void handleNotifier() override;
  };

  VEX_ENTITY( EvpnFloodingSmHelperTakeover, "KezHelper::EvpnFloodingSmHelperTakeover",
              EvpnFloodingSmHelper )
  VEX_OUTPUT( 3, chip, EvpnFloodingSmHelper )
  VEX_ATTRIBUTES( chip )

  // Before the machines start.
  EvpnFloodingSmHelperTakeover( const Vex::String & name, const Vex::Ptr< Takeover > & takeover,
                                const Vex::Ptr< EvpnFloodingSmHelper > & chip );

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
  EvpnFloodingInventory inventory() const override { return chip_->inventory(); }

private:
  using VlanTakeover = TakeoverTable< Bridging::VlanId, Bridging::VlanIdOrNone >;
  using MappingTakeover = TakeoverTable< PortVlanKey, Bridging::VlanIdOrNone >;
  using PortTakeover = TakeoverTable< PortVlanKey, Vex::NoValue >;
  using EsiDataTakeover = TakeoverTable< PortVlanKey, EsiData >;

  std::optional< EsiDataTakeover > esiData_;
  std::optional< PortTakeover > nonDfPort_;
  std::optional< MappingTakeover > dot1qMapping_;
  std::optional< VlanTakeover > vlan_;
  VexChip chipReactor_;
};

} // namespace KezHelper
