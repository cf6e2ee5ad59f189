// The ESI filtering helper of a machine that starts over hardware which is programmed already,
// between it and a chip's helper; see KezHelper/Takeover.h.
#pragma once

#include "KezHelper/EsiFilteringDecapHelper.h"
#include "KezHelper/Takeover.h"

namespace KezHelper {

class EsiFilteringDecapHelperTakeover : public EsiFilteringDecapHelper {
  VEX_ENTITY( EsiFilteringDecapHelperTakeover, "KezHelper::EsiFilteringDecapHelperTakeover",
              EsiFilteringDecapHelper )
  VEX_OUTPUT( 1, chip, EsiFilteringDecapHelper )
  VEX_ATTRIBUTES( chip )

public:
  EsiFilteringDecapHelperTakeover( const Vex::String & name, const Vex::Ptr< Takeover > & takeover,
                                   const Vex::Ptr< EsiFilteringDecapHelper > & chip );

  Mpls::LfibHwProgrammingReturnCode createEsiPortMap( Wire::MplsLabel label,
                                                      Wire::IntfId intfId ) override;
  void deleteEsiPortMap( Wire::MplsLabel label, Wire::IntfId intfId ) override;
  const HwTable< Wire::IntfId, Wire::MplsLabel > * esiPortMaps() const override {
    return chip_->esiPortMaps();
  }
  Vex::String refusalReason() const override { return chip_->refusalReason(); }

private:
  std::optional< TakeoverTable< Wire::IntfId, Wire::MplsLabel > > esiPortMap_;
};

} // namespace KezHelper
