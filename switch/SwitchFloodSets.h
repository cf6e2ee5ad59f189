// The simulated switch's side of flood sets: programs the FECs that are requested and the
// configurations of flood-set destinations, and answers.
//
// A destination that could not be programmed has the status notProgrammed until it is.
#pragma once

#include "switch/SwitchFecs.h"

namespace Switch {

class SwitchFloodSets : public SwitchFecs< Kez::FloodSetMplsDestConfig > {
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
              SwitchFecs< Kez::FloodSetMplsDestConfig > )
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

private:
  using Dest = Kez::FloodSetMplsDestConfig;

  void see( const Dest & dest ) override;
  void program( const Dest & dest );
  void unprogram( const Dest & dest );

  VexHwConfig hwConfigReactor_;
};

} // namespace Switch
