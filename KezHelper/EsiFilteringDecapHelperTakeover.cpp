#include "KezHelper/EsiFilteringDecapHelperTakeover.h"

namespace KezHelper {

using Mpls::LfibHwProgrammingReturnCode;
using Wire::IntfId;
using Wire::MplsLabel;

EsiFilteringDecapHelperTakeover::EsiFilteringDecapHelperTakeover(
    const Vex::String & name, const Vex::Ptr< Takeover > & takeover,
    const Vex::Ptr< EsiFilteringDecapHelper > & chip )
    : EsiFilteringDecapHelper( name ), chip_( chip ) {
  if ( const auto * const maps = chip->esiPortMaps() ) {
    esiPortMap_.emplace(
        takeover, SweepRank::port, *maps,
        [ this ]( IntfId intfId, MplsLabel label ) { chip_->deleteEsiPortMap( label, intfId ); } );
  }
}

LfibHwProgrammingReturnCode EsiFilteringDecapHelperTakeover::createEsiPortMap( MplsLabel label,
                                                                               IntfId intfId ) {
  const auto create = [ & ] { return chip_->createEsiPortMap( label, intfId ); };
  return esiPortMap_ ? esiPortMap_->create( intfId, label, LfibHwProgrammingReturnCode::success,
                                            false, create )
                     : create();
}

void EsiFilteringDecapHelperTakeover::deleteEsiPortMap( MplsLabel label, IntfId intfId ) {
  if ( !esiPortMap_ || esiPortMap_->removes( intfId ) ) {
    chip_->deleteEsiPortMap( label, intfId );
  }
}

} // namespace KezHelper
