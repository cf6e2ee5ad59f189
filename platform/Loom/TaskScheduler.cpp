#include "Loom/TaskScheduler.h"

#include "Loom/Task.h"
#include "Vex/Clock.h"

#include <algorithm>
#include <numeric>

namespace Loom {

size_t TaskScheduler::runReady() {
  struct Turn {
    ~Turn() { scheduler->running_ = nullptr; }
    const Vex::Ptr< TaskScheduler > scheduler;
  };

  VEX_ASSERT( !running_ );
  const Turn turn{ this };
  makeDueReady();
  ++turn_;
  size_t runs = 0;
  for ( const auto & ready : ready_ ) {
    while ( auto * first = ready.first() ) {
      auto & task = static_cast< Task & >( *first );
      if ( task.readySince_ == turn_ ) {
        break;
      }
      const Vex::Ptr< Task > alive( &task );
      ReadyTasks::remove( task );
      ++task.runs_;
      ++runs;
      usage_ = {};
      running_ = &task;
      task.run();
    }
  }
  return runs;
}

void TaskScheduler::makeDueReady() {
  if ( delayed_.empty() ) {
    return;
  }
  const double now = Vex::Clock::now();
  while ( Task * task = delayed_.takeDue( now ) ) {
    makeReady( *task );
  }
}

std::optional< double > TaskScheduler::nextDeadline() const {
  if ( anyReady() ) {
    return Vex::Clock::now();
  }
  return delayed_.empty() ? std::nullopt : std::optional( delayed_.earliest() );
}

size_t TaskScheduler::readyTasks() const {
  return std::accumulate(
      ready_.begin(), ready_.end(), size_t( 0 ),
      []( size_t count, const ReadyTasks & ready ) { return count + ready.size(); } );
}

size_t TaskScheduler::delayedTasks() const {
  return delayed_.size();
}

bool TaskScheduler::anyReady() const {
  return std::any_of( ready_.begin(), ready_.end(),
                      []( const ReadyTasks & ready ) { return ready.first(); } );
}

bool TaskScheduler::timeSliceOver() {
  constexpr uint64_t asksPerLook = 16; // reading the clock may cost more than a unit of work
  if ( Vex::Clock::isVirtual() ) {
    return false;
  }
  const auto asked = usage_.timesAsked++;
  if ( asked % asksPerLook == 0 ) {
    const double now = Vex::Clock::now();
    if ( asked == 0 ) {
      sliceEnd_ = now + timeSlice();
    }
    sliceOver_ = now >= sliceEnd_;
  }
  return sliceOver_;
}

} // namespace Loom
