#include "record/SteppedPace.h"

#include "Loom/Task.h"
#include "Vex/Clock.h"

#include <cmath>

namespace Agent {

double SteppedPace::start() {
  return std::floor( Vex::Clock::steadyNow() * 1e6 ) / 1e6;
}

void SteppedPace::schedulerIs( Loom::TaskScheduler & scheduler ) {
  scheduler.sliceJudgeIs( [ this ]( const Loom::Task & task, uint64_t question, bool over ) {
    if ( over && ( question == 0 || !ended_ ) ) {
      recorder_.yieldIs( task.taskName(), task.runs(), question );
    }
    ended_ = over;
    return over;
  } );
}

double SteppedPace::now() {
  Vex::Clock::advanceTo( start() );
  return Vex::Clock::now();
}

void SteppedPace::waitUntil( double time ) {
  sleep( time - Vex::Clock::steadyNow() );
}

} // namespace Agent
