#include "switch/SwitchMacs.h"

static Ringlog::Handle traceHandle( "KezSwitchMacs" );

namespace Switch {

using Bridging::MacVlanPair;

SwitchMacs::SwitchMacs( const Vex::Ptr< SimulatedSwitch > & hardware,
                        const Vex::Ptr< Loom::TimerWheel > & timerWheel,
                        const Vex::Ptr< const Kez::FecIdToHwFecIdRequest > & fecRequest,
                        const Vex::Ptr< Kez::FecIdToHwFecIdResponse > & fecResponse,
                        const Vex::Ptr< const Kez::MacAddrFecStatus > & macAddrFecStatus,
                        const Vex::Ptr< Kez::MacAddrHwStatus > & macAddrHwStatus )
    : SwitchFecs( traceHandle, "macEntry", "a MAC entry uses it", hardware, timerWheel, fecRequest,
                  fecResponse ),
      macAddrFecStatus_( macAddrFecStatus ), macAddrHwStatus_( macAddrHwStatus ),
      macEntries_( switchTable< MacVlanPair, uint64_t >(
          [ this ] { return simulatedSwitch()->macEntry(); },
          [ this ]( const MacVlanPair & host ) {
            return entryOf( simulatedSwitch()->macEntryHas( host ),
                            simulatedSwitch()->macEntry( host ) );
          } ) ),
      macAddrFecStatusReactor_( *this ) {
  watchFecRequests();
  macAddrFecStatusReactor_.notifierIs( macAddrFecStatus );
}

void SwitchMacs::VexMacAddrFecStatus::onAttribute( Vex::AttrId, const void * key ) {
  sm()->changed( Kez::MacAddrFecStatus::hostAttr.key( key ) );
}

void SwitchMacs::VexMacAddrFecStatus::handleNotifier() {
  const auto status = notifier();
  for ( const auto & [ host, fec ] : status->host() ) {
    sm()->changed( host );
  }
}

bool SwitchMacs::isOwn( uint64_t hwFecId ) const {
  return hwFecKindOf( hwFecId ) != 0;
}

void SwitchMacs::see( const MacVlanPair & host ) {
  if ( macAddrFecStatus()->hostHas( host ) ) {
    program( host, macAddrFecStatus()->host( host ) );
  } else {
    unprogram( host );
  }
}

void SwitchMacs::program( const MacVlanPair & host, const Kez::MacFec & fec ) {
  auto & hardware = *simulatedSwitch();
  const bool stands = hardware.macEntryHas( host );
  if ( stands && hardware.macEntry( host ) == fec.hwFecId ) {
    if ( !macAddrHwStatus()->hostHas( host ) ) {
      kept();
    }
    macAddrHwStatus()->refusalDel( host );
    macAddrHwStatus()->programmedIs( host, fec.fecId );
    return;
  }
  const bool usable = isUsable( fec.hwFecId );
  if ( !usable || calledNow().creation(
                      Operation::createMacEntry,
                      hardware.hasRoom( Operation::createMacEntry, stands ), std::nullopt, [ & ] {
                        return Vex::briefText( host ) + " hwFecId " + Vex::text( fec.hwFecId );
                      } ) ) {
    refused( *macAddrHwStatus(), host, usable ? hardware.lastFailure() : fecNotUsable );
    retry( host );
    return;
  }
  TRACE( 5, "createMacEntry ", host, " hwFecId ", fec.hwFecId );
  hardware.macEntryIs( host, fec.hwFecId );
  usedBy( host, fec.hwFecId );
  macAddrHwStatus()->refusalDel( host );
  macAddrHwStatus()->programmedIs( host, fec.fecId );
}

void SwitchMacs::unprogram( const MacVlanPair & host ) {
  if ( !leavesStanding() ) {
    removeUser( host );
    leftBy( host );
  }
  macAddrHwStatus()->refusalDel( host );
  macAddrHwStatus()->programmedDel( host );
}

void SwitchMacs::removeUser( const MacVlanPair & host ) {
  auto & hardware = *simulatedSwitch();
  if ( hardware.macEntryHas( host ) &&
       calledNow().deletion( Operation::deleteMacEntry, std::nullopt,
                             [ & ] { return Vex::briefText( host ); } ) ) {
    TRACE( 5, "deleteMacEntry ", host );
    hardware.macEntryDel( host );
  }
}

void SwitchMacs::lost( const MacVlanPair & host ) {
  macAddrHwStatus()->programmedDel( host );
}

} // namespace Switch
