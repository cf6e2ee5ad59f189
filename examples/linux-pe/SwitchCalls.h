// The calls of the flooding machines' helpers, on their way to the switch and back: each is carried
// out on the switch's thread, and its answer comes on the host's, some time later. The helpers that
// the machines call wait for none (KezHelper/Later.h).
//
// A real product writes a command to the chip's ring in `create` and `remove`, and calls `answer`
// when it reads the completion.
#pragma once

#include "KezHelper/EsiFilteringDecapHelperLater.h"
#include "KezHelper/EvpnFloodingSmHelperLater.h"
#include "SwitchThread.h"

namespace LinuxPe {

using Switch::SimulatedSwitch;

// A table of the switch, as its own thread has it and as the driver keeps books of it: what a
// creation is answered. Each says besides how an entry gets in and out.
template< Switch::Table which, class K, class D > struct FloodingTable {
  using Key = K;
  using Data = D;
  using Answer = Kez::HwProgrammingStatus;
  static constexpr auto table = which;
  static constexpr auto done = Answer::programmed;
  static constexpr auto refused = Answer::notProgrammed;
};

struct VlanTable : FloodingTable< Switch::Table::vlan, Bridging::VlanId, Bridging::VlanIdOrNone > {
  static bool has( const SimulatedSwitch & in, Key key ) { return in.vlanHas( key ); }
  static void is( SimulatedSwitch & in, Key key, Data tag ) { in.vlanIs( key, tag ); }
  static void del( SimulatedSwitch & in, Key key ) { in.vlanDel( key ); }
};

struct MappingTable
    : FloodingTable< Switch::Table::dot1qMapping, KezHelper::PortVlanKey, Bridging::VlanIdOrNone > {
  static bool has( const SimulatedSwitch & in, const Key & key ) {
    return in.dot1qMappingHas( key );
  }
  static void is( SimulatedSwitch & in, const Key & key, Data tag ) {
    in.dot1qMappingIs( key, tag );
  }
  static void del( SimulatedSwitch & in, const Key & key ) { in.dot1qMappingDel( key ); }
};

struct NonDfPortTable
    : FloodingTable< Switch::Table::nonDfPort, KezHelper::PortVlanKey, Vex::NoValue > {
  static bool has( const SimulatedSwitch & in, const Key & key ) { return in.nonDfPort( key ); }
  static void is( SimulatedSwitch & in, const Key & key, Data ) { in.nonDfPortIs( key ); }
  static void del( SimulatedSwitch & in, const Key & key ) { in.nonDfPortDel( key ); }
};

struct EsiDataTable
    : FloodingTable< Switch::Table::esiData, KezHelper::PortVlanKey, KezHelper::EsiData > {
  static bool has( const SimulatedSwitch & in, const Key & key ) { return in.esiDataHas( key ); }
  static void is( SimulatedSwitch & in, const Key & key, const Data & data ) {
    in.esiDataIs( key, data );
  }
  static void del( SimulatedSwitch & in, const Key & key ) { in.esiDataDel( key ); }
};

struct EsiPortMapTable {
  using Key = Wire::IntfId;
  using Data = Wire::MplsLabel;
  using Answer = Mpls::LfibHwProgrammingReturnCode;
  static constexpr auto table = Switch::Table::esiPortMap;
  static constexpr auto done = Answer::success;
  static constexpr auto refused = Answer::tableFull;
  static bool has( const SimulatedSwitch & in, Key key ) { return in.esiPortMapHas( key ); }
  static void is( SimulatedSwitch & in, Key key, Data label ) { in.esiPortMapIs( key, label ); }
  static void del( SimulatedSwitch & in, Key key ) { in.esiPortMapDel( key ); }
};

template< class T >
class SwitchCalls final
    : public KezHelper::LateChip< typename T::Key, typename T::Data, typename T::Answer > {
public:
  using Key = typename T::Key;
  using Data = typename T::Data;
  using Answer = typename T::Answer;

  // `books` are brought to what has been answered. Both outlive this, and the thread ends first.
  SwitchCalls( SwitchThread & thread, SimulatedSwitch & books )
      : thread_( thread ), books_( books ) {}

  void create( const Key & key, const Data & data ) override {
    thread_.carryOut( [ this, key, data ]( Tables & tables ) {
      auto & hardware = *tables.hardware;
      const bool fits = T::has( hardware, key ) || hardware.hasRoom( T::table );
      if ( fits ) {
        T::is( hardware, key, data );
      }
      thread_.tellHost( [ this, key, data, fits ] {
        if ( fits ) {
          T::is( books_, key, data );
        }
        this->answer( key, fits ? T::done : T::refused );
      } );
    } );
  }
  void remove( const Key & key, const Data & ) override {
    thread_.carryOut( [ this, key ]( Tables & tables ) {
      T::del( *tables.hardware, key );
      thread_.tellHost( [ this, key ] {
        T::del( books_, key );
        this->answer( key, T::done );
      } );
    } );
  }

private:
  SwitchThread & thread_;
  SimulatedSwitch & books_;
};

} // namespace LinuxPe
