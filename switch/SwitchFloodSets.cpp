#include "switch/SwitchFloodSets.h"

static Ringlog::Handle traceHandle( "KezSwitchFloodSets" );

namespace Switch {

using Kez::HwProgrammingStatus;

SwitchFloodSets::SwitchFloodSets( const Vex::Ptr< SimulatedSwitch > & hardware,
                                  const Vex::Ptr< Loom::TimerWheel > & timerWheel,
                                  const Vex::Ptr< const Kez::FecIdToHwFecIdRequest > & fecRequest,
                                  const Vex::Ptr< Kez::FecIdToHwFecIdResponse > & fecResponse,
                                  const Vex::Ptr< const Kez::EvpnVlanFloodSetHwConfig > & hwConfig,
                                  const Vex::Ptr< Kez::EvpnVlanFloodSetHwStatus > & hwStatus )
    : SwitchFecs( traceHandle, "floodSetDest", "a destination uses it", hardware, timerWheel,
                  fecRequest, fecResponse ),
      hwConfig_( hwConfig ), hwStatus_( hwStatus ),
      dests_( switchTable< Dest, Vex::NoValue >(
          [ this ] { return simulatedSwitch()->floodSetDest(); },
          [ this ]( const Dest & dest ) {
            return entryOf( simulatedSwitch()->floodSetDestHas( dest ) );
          } ) ),
      hwConfigReactor_( *this ) {
  watchFecRequests();
  hwConfigReactor_.notifierIs( hwConfig );
}

void SwitchFloodSets::VexVlanFloodSetConfig::onAttribute( Vex::AttrId, const void * key ) {
  sm()->changed( Dest( fwkKey(), Kez::VlanFloodSetConfig::mplsDestConfigAttr.key( key ) ) );
}

void SwitchFloodSets::VexVlanFloodSetConfig::handleNotifier() {
  const auto floodSet = notifier();
  for ( const auto & config : floodSet->mplsDestConfig() ) {
    sm()->changed( Dest( fwkKey(), config ) );
  }
}

bool SwitchFloodSets::isOwn( uint64_t hwFecId ) const {
  return hwFecKindOf( hwFecId ) == 0;
}

void SwitchFloodSets::see( const Dest & dest ) {
  const auto floodSet = hwConfig()->config( dest.macVlanPair );
  if ( !floodSet || !floodSet->mplsDestConfigHas( dest.config ) ) {
    unprogram( dest );
  } else if ( !simulatedSwitch()->floodSetDestHas( dest ) ) {
    program( dest );
  } else if ( const auto status = hwStatus()->statusIs( dest.macVlanPair );
              !status->mplsDestStatusHas( dest.config ) ) {
    kept();
    status->mplsDestStatusIs( dest.config, HwProgrammingStatus::programmed );
  }
}

void SwitchFloodSets::program( const Dest & dest ) {
  auto & hardware = *simulatedSwitch();
  auto status = HwProgrammingStatus::programmed;
  const bool usable = isUsable( dest.config.hwIdForTunnelProgramming );
  if ( !usable || calledNow().creation( Operation::createFloodSetDest,
                                        hardware.hasRoom( Operation::createFloodSetDest, false ),
                                        std::nullopt, [ & ] { return Vex::briefText( dest ); } ) ) {
    refused( *hwStatus(), dest, usable ? hardware.lastFailure() : fecNotUsable );
    retry( dest );
    status = HwProgrammingStatus::notProgrammed;
  } else {
    TRACE( 5, "createFloodSetDest ", dest );
    hwStatus()->refusalDel( dest );
    hardware.floodSetDestIs( dest );
    usedBy( dest, dest.config.hwIdForTunnelProgramming );
  }
  hwStatus()->statusIs( dest.macVlanPair )->mplsDestStatusIs( dest.config, status );
}

void SwitchFloodSets::unprogram( const Dest & dest ) {
  if ( !leavesStanding() ) {
    removeUser( dest );
    leftBy( dest );
  }
  hwStatus()->refusalDel( dest );
  hwStatus()->statusMemberDel( dest.macVlanPair, dest.config );
}

void SwitchFloodSets::removeUser( const Dest & dest ) {
  auto & hardware = *simulatedSwitch();
  if ( hardware.floodSetDestHas( dest ) &&
       calledNow().deletion( Operation::deleteFloodSetDest, std::nullopt,
                             [ & ] { return Vex::briefText( dest ); } ) ) {
    TRACE( 5, "deleteFloodSetDest ", dest );
    hardware.floodSetDestDel( dest );
  }
}

void SwitchFloodSets::lost( const Dest & dest ) {
  hwStatus()
      ->statusIs( dest.macVlanPair )
      ->mplsDestStatusIs( dest.config, HwProgrammingStatus::notProgrammed );
}

} // namespace Switch
