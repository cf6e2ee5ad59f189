#include "Loom/TaskScheduler.h"

#include "Loom/Task.h"
#include "Vex/Clock.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace Loom {

size_t TaskScheduler::runReady() {
  struct Turn {
    ~Turn() { scheduler->running_ = nullptr; }
    const Vex::Ptr< TaskScheduler > scheduler;
  };

  VEX_ASSERT( !running_ );
  const Turn turn{ this };
  timerWheel_->fireDue();
  ++turn_;
  size_t runs = 0;
  const bool timed = !Vex::Clock::isVirtual();
  const double begun = timed ? Vex::Clock::steadyNow() : 0;
  double now = begun;
  for ( const auto & ready : ready_ ) {
    for ( Task * task = ready.first(); task && task->readySince_ != turn_; task = ready.first() ) {
      const Vex::Ptr< Task > alive( task );
      LinkedList< Task >::remove( *task );
      ++task->runs_;
      ++runs;
      usage_ = {};
      running_ = task;
      task->run();
      task->work_ += usage_.work;
      if ( timed ) {
        const double before = std::exchange( now, Vex::Clock::steadyNow() );
        task->longestRun_ = std::max( task->longestRun_, now - before );
      }
    }
  }
  longestTurn_ = std::max( longestTurn_, now - begun );
  return runs;
}

std::optional< double > TaskScheduler::nextDeadline() const {
  return anyReady() ? Vex::Clock::now() : timerWheel_->nextDeadline();
}

size_t TaskScheduler::readyTasks() const {
  return std::accumulate( ready_.begin(), ready_.end(), size_t( 0 ),
                          []( size_t count, const auto & ready ) { return count + ready.size(); } );
}

size_t TaskScheduler::delayedTasks() const {
  return delayedTasks_;
}

double TaskScheduler::longestTurn() const {
  return longestTurn_;
}

bool TaskScheduler::anyReady() const {
  return std::any_of( ready_.begin(), ready_.end(),
                      []( const auto & ready ) { return !ready.empty(); } );
}

bool TaskScheduler::timeSliceOver() {
  constexpr uint64_t asksPerLook = 16; // reading the clock may cost more than a unit of work
  if ( Vex::Clock::isVirtual() && !sliceJudge_ ) {
    return false;
  }
  const auto asked = usage_.timesAsked++;
  if ( asked % asksPerLook == 0 ) {
    const double now = Vex::Clock::steadyNow();
    if ( asked == 0 ) {
      sliceEnd_ = now + timeSlice();
    }
    sliceOver_ = now >= sliceEnd_;
  }
  return sliceJudge_ ? sliceJudge_( *running_, asked, sliceOver_ ) : sliceOver_;
}

} // namespace Loom
