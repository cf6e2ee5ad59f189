#include "KezHelper/EsiFilteringDecapHelper.h"

namespace KezHelper {

using Mpls::LfibHwProgrammingReturnCode;

LfibHwProgrammingReturnCode EsiFilteringDecapHelper::createEsiPortMap( Wire::MplsLabel,
                                                                       Wire::IntfId ) {
  unimplemented( "createEsiPortMap" );
  return LfibHwProgrammingReturnCode::notProgrammed;
}

void EsiFilteringDecapHelper::deleteEsiPortMap( Wire::MplsLabel, Wire::IntfId ) {
  unimplemented( "deleteEsiPortMap" );
}

} // namespace KezHelper
