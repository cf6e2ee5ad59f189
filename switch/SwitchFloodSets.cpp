#include "switch/SwitchFloodSets.h"

#include "Ringlog/Trace.h"
#include "switch/Random.h"

static Ringlog::Handle traceHandle( "KezSwitchFloodSets" );

namespace Switch {

using Kez::HwProgrammingStatus;
using Rook::Fib::FecId;

SwitchFloodSets::SwitchFloodSets( const Vex::Ptr< SimulatedSwitch > & hardware,
                                  const Vex::Ptr< Loom::TimerWheel > & timerWheel,
                                  const Vex::Ptr< const Kez::FecIdToHwFecIdRequest > & fecRequest,
                                  const Vex::Ptr< Kez::FecIdToHwFecIdResponse > & fecResponse,
                                  const Vex::Ptr< const Kez::EvpnVlanFloodSetHwConfig > & hwConfig,
                                  const Vex::Ptr< Kez::EvpnVlanFloodSetHwStatus > & hwStatus )
    : simulatedSwitch_( hardware ), fecRequest_( fecRequest ), fecResponse_( fecResponse ),
      hwConfig_( hwConfig ), hwStatus_( hwStatus ), delay_( timerWheel, *this ),
      fecRequestReactor_( *this ), hwConfigReactor_( *this ) {
  fecRequestReactor_.notifierIs( fecRequest );
  hwConfigReactor_.notifierIs( hwConfig );
}

uint64_t SwitchFloodSets::hwFecIdOf( FecId fecId ) {
  return ( fecId.value() & UINT32_MAX ) + 1;
}

size_t SwitchFloodSets::pendingAnswers() const {
  return agenda_.size();
}

void SwitchFloodSets::VexFecRequest::onAttribute( Vex::AttrId, const void * key ) {
  sm()->handleFecRequest( Kez::FecIdToHwFecIdRequest::fecAttr.key( key ) );
}

void SwitchFloodSets::VexFecRequest::handleNotifier() {
  const auto request = notifier();
  for ( const auto [ fecId, fec ] : request->fec() ) {
    sm()->handleFecRequest( fecId );
  }
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

bool SwitchFloodSets::isRequested( FecId fecId ) const {
  return !fecRequest()->fec( fecId ).via.empty() && fecRequest()->hwFecIdRequestHas( fecId );
}

bool SwitchFloodSets::isGivenUp( FecId fecId ) const {
  return !fecRequest()->fecHas( fecId ) && !fecRequest()->hwFecIdRequestHas( fecId );
}

SwitchFloodSets::Request SwitchFloodSets::standingRequest( FecId fecId ) const {
  return { { hwFecIdOf( fecId ), fecRequest()->fec( fecId ).via.front().intfId },
           fecRequest()->hwFecIdRequest( fecId ).hwTunnelId };
}

void SwitchFloodSets::handleFecRequest( FecId fecId ) {
  if ( isRequested( fecId ) ) {
    unanswered_[ fecId ] = standingRequest( fecId );
    changed( fecId );
  } else if ( isGivenUp( fecId ) ) {
    if ( const auto at = unanswered_.find( fecId ); at != unanswered_.end() ) {
      at->second.withdrawalDue =
          std::max( Vex::Clock::now() + answerDelay(), agenda_.dueOf( fecId ) );
    } else {
      changed( fecId );
    }
  }
}

void SwitchFloodSets::changed( const Subject & subject ) {
  if ( answerDelay() > 0 ) {
    dueIs( subject, Vex::Clock::now() + answerDelay() );
  } else {
    agenda_.del( subject );
    std::visit( [ this ]( const auto & what ) { see( what ); }, subject );
  }
}

void SwitchFloodSets::dueIs( const Subject & subject, double due ) {
  agenda_.dueIs( subject, due, nextOrder() );
  delay_.setAt( agenda_.nextDue() );
}

uint64_t SwitchFloodSets::nextOrder() {
  if ( shuffleSeed() == 0 ) {
    return ++changes_;
  }
  const auto number = randomNumber( shuffleSeed(), 1 );
  shuffleSeedIs( number | 1 );
  return number;
}

void SwitchFloodSets::doDueWork() {
  const double now = Vex::Clock::now();
  while ( agenda_.size() > 0 && agenda_.nextDue() <= now ) {
    std::visit( [ this ]( const auto & what ) { see( what ); }, agenda_.take() );
  }
  if ( agenda_.size() > 0 ) {
    delay_.setAt( agenda_.nextDue() );
  }
}

void SwitchFloodSets::see( FecId fecId ) {
  const auto unanswered = unanswered_.extract( fecId );
  if ( isRequested( fecId ) ) {
    answer( fecId, standingRequest( fecId ) );
  } else if ( unanswered ) {
    if ( isGivenUp( fecId ) ) {
      dueIs( fecId, unanswered.mapped().withdrawalDue );
    }
    answer( fecId, unanswered.mapped() );
  } else if ( isGivenUp( fecId ) ) {
    withdraw( fecId );
  }
}

void SwitchFloodSets::answer( FecId fecId, const Request & request ) {
  auto & hardware = *simulatedSwitch_;
  const bool room = hardware.hasRoom( Operation::createFec, hardware.fecHas( fecId ) );
  if ( hardware.creation(
           Operation::createFec, room, std::nullopt, [ & ] { return Vex::text( fecId ); },
           [ & ] { return Vex::briefText( request.answer ); } ) ) {
    if ( isRequested( fecId ) ) {
      dueIs( fecId, Vex::Clock::now() + retryInterval() );
    }
    return;
  }
  TRACE( 5, "createFec ", fecId, " hwTunnelId ", request.hwTunnelId );
  hardware.fecIs( fecId, request.hwTunnelId );
  fecResponse()->hwFecIdResponseIs( fecId, request.answer );
}

void SwitchFloodSets::withdraw( FecId fecId ) {
  auto & hardware = *simulatedSwitch_;
  if ( !hardware.fecHas( fecId ) ) {
    return;
  }
  const bool used = hardware.hwFecIdUse( hwFecIdOf( fecId ) ) > 0;
  if ( hardware.deletion( Operation::deleteFec, wrongIf( used, "a destination uses it" ),
                          [ & ] { return Vex::text( fecId ); } ) ) {
    TRACE( 5, "deleteFec ", fecId );
    hardware.fecDel( fecId );
    fecResponse()->hwFecIdResponseDel( fecId );
  }
}

void SwitchFloodSets::see( const Dest & dest ) {
  const auto floodSet = hwConfig()->config( dest.macVlanPair );
  if ( !floodSet || !floodSet->mplsDestConfigHas( dest.config ) ) {
    unprogram( dest );
  } else if ( !simulatedSwitch_->floodSetDestHas( dest ) ) {
    program( dest );
  }
}

void SwitchFloodSets::program( const Dest & dest ) {
  auto & hardware = *simulatedSwitch_;
  auto status = HwProgrammingStatus::programmed;
  if ( hardware.creation( Operation::createFloodSetDest,
                          hardware.hasRoom( Operation::createFloodSetDest, false ), std::nullopt,
                          [ & ] { return Vex::briefText( dest ); } ) ) {
    dueIs( dest, Vex::Clock::now() + retryInterval() );
    status = HwProgrammingStatus::notProgrammed;
  } else {
    TRACE( 5, "createFloodSetDest ", dest );
    hardware.floodSetDestIs( dest );
    hardware.hwFecIdUseInc( dest.config.hwIdForTunnelProgramming );
  }
  hwStatus()->statusIs( dest.macVlanPair )->mplsDestStatusIs( dest.config, status );
}

void SwitchFloodSets::unprogram( const Dest & dest ) {
  auto & hardware = *simulatedSwitch_;
  const auto hwFecId = dest.config.hwIdForTunnelProgramming;
  if ( hardware.floodSetDestHas( dest ) &&
       hardware.deletion( Operation::deleteFloodSetDest, std::nullopt,
                          [ & ] { return Vex::briefText( dest ); } ) ) {
    TRACE( 5, "deleteFloodSetDest ", dest );
    hardware.floodSetDestDel( dest );
    if ( hardware.hwFecIdUseDec( hwFecId ) == 0 ) {
      hardware.hwFecIdUseDel( hwFecId );
    }
  }
  hwStatus()->statusMemberDel( dest.macVlanPair, dest.config );
}

} // namespace Switch
