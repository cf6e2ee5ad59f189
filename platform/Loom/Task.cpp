#include "Loom/Task.h"

#include "Vex/Clock.h"

#include <algorithm>
#include <cmath>

namespace Loom {

Task::Task( const Vex::Ptr< TaskScheduler > & scheduler, TaskPriority priority,
            const Vex::String & name )
    : taskScheduler_( scheduler ), taskPriority_( priority ), taskName_( name ) {}

Task::~Task() {
  cancel();
}

std::optional< double > Task::nextRun() const {
  if ( ready() ) {
    return Vex::Clock::now();
  }
  return delayed() ? std::optional( delay_.time() ) : std::nullopt;
}

void Task::scheduleAfter( double seconds ) {
  VEX_ASSERT( !std::isnan( seconds ) );
  if ( seconds <= 0 ) {
    scheduleNow();
    return;
  }
  const double now = Vex::Clock::now();
  const double time = std::max( now + seconds, std::nextafter( now, HUGE_VAL ) );
  if ( ready() || ( delayed() && delay_.time() <= time ) ) {
    return;
  }
  taskScheduler_->delayedTasks_ += !delayed();
  delay_.setAt( time );
}

void Task::cancel() {
  if ( delayed() ) {
    endDelay();
  } else if ( ready() ) {
    LinkedList< Task >::remove( *this );
  }
}

void Task::endDelay() {
  delay_.cancel();
  --taskScheduler_->delayedTasks_;
}

void Task::Delay::fire() {
  --task_.taskScheduler_->delayedTasks_;
  task_.taskScheduler_->makeReady( task_ );
}

const Vex::Ptr< TimerWheel > & Task::timerWheel() const {
  VEX_ASSERT( taskScheduler() );
  return taskScheduler()->timerWheel();
}

bool Task::taskShouldYield() {
  const bool yields = running() && ( taskScheduler_->usage_.work >= taskScheduler_->workBudget() ||
                                     taskScheduler_->timeSliceOver() );
  yields_ += yields;
  return yields;
}

} // namespace Loom
