#include "KezHelper/Takeover.h"

#include "Ringlog/Trace.h"
#include "Vex/Clock.h"

static Ringlog::Handle traceHandle( "KezTakeover" );

namespace KezHelper {

// How often a takeover looks whether the machines are done with their inputs.
static constexpr double lookInterval = 0.1; // seconds

Takeover::Run::Run( const Vex::Ptr< Loom::TaskScheduler > & scheduler, Takeover & owner )
    : Task( scheduler, 3, "takeover" ), owner_( owner ) {}

Takeover::Takeover( const Vex::Ptr< Loom::TaskScheduler > & scheduler )
    : began_( Vex::Clock::now() ), run_( Vex::makePtr< Run >( scheduler, *this ) ) {
  run_->scheduleAfter( lookInterval );
}

Takeover::~Takeover() {
  run_->cancel();
}

void Takeover::go() {
  const bool late = Vex::Clock::now() - began_ >= timeLimit();
  if ( collects() && ( late || ( inputsComplete() && ( !settled_ || settled_() ) ) ) ) {
    TRACE( 1, "sweep, ", late ? "for the time limit" : "for the inputs are complete" );
    stateIs( TakeoverState::sweeping );
  }
  if ( collects() ) {
    run_->scheduleAfter( lookInterval );
  } else if ( !sweep() ) {
    run_->scheduleNow();
  } else {
    TRACE( 1, "ended: inherited ", inherited(), " kept ", kept(), " replaced ", replaced(),
           " removed ", removed() );
    stateIs( TakeoverState::ended );
  }
}

// Whether nothing is left to remove. A part that comes earlier may have got something new to remove
// meanwhile.
bool Takeover::sweep() {
  for ( const auto & [ rank, part ] : parts_ ) {
    while ( part->sweepOne() ) {
      run_->taskWorkInc();
      if ( run_->taskShouldYield() ) {
        return false;
      }
    }
  }
  return true;
}

} // namespace KezHelper
