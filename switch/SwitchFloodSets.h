// The simulated switch's side of flood sets: programs the FECs that are requested and the
// configurations of flood-set destinations, and answers.
//
// A destination that could not be programmed has the status notProgrammed until it is.
#pragma once

#include "switch/SwitchFecs.h"

namespace Switch {

class SwitchFloodSets : public SwitchFecs< Kez::FloodSetMplsDestConfig, Vex::NoValue > {
public:
  class VexVlanFloodSetConfig
      : public Vex::MemberReactor< SwitchFloodSets, Kez::VlanFloodSetConfig > {
  public:
    using MemberReactor::MemberReactor;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
    void handleNotifier() override;
  };

  VEX_ENTITY( SwitchFloodSets, "Switch::SwitchFloodSets",
              SwitchFecs< Kez::FloodSetMplsDestConfig, Vex::NoValue > )
  VEX_INPUT( 1, hwConfig, Kez::EvpnVlanFloodSetHwConfig )
  VEX_OUTPUT( 2, hwStatus, Kez::EvpnVlanFloodSetHwStatus )
  VEX_REACTORS( 3, vlanFloodSetConfig, VexVlanFloodSetConfig )
  VEX_ATTRIBUTES( hwConfig, hwStatus, vlanFloodSetConfig )

  using VexHwConfig = Vex::MirrorReactor< Kez::EvpnVlanFloodSetHwConfig::configEntities,
                                          vlanFloodSetConfigReactors >;

  SwitchFloodSets( const Vex::Ptr< SimulatedSwitch > & hardware,
                   const Vex::Ptr< Loom::TimerWheel > & timerWheel,
                   const Vex::Ptr< const Kez::FecIdToHwFecIdRequest > & fecRequest,
                   const Vex::Ptr< Kez::FecIdToHwFecIdResponse > & fecResponse,
                   const Vex::Ptr< const Kez::EvpnVlanFloodSetHwConfig > & hwConfig,
                   const Vex::Ptr< Kez::EvpnVlanFloodSetHwStatus > & hwStatus );

  const KezHelper::HwTable< Kez::FloodSetMplsDestConfig, Vex::NoValue > & users() const override {
    return *dests_;
  }

private:
  using Dest = Kez::FloodSetMplsDestConfig;

  void see( const Dest & dest ) override;
  uint64_t hwFecIdUsedBy( const Dest & dest, const Vex::NoValue & ) const override {
    return dest.config.hwIdForTunnelProgramming;
  }
  bool isOwn( uint64_t hwFecId ) const override;
  Vex::NoValue dataOf( const Dest &, uint64_t ) const override { return {}; }
  void removeUser( const Dest & dest ) override;
  void lost( const Dest & dest ) override;
  void program( const Dest & dest );
  void unprogram( const Dest & dest );

  const std::unique_ptr< const KezHelper::HwTable< Dest, Vex::NoValue > > dests_;
  VexHwConfig hwConfigReactor_;
};

} // namespace Switch
