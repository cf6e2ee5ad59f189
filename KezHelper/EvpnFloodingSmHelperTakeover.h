// The flooding helper of machines that start over hardware which is programmed already. It stands
// between them and a chip's helper, and takes over each of its tables that can be asked; see
// KezHelper/Takeover.h. With a chip that has no inventory, and once the takeover has ended, calls
// go to the chip as they come.
#pragma once

#include "KezHelper/EvpnFloodingSmHelperOver.h"
#include "KezHelper/Takeover.h"

namespace KezHelper {

class EvpnFloodingSmHelperTakeover final : public EvpnFloodingSmHelperOver {
  VEX_ENTITY( EvpnFloodingSmHelperTakeover, "KezHelper::EvpnFloodingSmHelperTakeover",
              EvpnFloodingSmHelperOver )
  VEX_ATTRIBUTES()

public:
  // Before the machines start.
  EvpnFloodingSmHelperTakeover( const Vex::String & name, const Vex::Ptr< Takeover > & takeover,
                                const Vex::Ptr< EvpnFloodingSmHelper > & chip );

private:
  template< class Key, class Data > using Table = std::optional< TakeoverTable< Key, Data > >;

  Kez::HwProgrammingStatus create( Bridging::VlanId key, Bridging::VlanIdOrNone data ) override;
  Kez::HwProgrammingStatus create( const PortVlanKey & key, Bridging::VlanIdOrNone data ) override;
  Kez::HwProgrammingStatus create( const PortVlanKey & key, Vex::NoValue data ) override;
  Kez::HwProgrammingStatus create( const PortVlanKey & key, const EsiData & data ) override;
  void remove( Bridging::VlanId key, Bridging::VlanIdOrNone data ) override;
  void remove( const PortVlanKey & key, Bridging::VlanIdOrNone data ) override;
  void remove( const PortVlanKey & key, Vex::NoValue data ) override;
  void remove( const PortVlanKey & key, const EsiData & data ) override;

  template< class Key, class Data >
  void takeOver( Table< Key, Data > & table, const Vex::Ptr< Takeover > & takeover, SweepRank rank,
                 const HwTable< Key, Data > * inventory );
  // Of a table that is taken over; another one's calls go to the chip.
  template< class Key, class Data >
  Kez::HwProgrammingStatus createIn( Table< Key, Data > & table, const Key & key, const Data & data,
                                     bool writesOver );
  template< class Key, class Data >
  void removeFrom( Table< Key, Data > & table, const Key & key, const Data & data );

  Table< PortVlanKey, EsiData > esiData_;
  Table< PortVlanKey, Vex::NoValue > nonDfPort_;
  Table< PortVlanKey, Bridging::VlanIdOrNone > dot1qMapping_;
  Table< Bridging::VlanId, Bridging::VlanIdOrNone > vlan_;
};

} // namespace KezHelper
