#include "Loom/Task.h"

#include "Vex/Clock.h"

namespace Loom {

Task::Task( const Vex::Ptr< TaskScheduler > & scheduler, TaskPriority priority,
            const Vex::String & name )
    : taskScheduler_( scheduler ), taskPriority_( priority ), taskName_( name ) {
  VEX_ASSERT( taskScheduler() );
}

Task::~Task() {
  cancel();
}

std::optional< double > Task::nextRun() const {
  if ( ready() ) {
    return Vex::Clock::now();
  }
  return delayed() ? std::optional( taskScheduler_->delayed_.time( *this ) ) : std::nullopt;
}

void Task::scheduleAfter( double seconds ) {
  if ( !( seconds > 0 ) ) {
    scheduleNow();
  } else if ( !ready() ) {
    taskScheduler_->delayed_.set( *this, Vex::Clock::now() + seconds );
  }
}

void Task::cancel() {
  if ( delayed() ) {
    taskScheduler_->delayed_.remove( *this );
  } else if ( ready() ) {
    ReadyTasks::remove( *this );
  }
}

bool Task::taskShouldYield() const {
  return running() && ( taskScheduler_->usage_.work >= taskScheduler_->workBudget() ||
                        taskScheduler_->timeSliceOver() );
}

} // namespace Loom
