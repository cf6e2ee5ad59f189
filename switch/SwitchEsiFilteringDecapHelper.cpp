#include "switch/SwitchEsiFilteringDecapHelper.h"

#include "Ringlog/Trace.h"
#include "switch/SwitchTable.h"

static Ringlog::Handle traceHandle( "KezSwitchEsiFilteringDecapHelper" );

namespace Switch {

using Mpls::LfibHwProgrammingReturnCode;

namespace {

auto textOf( Wire::MplsLabel label, Wire::IntfId intfId ) {
  return [ label, intfId ] { return Vex::text( label ) + " " + Vex::text( intfId ); };
}

LfibHwProgrammingReturnCode codeOf( bool there, Failure failure ) {
  if ( there ) {
    return LfibHwProgrammingReturnCode::conflict;
  }
  return failure == Failure::tableFull ? LfibHwProgrammingReturnCode::tableFull
                                       : LfibHwProgrammingReturnCode::notProgrammed;
}

} // namespace

SwitchEsiFilteringDecapHelper::SwitchEsiFilteringDecapHelper(
    const Vex::String & name, const Vex::Ptr< SimulatedSwitch > & hardware )
    : EsiFilteringDecapHelper( name ), simulatedSwitch_( hardware ),
      esiPortMap_( switchTable< Wire::IntfId, Wire::MplsLabel >(
          [ &table = *hardware ] { return table.esiPortMap(); },
          [ &table = *hardware ]( Wire::IntfId intfId ) {
            return entryOf( table.esiPortMapHas( intfId ), table.esiPortMap( intfId ) );
          } ) ) {}

LfibHwProgrammingReturnCode SwitchEsiFilteringDecapHelper::createEsiPortMap( Wire::MplsLabel label,
                                                                             Wire::IntfId intfId ) {
  auto & hardware = *simulatedSwitch_;
  const bool there = hardware.esiPortMapHas( intfId );
  auto code = LfibHwProgrammingReturnCode::success;
  if ( const auto failure = hardware.creation(
           Operation::createEsiPortMap, hardware.hasRoom( Operation::createEsiPortMap, there ),
           wrongIf( there, "the interface has a map" ), textOf( label, intfId ) ) ) {
    code = codeOf( there, *failure );
  } else {
    hardware.esiPortMapIs( intfId, label );
  }
  TRACE( 5, "createEsiPortMap ", label, " ", intfId, ": ", code );
  return code;
}

void SwitchEsiFilteringDecapHelper::deleteEsiPortMap( Wire::MplsLabel label, Wire::IntfId intfId ) {
  auto & hardware = *simulatedSwitch_;
  TRACE( 5, "deleteEsiPortMap ", label, " ", intfId );
  const bool there = hardware.esiPortMapHas( intfId ) && hardware.esiPortMap( intfId ) == label;
  if ( hardware.deletion( Operation::deleteEsiPortMap, wrongIf( !there, "it is not there" ),
                          textOf( label, intfId ) ) ) {
    hardware.esiPortMapDel( intfId );
  }
}

} // namespace Switch
