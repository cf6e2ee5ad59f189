#include "KezHelper/Audit.h"

#include "Ringlog/Trace.h"
#include "Vex/Clock.h"

#include <algorithm>

static Ringlog::Handle traceHandle( "KezAudit" );

namespace KezHelper {

// How often it looks whether hardware has been taken over.
static constexpr double lookInterval = 1.0; // seconds

Audit::Run::Run( const Vex::Ptr< Loom::TaskScheduler > & scheduler, Audit & owner )
    : Task( scheduler, 3, "audit" ), owner_( owner ) {}

Audit::Audit( const Vex::Ptr< Loom::TaskScheduler > & scheduler,
              const Vex::Ptr< const Takeover > & takeover )
    : takeover_( takeover ), run_( Vex::makePtr< Run >( scheduler, *this ) ) {}

Audit::~Audit() {
  run_->cancel();
}

void Audit::partsAre( const Vex::Ptr< const Vex::Entity > & owner, AuditParts parts ) {
  for ( auto & part : parts.parts_ ) {
    const auto at = std::ranges::upper_bound(
        parts_, part->rank(), {}, []( const Owned & each ) { return each.part->rank(); } );
    parts_.insert( at, { owner, std::move( part ) } );
  }
}

void Audit::begin( bool repairs ) {
  beginRound( repairs );
  run_->scheduleNow();
}

void Audit::beginRound( bool repairs ) {
  if ( underWay_ ) {
    repairsNow_ |= repairs;
    return;
  }
  TRACE( 5, "begin" );
  underWay_ = true;
  repairsNow_ = repairs;
  at_ = 0;
  comparedIs( 0 );
  foundSoFar_.clear();
  notFoundAgain_.clear();
  for ( const auto & [ entry, difference ] : difference() ) {
    notFoundAgain_.insert( entry );
  }
}

void Audit::intervalChanged() {
  run_->cancel();
  if ( underWay_ ) {
    run_->scheduleNow();
  } else if ( interval() > 0 ) {
    run_->scheduleAfter( interval() );
  }
}

void Audit::go() {
  if ( !underWay_ ) {
    beginRound( repairs() );
  }
  if ( takeover_ && !takeover_->hasEnded() ) {
    run_->scheduleAfter( lookInterval );
  } else if ( !goRound() ) {
    run_->scheduleNow();
  } else {
    endRound();
  }
}

// Whether it has come round.
bool Audit::goRound() {
  while ( at_ < parts_.size() ) {
    if ( !parts_[ at_ ].part->auditOne( *this ) ) {
      ++at_;
    }
    run_->taskWorkInc();
    if ( run_->taskShouldYield() ) {
      return false;
    }
  }
  return true;
}

void Audit::endRound() {
  for ( const auto & entry : notFoundAgain_ ) {
    TRACE( 1, "no more ", entry );
    differenceDel( entry );
  }
  foundDelAll();
  for ( const auto & [ kind, times ] : foundSoFar_ ) {
    foundInc( kind, times );
  }
  underWay_ = false;
  roundsIs( rounds() + 1 );
  TRACE( 5, "end: compared ", compared(), " differences ", differences(), " repaired ",
         repaired() );
  intervalChanged();
}

void Audit::differs( const Vex::String & entry, const Difference & found ) {
  notFoundAgain_.erase( entry );
  ++foundSoFar_[ found.kind ];
  if ( found.repair == Repair::done ) {
    repairedIs( repaired() + 1 );
  }
  if ( !differenceHas( entry ) ) {
    TRACE( 1, found.kind, " ", entry, " in hardware ", found.inHardware, " on record ",
           found.onRecord, " asked for ", found.askedFor, " repair ", found.repair );
    if ( differences() - notFoundAgain_.size() >= differenceLimit() ) {
      return;
    }
    differenceIs( entry )->sinceIs( Vex::Clock::now() );
  }
  const auto now = difference( entry );
  now->machineIs( found.machine );
  now->kindIs( found.kind );
  now->inHardwareIs( found.inHardware );
  now->onRecordIs( found.onRecord );
  now->askedForIs( found.askedFor );
  now->repairIs( found.repair );
}

} // namespace KezHelper
