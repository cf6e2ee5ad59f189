// The ESI filtering helper over a chip that answers later; see KezHelper/Later.h.
#pragma once

#include "KezHelper/EsiFilteringDecapHelper.h"
#include "KezHelper/Later.h"

namespace KezHelper {

using LateEsiPortMapChip =
    LateChip< Wire::IntfId, Wire::MplsLabel, Mpls::LfibHwProgrammingReturnCode >;

class EsiFilteringDecapHelperLater final : public EsiFilteringDecapHelper {
  VEX_ENTITY( EsiFilteringDecapHelperLater, "KezHelper::EsiFilteringDecapHelperLater",
              EsiFilteringDecapHelper )
  VEX_OUTPUT( 1, chip, EsiFilteringDecapHelper )
  VEX_ATTRIBUTES( chip )

public:
  // `chip` is asked for its inventory alone; `maps` is of `owner`, which is held.
  EsiFilteringDecapHelperLater( const Vex::String & name, const Vex::Ptr< LateCalls > & calls,
                                const Vex::Ptr< EsiFilteringDecapHelper > & chip,
                                const Vex::Ptr< const Vex::Entity > & owner,
                                LateEsiPortMapChip & maps )
      : EsiFilteringDecapHelper( name ), chip_( chip ), owner_( owner ),
        esiPortMap_( calls, maps, Mpls::LfibHwProgrammingReturnCode::success,
                     chip->esiPortMaps() ) {}

  Mpls::LfibHwProgrammingReturnCode createEsiPortMap( Wire::MplsLabel label,
                                                      Wire::IntfId intfId ) override {
    return esiPortMap_.create( intfId, label );
  }
  void deleteEsiPortMap( Wire::MplsLabel label, Wire::IntfId intfId ) override {
    esiPortMap_.remove( intfId, label );
  }
  const HwTable< Wire::IntfId, Wire::MplsLabel > * esiPortMaps() const override {
    return &esiPortMap_;
  }
  Vex::String refusalReason() const override { return chip_->refusalReason(); }

private:
  const Vex::Ptr< const Vex::Entity > owner_;
  LateTable< Wire::IntfId, Wire::MplsLabel, Mpls::LfibHwProgrammingReturnCode > esiPortMap_;
};

} // namespace KezHelper
