// An ESI filtering helper without hardware: counts the calls of each operation, keeps the
// arguments of the latest, and answers what it was set to, `success` at first.
#pragma once

#include "KezHelper/EsiFilteringDecapHelper.h"

namespace KezHelper {

class EsiFilteringDecapHelperStub : public EsiFilteringDecapHelper {
  VEX_ENTITY( EsiFilteringDecapHelperStub, "KezHelper::EsiFilteringDecapHelperStub",
              EsiFilteringDecapHelper )

  VEX_ATTRIBUTE( 1, createEsiPortMapRc, Mpls::LfibHwProgrammingReturnCode )
  VEX_ATTRIBUTE( 2, createEsiPortMapCount, uint32_t )
  VEX_ATTRIBUTE( 3, createEsiPortMapLabel, Wire::MplsLabel )
  VEX_ATTRIBUTE( 4, createEsiPortMapIntfId, Wire::IntfId )

  VEX_ATTRIBUTE( 5, deleteEsiPortMapCount, uint32_t )
  VEX_ATTRIBUTE( 6, deleteEsiPortMapLabel, Wire::MplsLabel )
  VEX_ATTRIBUTE( 7, deleteEsiPortMapIntfId, Wire::IntfId )

  VEX_ATTRIBUTES( createEsiPortMapRc, createEsiPortMapCount, createEsiPortMapLabel,
                  createEsiPortMapIntfId, deleteEsiPortMapCount, deleteEsiPortMapLabel,
                  deleteEsiPortMapIntfId )

public:
  using EsiFilteringDecapHelper::EsiFilteringDecapHelper;

  Mpls::LfibHwProgrammingReturnCode createEsiPortMap( Wire::MplsLabel label,
                                                      Wire::IntfId intfId ) override;
  void deleteEsiPortMap( Wire::MplsLabel label, Wire::IntfId intfId ) override;
};

Vex::Ptr< EsiFilteringDecapHelperStub >
esiFilteringDecapHelperStubFactory( const Vex::String & name );

} // namespace KezHelper
