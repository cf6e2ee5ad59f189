#include "KezHelper/EsiFilteringDecapHelperStub.h"

namespace KezHelper {

Vex::Ptr< EsiFilteringDecapHelperStub >
esiFilteringDecapHelperStubFactory( const Vex::String & name ) {
  return Vex::makePtr< EsiFilteringDecapHelperStub >( name );
}

Mpls::LfibHwProgrammingReturnCode
EsiFilteringDecapHelperStub::createEsiPortMap( Wire::MplsLabel label, Wire::IntfId intfId ) {
  createEsiPortMapLabelIs( label );
  createEsiPortMapIntfIdIs( intfId );
  createEsiPortMapCountIs( createEsiPortMapCount() + 1 );
  return createEsiPortMapRc();
}

void EsiFilteringDecapHelperStub::deleteEsiPortMap( Wire::MplsLabel label, Wire::IntfId intfId ) {
  deleteEsiPortMapLabelIs( label );
  deleteEsiPortMapIntfIdIs( intfId );
  deleteEsiPortMapCountIs( deleteEsiPortMapCount() + 1 );
}

} // namespace KezHelper
