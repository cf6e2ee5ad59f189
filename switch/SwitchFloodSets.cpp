#include "switch/SwitchFloodSets.h"

#include "Ringlog/Trace.h"

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
  return work_.size();
}

void SwitchFloodSets::VexFecRequest::onAttribute( Vex::AttrId, const void * key ) {
  sm()->handleFecRequest( Kez::FecIdToHwFecIdRequest::fecAttr.key( key ) );
}

void SwitchFloodSets::VexVlanFloodSetConfig::onAttribute( Vex::AttrId, const void * key ) {
  sm()->accept( DestWork( fwkKey(), Kez::VlanFloodSetConfig::mplsDestConfigAttr.key( key ) ) );
}

void SwitchFloodSets::VexVlanFloodSetConfig::handleNotifier() {
  const auto floodSet = notifier();
  for ( const auto & config : floodSet->mplsDestConfig() ) {
    sm()->accept( DestWork( fwkKey(), config ) );
  }
}

// Requested is what has both halves, withdrawn what has neither.
void SwitchFloodSets::handleFecRequest( FecId fecId ) {
  const bool requested = fecRequest()->hwFecIdRequestHas( fecId );
  if ( requested != fecRequest()->fecHas( fecId ) ) {
    return;
  }
  FecWork work{ fecId, {}, fecRequest()->hwFecIdRequest( fecId ).hwTunnelId, false };
  if ( requested ) {
    // A withdrawal that has not come about need not.
    std::erase_if( work_, [ & ]( const Work & each ) {
      const auto * fec = std::get_if< FecWork >( &each.what );
      return fec && fec->fecId == fecId && !fec->answer;
    } );
    work.answer.emplace( hwFecIdOf( fecId ), fecRequest()->fec( fecId ).via.front().intfId );
  }
  accept( work );
}

// No request overtakes an earlier one for the same FEC, even when the delay was made shorter since.
void SwitchFloodSets::accept( const FecWork & work ) {
  const double now = Vex::Clock::now();
  const auto at = lastFecWork_.find( work.fecId );
  const bool waits = at != lastFecWork_.end() && at->second >= now;
  if ( !waits && !( answerDelay() > 0 ) ) {
    doWork( work );
    return;
  }
  const double due = std::max( now + answerDelay(), waits ? at->second : now );
  lastFecWork_[ work.fecId ] = due;
  workLater( work, due );
}

void SwitchFloodSets::accept( const DestWork & work ) {
  if ( answerDelay() > 0 ) {
    workLater( work, Vex::Clock::now() + answerDelay() );
  } else {
    doWork( work );
  }
}

template< class T > void SwitchFloodSets::workLater( const T & work, double due ) {
  const auto at =
      std::upper_bound( work_.begin(), work_.end(), due,
                        []( double time, const Work & each ) { return time < each.due; } );
  work_.insert( at, Work{ due, work } );
  delay_.setAt( work_.front().due );
}

void SwitchFloodSets::doDueWork() {
  const double now = Vex::Clock::now();
  while ( !work_.empty() && work_.front().due <= now ) {
    const auto at = work_.begin() + static_cast< ptrdiff_t >( nextWork( now ) );
    const auto work = at->what;
    work_.erase( at );
    std::visit( [ this ]( const auto & what ) { doWork( what ); }, work );
  }
  if ( !work_.empty() ) {
    delay_.setAt( work_.front().due );
  }
}

// Which of what is due, the first of all, is done next.
size_t SwitchFloodSets::nextWork( double now ) {
  if ( shuffleSeed() == 0 ) {
    return 0;
  }
  const auto end = std::find_if( work_.begin(), work_.end(),
                                 [ & ]( const Work & each ) { return each.due > now; } );
  random_.seed( shuffleSeed() );
  shuffleSeedIs( random_() | 1 );
  const size_t chosen = random_() % size_t( end - work_.begin() );
  const auto isSame = [ & ]( const Work & each ) {
    const auto * fec = std::get_if< FecWork >( &each.what );
    const auto * chosenFec = std::get_if< FecWork >( &work_[ chosen ].what );
    return fec && chosenFec && fec->fecId == chosenFec->fecId;
  };
  const auto first = std::find_if( work_.begin(), work_.begin() + ptrdiff_t( chosen ), isSame );
  return size_t( first - work_.begin() );
}

