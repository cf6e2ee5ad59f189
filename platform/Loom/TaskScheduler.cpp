#include "Loom/TaskScheduler.h"

#include "Loom/Task.h"
#include "Vex/Clock.h"

namespace Loom {

size_t TaskScheduler::runReady() {
  VEX_ASSERT( !running_ );
  const Vex::Ptr< TaskScheduler > alive( this );
  if ( !delayed_.empty() ) {
    const double now = Vex::Clock::now();
    while ( Task * task = delayed_.takeDue( now ) ) {
      makeReady( *task );
    }
  }
  ++turn_;
  size_t runs = 0;
  for ( const auto & ready : ready_ ) {
    while ( auto * first = ready.first() ) {
      auto & task = static_cast< Task & >( *first );
      if ( task.readySince_ == turn_ ) {
        break;
      }
      runOnce( task );
      ++runs;
    }
  }
  return runs;
}

std::optional< double > TaskScheduler::nextDeadline() const {
  if ( readyTasks_ ) {
    return Vex::Clock::now();
  }
  return delayed_.empty() ? std::nullopt : std::optional( delayed_.earliest() );
}

void TaskScheduler::makeReady( Task & task ) {
  task.readySince_ = turn_;
  ready_[ task.taskPriority_.value() ].append( task );
  ++readyTasks_;
}

void TaskScheduler::runOnce( Task & task ) {
  struct Run {
    Run( TaskScheduler & scheduler, const Task & task ) : scheduler( scheduler ) {
      scheduler.running_ = &task;
      scheduler.timesAsked_ = 0;
      scheduler.sliceOver_ = false;
    }
    ~Run() { scheduler.running_ = nullptr; }
    TaskScheduler & scheduler;
  };

  const Vex::Ptr< Task > alive( &task );
  ReadyTasks::remove( task );
  --readyTasks_;
  ++task.runs_;
  task.taskWork_ = 0;
  const Run run( *this, task );
  task.run();
}

bool TaskScheduler::timeSliceOver() {
  constexpr uint64_t asksPerLook = 16; // reading the clock costs more than a unit of work may
  if ( sliceOver_ || Vex::Clock::isVirtual() ) {
    return sliceOver_;
  }
  if ( timesAsked_ % asksPerLook == 0 ) {
    const double now = Vex::Clock::now();
    if ( timesAsked_ == 0 ) {
      sliceBegan_ = now;
    }
    sliceOver_ = now - sliceBegan_ >= timeSlice();
  }
  ++timesAsked_;
  return sliceOver_;
}

} // namespace Loom
