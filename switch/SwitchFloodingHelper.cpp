#include "switch/SwitchFloodingHelper.h"

#include "Ringlog/Trace.h"
#include "switch/SwitchTable.h"

static Ringlog::Handle traceHandle( "KezSwitchFloodingHelper" );

namespace Switch {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Kez::HwProgrammingStatus;
using Wire::IntfId;

namespace {

template< class Key > auto tagged( const Key & key, VlanIdOrNone dot1q ) {
  return [ key, dot1q ] { return Vex::briefText( key ) + " dot1q " + Vex::text( dot1q ); };
}

template< class Key > auto untagged( const Key & key ) {
  return [ key ] { return Vex::briefText( key ); };
}

constexpr auto isThere = "it is there";

WrongCall hasTag( VlanIdOrNone dot1q ) {
  return { "it has dot1q " + Vex::text( dot1q ) };
}

std::optional< WrongCall > wrongUnless( bool there ) {
  return wrongIf( !there, "it is not there" );
}

// Of a deletion of what has the tag `present`, if it is there.
std::optional< WrongCall > wrongUnlessTagged( bool there, VlanIdOrNone present,
                                              VlanIdOrNone dot1q ) {
  return there && present != dot1q ? hasTag( present ) : wrongUnless( there );
}

template< class Arguments, class Program >
HwProgrammingStatus create( SimulatedSwitch & hardware, Operation operation, bool there,
                            const std::optional< WrongCall > & wrong, const Arguments & arguments,
                            const Program & program ) {
  auto status = HwProgrammingStatus::programmed;
  if ( const auto failure = hardware.creation( operation, hardware.hasRoom( operation, there ),
                                               wrong, arguments ) ) {
    status = *failure == Failure::invalidHwId ? HwProgrammingStatus::invalidHwId
                                              : HwProgrammingStatus::notProgrammed;
  } else {
    program();
  }
  TRACE( 5, operation, " ", arguments(), ": ", status );
  return status;
}

template< class Arguments, class Unprogram >
void remove( SimulatedSwitch & hardware, Operation operation,
             const std::optional< WrongCall > & wrong, const Arguments & arguments,
             const Unprogram & unprogram ) {
  TRACE( 5, operation, " ", arguments() );
  if ( hardware.deletion( operation, wrong, arguments ) ) {
    unprogram();
  }
}

} // namespace

SwitchFloodingHelper::SwitchFloodingHelper( const Vex::String & name,
                                            const Vex::Ptr< SimulatedSwitch > & hardware )
    : EvpnFloodingSmHelper( name ), simulatedSwitch_( hardware ),
      vlan_( switchTable< VlanId, VlanIdOrNone >( [ &table = *hardware ] { return table.vlan(); },
                                                  [ &table = *hardware ]( VlanId vlanId ) {
                                                    return entryOf( table.vlanHas( vlanId ),
                                                                    table.vlan( vlanId ) );
                                                  } ) ),
      dot1qMapping_( switchTable< PortVlanKey, VlanIdOrNone >(
          [ &table = *hardware ] { return table.dot1qMapping(); },
          [ &table = *hardware ]( const PortVlanKey & key ) {
            return entryOf( table.dot1qMappingHas( key ), table.dot1qMapping( key ) );
          } ) ),
      nonDfPort_( switchTable< PortVlanKey, Vex::NoValue >(
          [ &table = *hardware ] { return table.nonDfPort(); },
          [ &table = *hardware ]( const PortVlanKey & key ) {
            return entryOf( table.nonDfPortHas( key ) );
          } ) ),
      esiData_( switchTable< PortVlanKey, EsiData >(
          [ &table = *hardware ] { return table.esiData(); },
          [ &table = *hardware ]( const PortVlanKey & key ) {
            return entryOf( table.esiDataHas( key ), table.esiData( key ) );
          } ) ) {}

KezHelper::EvpnFloodingInventory SwitchFloodingHelper::inventory() const {
  return { vlan_.get(), dot1qMapping_.get(), nonDfPort_.get(), esiData_.get() };
}

HwProgrammingStatus SwitchFloodingHelper::createVlan( VlanId vlanId, VlanIdOrNone dot1q ) {
  auto & hardware = *simulatedSwitch_;
  const bool there = hardware.vlanHas( vlanId );
  const auto present = hardware.vlan( vlanId );
  const auto wrong = there && present != dot1q ? std::optional( hasTag( present ) ) : std::nullopt;
  return create( hardware, Operation::createVlan, there, wrong, tagged( vlanId, dot1q ),
                 [ & ] { hardware.vlanIs( vlanId, dot1q ); } );
}

void SwitchFloodingHelper::deleteVlan( VlanId vlanId, VlanIdOrNone dot1q ) {
  auto & hardware = *simulatedSwitch_;
  const auto wrong =
      wrongUnlessTagged( hardware.vlanHas( vlanId ), hardware.vlan( vlanId ), dot1q );
  remove( hardware, Operation::deleteVlan, wrong, tagged( vlanId, dot1q ),
          [ & ] { hardware.vlanDel( vlanId ); } );
}

HwProgrammingStatus SwitchFloodingHelper::createNonDfPort( IntfId parentIntfId, IntfId intfId,
                                                           VlanId vlanId ) {
  auto & hardware = *simulatedSwitch_;
  const PortVlanKey key( parentIntfId, intfId, vlanId );
  const bool there = hardware.nonDfPort( key );
  const auto wrong = wrongIf( there, isThere );
  return create( hardware, Operation::createNonDfPort, there, wrong, untagged( key ),
                 [ & ] { hardware.nonDfPortIs( key ); } );
}

void SwitchFloodingHelper::deleteNonDfPort( IntfId parentIntfId, IntfId intfId, VlanId vlanId ) {
  auto & hardware = *simulatedSwitch_;
  const PortVlanKey key( parentIntfId, intfId, vlanId );
  const auto wrong = wrongUnless( hardware.nonDfPort( key ) );
  remove( hardware, Operation::deleteNonDfPort, wrong, untagged( key ),
          [ & ] { hardware.nonDfPortDel( key ); } );
}

HwProgrammingStatus SwitchFloodingHelper::createVlanToDot1qMapping( IntfId parentIntfId,
                                                                    IntfId memberIntfId,
                                                                    VlanId vlanId,
                                                                    VlanIdOrNone dot1q ) {
  auto & hardware = *simulatedSwitch_;
  const PortVlanKey key( parentIntfId, memberIntfId, vlanId );
  const bool there = hardware.dot1qMappingHas( key );
  std::optional< WrongCall > wrong;
  if ( there ) {
    wrong = { isThere };
  } else if ( !hardware.vlanHas( vlanId ) ) {
    wrong = { "VLAN " + Vex::text( vlanId ) + " is not there" };
  } else if ( hardware.vlan( vlanId ) != dot1q ) {
    wrong = { "VLAN " + Vex::text( vlanId ) + " has dot1q " +
              Vex::text( hardware.vlan( vlanId ) ) };
  }
  return create( hardware, Operation::createVlanToDot1qMapping, there, wrong, tagged( key, dot1q ),
                 [ & ] { hardware.dot1qMappingIs( key, dot1q ); } );
}

void SwitchFloodingHelper::deleteVlanToDot1qMapping( IntfId parentIntfId, IntfId memberIntfId,
                                                     VlanId vlanId, VlanIdOrNone dot1q ) {
  auto & hardware = *simulatedSwitch_;
  const PortVlanKey key( parentIntfId, memberIntfId, vlanId );
  const auto wrong =
      wrongUnlessTagged( hardware.dot1qMappingHas( key ), hardware.dot1qMapping( key ), dot1q );
  remove( hardware, Operation::deleteVlanToDot1qMapping, wrong, tagged( key, dot1q ),
          [ & ] { hardware.dot1qMappingDel( key ); } );
}

HwProgrammingStatus SwitchFloodingHelper::createEsiData( IntfId parentIntfId, IntfId memberIntfId,
                                                         VlanId vlanId,
                                                         const Tunnel::TunnelTable::TunnelId & tid,
                                                         const Kez::HwTunnelId & hwTid,
                                                         Wire::MplsLabel dfEsiLabel,
                                                         Wire::MplsLabel localEsiLabel ) {
  auto & hardware = *simulatedSwitch_;
  const PortVlanKey key( parentIntfId, memberIntfId, vlanId );
  const EsiData data( tid, hwTid, dfEsiLabel, localEsiLabel );
  const bool there = hardware.esiDataHas( key );
  std::optional< WrongCall > wrong;
  if ( !hwTid.valid() ) {
    wrong = { "its hardware tunnel id is not valid", Failure::invalidHwId };
  } else if ( there && !updateSupportedOnCreateEsiData() ) {
    wrong = { isThere };
  }
  const auto arguments = [ & ] { return Vex::briefText( key ) + " " + Vex::briefText( data ); };
  return create( hardware, Operation::createEsiData, there, wrong, arguments,
                 [ & ] { hardware.esiDataIs( key, data ); } );
}

void SwitchFloodingHelper::deleteEsiData( IntfId parentIntfId, IntfId memberIntfId, VlanId vlanId,
                                          const Tunnel::TunnelTable::TunnelId &,
                                          const Kez::HwTunnelId & ) {
  auto & hardware = *simulatedSwitch_;
  const PortVlanKey key( parentIntfId, memberIntfId, vlanId );
  const auto wrong = wrongUnless( hardware.esiDataHas( key ) );
  remove( hardware, Operation::deleteEsiData, wrong, untagged( key ),
          [ & ] { hardware.esiDataDel( key ); } );
}

} // namespace Switch
