// The base of a flooding helper that stands between machines and a chip's: it has the chip's
// attributes, as they change, and its inventory; and each call is one of an entry of a table, by
// the types of its key and data.
#pragma once

#include "KezHelper/EvpnFloodingSmHelper.h"
#include "Vex/Reactor.h"

namespace KezHelper {

class EvpnFloodingSmHelperOver : public EvpnFloodingSmHelper, public Vex::ReactorOwner {
public:
  // What the machines are to know of the chip.
  class VexChip : public Vex::ReactorOf< EvpnFloodingSmHelperOver, EvpnFloodingSmHelper > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
    void handleNotifier() override;
  };

  VEX_ENTITY( EvpnFloodingSmHelperOver, "KezHelper::EvpnFloodingSmHelperOver",
              EvpnFloodingSmHelper )
  VEX_OUTPUT( 3, chip, EvpnFloodingSmHelper )
  VEX_ATTRIBUTES( chip )

  EvpnFloodingInventory inventory() const override { return chip_->inventory(); }
  Vex::String refusalReason() const override { return chip_->refusalReason(); }

  Kez::HwProgrammingStatus createVlan( Bridging::VlanId vlanId,
                                       Bridging::VlanIdOrNone dot1q ) final;
  void deleteVlan( Bridging::VlanId vlanId, Bridging::VlanIdOrNone dot1q ) final;
  Kez::HwProgrammingStatus createNonDfPort( Wire::IntfId parentIntfId, Wire::IntfId intfId,
                                            Bridging::VlanId vlanId ) final;
  void deleteNonDfPort( Wire::IntfId parentIntfId, Wire::IntfId intfId,
                        Bridging::VlanId vlanId ) final;
  Kez::HwProgrammingStatus createVlanToDot1qMapping( Wire::IntfId parentIntfId,
                                                     Wire::IntfId memberIntfId,
                                                     Bridging::VlanId vlanId,
                                                     Bridging::VlanIdOrNone dot1q ) final;
  void deleteVlanToDot1qMapping( Wire::IntfId parentIntfId, Wire::IntfId memberIntfId,
                                 Bridging::VlanId vlanId, Bridging::VlanIdOrNone dot1q ) final;
  Kez::HwProgrammingStatus createEsiData( Wire::IntfId parentIntfId, Wire::IntfId memberIntfId,
                                          Bridging::VlanId vlanId,
                                          const Tunnel::TunnelTable::TunnelId & tid,
                                          const Kez::HwTunnelId & hwTid, Wire::MplsLabel dfEsiLabel,
                                          Wire::MplsLabel localEsiLabel ) final;
  void deleteEsiData( Wire::IntfId parentIntfId, Wire::IntfId memberIntfId, Bridging::VlanId vlanId,
                      const Tunnel::TunnelTable::TunnelId & tid,
                      const Kez::HwTunnelId & hwTid ) final;

protected:
  EvpnFloodingSmHelperOver( const Vex::String & name,
                            const Vex::Ptr< EvpnFloodingSmHelper > & chip )
      : EvpnFloodingSmHelper( name ), chip_( chip ), chipReactor_( *this ) {}

  // For the end of the constructor.
  void watchChip() { chipReactor_.notifierIs( chip_ ); }

  // Of a VLAN, a mapping, a port that is not designated forwarder, and ESI data. A removal of these
  // has no labels.
  virtual Kez::HwProgrammingStatus create( Bridging::VlanId key, Bridging::VlanIdOrNone data ) = 0;
  virtual Kez::HwProgrammingStatus create( const PortVlanKey & key,
                                           Bridging::VlanIdOrNone data ) = 0;
  virtual Kez::HwProgrammingStatus create( const PortVlanKey & key, Vex::NoValue data ) = 0;
  virtual Kez::HwProgrammingStatus create( const PortVlanKey & key, const EsiData & data ) = 0;
  virtual void remove( Bridging::VlanId key, Bridging::VlanIdOrNone data ) = 0;
  virtual void remove( const PortVlanKey & key, Bridging::VlanIdOrNone data ) = 0;
  virtual void remove( const PortVlanKey & key, Vex::NoValue data ) = 0;
  virtual void remove( const PortVlanKey & key, const EsiData & data ) = 0;

private:
  VexChip chipReactor_;
};

// The calls of a helper, likewise.
Kez::HwProgrammingStatus createEntry( EvpnFloodingSmHelper & helper, Bridging::VlanId key,
                                      Bridging::VlanIdOrNone data );
Kez::HwProgrammingStatus createEntry( EvpnFloodingSmHelper & helper, const PortVlanKey & key,
                                      Bridging::VlanIdOrNone data );
Kez::HwProgrammingStatus createEntry( EvpnFloodingSmHelper & helper, const PortVlanKey & key,
                                      Vex::NoValue data );
Kez::HwProgrammingStatus createEntry( EvpnFloodingSmHelper & helper, const PortVlanKey & key,
                                      const EsiData & data );
void removeEntry( EvpnFloodingSmHelper & helper, Bridging::VlanId key,
                  Bridging::VlanIdOrNone data );
void removeEntry( EvpnFloodingSmHelper & helper, const PortVlanKey & key,
                  Bridging::VlanIdOrNone data );
void removeEntry( EvpnFloodingSmHelper & helper, const PortVlanKey & key, Vex::NoValue data );
void removeEntry( EvpnFloodingSmHelper & helper, const PortVlanKey & key, const EsiData & data );

} // namespace KezHelper