void SwitchFloodSets::doWork( const FecWork & work ) {
  const auto fecId = work.fecId;
  auto & hardware = *simulatedSwitch_;
  if ( work.retry && !fecRequest()->hwFecIdRequestHas( fecId ) ) {
    return;
  }
  const bool there = hardware.fecHas( fecId );
  const auto arguments = [ & ] { return Vex::text( fecId ); };
  if ( work.answer ) {
    const bool room = there || hardware.hasRoom( Table::fec );
    const auto given = [ & ] { return Vex::briefText( *work.answer ); };
    if ( hardware.creation( Operation::createFec, room, std::nullopt, arguments, given ) ) {
      auto again = work;
      again.retry = true;
      workLater( again, Vex::Clock::now() + retryInterval() );
      return;
    }
    // It may have been requested with another hardware tunnel id since it was refused.
    const auto hwTunnelId =
        work.retry ? fecRequest()->hwFecIdRequest( fecId ).hwTunnelId : work.hwTunnelId;
    TRACE( 5, "createFec ", fecId, " hwTunnelId ", hwTunnelId );
    hardware.fecIs( fecId, hwTunnelId );
    fecResponse()->hwFecIdResponseIs( fecId, *work.answer );
    return;
  }
  const bool used = hardware.hwFecIdUse( hwFecIdOf( fecId ) ) > 0;
  const auto wrong = used ? std::optional( WrongCall{ "a destination uses it" } ) : std::nullopt;
  if ( there && hardware.deletion( Operation::deleteFec, wrong, arguments ) ) {
    TRACE( 5, "deleteFec ", fecId );
    hardware.fecDel( fecId );
    fecResponse()->hwFecIdResponseDel( fecId );
  }
}

void SwitchFloodSets::doWork( const DestWork & work ) {
  auto & hardware = *simulatedSwitch_;
  const auto & [ macVlanPair, config ] = work;
  const auto floodSet = hwConfig()->config( macVlanPair );
  const bool configured = floodSet && floodSet->mplsDestConfigHas( config );
  const bool there = hardware.floodSetDestHas( work );
  const auto hwFecId = config.hwIdForTunnelProgramming;
  const auto arguments = [ & ] { return Vex::briefText( work ); };
  if ( configured && !there ) {
    if ( hardware.creation( Operation::createFloodSetDest, hardware.hasRoom( Table::floodSetDest ),
                            std::nullopt, arguments ) ) {
      workLater( work, Vex::Clock::now() + retryInterval() );
      hwStatus()
          ->statusIs( macVlanPair )
          ->mplsDestStatusIs( config, HwProgrammingStatus::notProgrammed );
      return;
    }
    TRACE( 5, "createFloodSetDest ", work );
    hardware.floodSetDestIs( work );
    hardware.hwFecIdUseInc( hwFecId );
    hwStatus()
        ->statusIs( macVlanPair )
        ->mplsDestStatusIs( config, HwProgrammingStatus::programmed );
  } else if ( !configured ) {
    if ( there && hardware.deletion( Operation::deleteFloodSetDest, std::nullopt, arguments ) ) {
      TRACE( 5, "deleteFloodSetDest ", work );
      hardware.floodSetDestDel( work );
      if ( hardware.hwFecIdUseDec( hwFecId ) == 0 ) {
        hardware.hwFecIdUseDel( hwFecId );
      }
    }
    if ( const auto status = hwStatus()->status( macVlanPair ) ) {
      status->mplsDestStatusDel( config );
      if ( status->mplsDestStatuss() == 0 ) {
        hwStatus()->statusDel( macVlanPair );
      }
    }
  }
}

} // namespace Switch
