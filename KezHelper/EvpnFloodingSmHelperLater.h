// The flooding helper over a chip that answers later; see KezHelper/Later.h. A mapping waits for
// its VLAN, and a VLAN is removed after all that was accepted before.
#pragma once

#include "KezHelper/EvpnFloodingSmHelperOver.h"
#include "KezHelper/Later.h"

#include <vector>

namespace KezHelper {

template< class Key, class Data >
using LateFloodingChip = LateChip< Key, Data, Kez::HwProgrammingStatus >;

// What the chip does for each table.
struct EvpnFloodingLateChips {
  LateFloodingChip< Bridging::VlanId, Bridging::VlanIdOrNone > & vlan;
  LateFloodingChip< PortVlanKey, Bridging::VlanIdOrNone > & dot1qMapping;
  LateFloodingChip< PortVlanKey, Vex::NoValue > & nonDfPort;
  LateFloodingChip< PortVlanKey, EsiData > & esiData;
};

class EvpnFloodingSmHelperLater final : public EvpnFloodingSmHelperOver {
  VEX_ENTITY( EvpnFloodingSmHelperLater, "KezHelper::EvpnFloodingSmHelperLater",
              EvpnFloodingSmHelperOver )
  VEX_ATTRIBUTES()

public:
  // `chip` is asked for its attributes and inventory alone; `chips` are of `owner`, which is held.
  EvpnFloodingSmHelperLater( const Vex::String & name, const Vex::Ptr< LateCalls > & calls,
                             const Vex::Ptr< EvpnFloodingSmHelper > & chip,
                             const Vex::Ptr< const Vex::Entity > & owner,
                             const EvpnFloodingLateChips & chips );

  EvpnFloodingInventory inventory() const override {
    return { &vlan_, &dot1qMapping_, &nonDfPort_, &esiData_ };
  }

private:
  template< class Key, class Data > using Table = LateTable< Key, Data, Kez::HwProgrammingStatus >;

  Kez::HwProgrammingStatus create( Bridging::VlanId key, Bridging::VlanIdOrNone data ) override {
    return vlan_.create( key, data );
  }
  Kez::HwProgrammingStatus create( const PortVlanKey & key, Bridging::VlanIdOrNone data ) override {
    return dot1qMapping_.create( key, data );
  }
  Kez::HwProgrammingStatus create( const PortVlanKey & key, Vex::NoValue data ) override {
    return nonDfPort_.create( key, data );
  }
  Kez::HwProgrammingStatus create( const PortVlanKey & key, const EsiData & data ) override {
    return esiData_.create( key, data );
  }
  void remove( Bridging::VlanId key, Bridging::VlanIdOrNone data ) override {
    vlan_.remove( key, data );
  }
  void remove( const PortVlanKey & key, Bridging::VlanIdOrNone data ) override {
    dot1qMapping_.remove( key, data );
  }
  void remove( const PortVlanKey & key, Vex::NoValue data ) override {
    nonDfPort_.remove( key, data );
  }
  void remove( const PortVlanKey & key, const EsiData & data ) override {
    esiData_.remove( key, data );
  }

  void forEachWaiting( Bridging::VlanId vlanId, const auto & what );
  using VlanOrder = LateOrder< Bridging::VlanId, Bridging::VlanIdOrNone >;
  using MappingOrder = LateOrder< PortVlanKey, Bridging::VlanIdOrNone >;
  using EsiDataOrder = LateOrder< PortVlanKey, EsiData >;
  VlanOrder vlanOrder();
  MappingOrder mappingOrder();
  EsiDataOrder esiDataOrder();

  const Vex::Ptr< const Vex::Entity > owner_;
  std::map< Bridging::VlanId, std::vector< PortVlanKey > > mappingsWaiting_; // for the VLAN
  Table< Bridging::VlanId, Bridging::VlanIdOrNone > vlan_;
  Table< PortVlanKey, Bridging::VlanIdOrNone > dot1qMapping_;
  Table< PortVlanKey, Vex::NoValue > nonDfPort_;
  Table< PortVlanKey, EsiData > esiData_;
};

} // namespace KezHelper
