// The ESI filtering helper over the simulated switch, whose table has one label an interface.
// Wrong calls are a creation for an interface that has a map, which is answered `conflict`, and a
// deletion of what is not there or has another label. Every call is traced at level 5 with what
// it answered.
#pragma once

#include "KezHelper/EsiFilteringDecapHelper.h"
#include "switch/SimulatedSwitch.h"

namespace Switch {

class SwitchEsiFilteringDecapHelper : public KezHelper::EsiFilteringDecapHelper {
  VEX_ENTITY( SwitchEsiFilteringDecapHelper, "Switch::SwitchEsiFilteringDecapHelper",
              KezHelper::EsiFilteringDecapHelper )
  VEX_OUTPUT( 1, simulatedSwitch, SimulatedSwitch )
  VEX_ATTRIBUTES( simulatedSwitch )

public:
  SwitchEsiFilteringDecapHelper( const Vex::String & name,
                                 const Vex::Ptr< SimulatedSwitch > & hardware );

  Mpls::LfibHwProgrammingReturnCode createEsiPortMap( Wire::MplsLabel label,
                                                      Wire::IntfId intfId ) override;
  void deleteEsiPortMap( Wire::MplsLabel label, Wire::IntfId intfId ) override;
  const KezHelper::HwTable< Wire::IntfId, Wire::MplsLabel > * esiPortMaps() const override {
    return esiPortMap_.get();
  }
  Vex::String refusalReason() const override { return simulatedSwitch_->lastFailure(); }

private:
  const std::unique_ptr< const KezHelper::HwTable< Wire::IntfId, Wire::MplsLabel > > esiPortMap_;
};

} // namespace Switch
