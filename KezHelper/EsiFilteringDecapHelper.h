// The door through which ESI port maps are programmed: traffic that is decapsulated with an ESI
// label is not flooded out of the interface that the label's map names. A platform derives from
// this class; what it leaves out refuses.
//
// A creation answers `success`, or `notProgrammed` or `tableFull` when it is to be tried again.
// An interface has one map at most, which the caller sees to: the answer `conflict` is fatal to
// it. A deletion cannot fail.
#pragma once

#include "KezHelper/HwTable.h"
#include "KezHelper/KezBaseHelper.h"
#include "Mpls/Lfib.h"

namespace KezHelper {

class EsiFilteringDecapHelper : public Kez::KezBaseHelper {
  VEX_ENTITY( EsiFilteringDecapHelper, "KezHelper::EsiFilteringDecapHelper", Kez::KezBaseHelper )
  VEX_ATTRIBUTES()

public:
  using KezBaseHelper::KezBaseHelper;

  // These are refused as unimplemented.
  virtual Mpls::LfibHwProgrammingReturnCode createEsiPortMap( Wire::MplsLabel label,
                                                              Wire::IntfId intfId );
  virtual void deleteEsiPortMap( Wire::MplsLabel label, Wire::IntfId intfId );

  // The maps that hardware has, by interface; null where it cannot be asked.
  virtual const HwTable< Wire::IntfId, Wire::MplsLabel > * esiPortMaps() const { return nullptr; }
};

} // namespace KezHelper
