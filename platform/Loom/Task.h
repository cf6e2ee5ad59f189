// A piece of work with a name and a priority that a scheduler runs when it is asked for.
//
// At most one run is pending, and asking again can only bring it forward. While a task runs none
// is pending, unless it asks. A task may be scheduled, cancelled or destroyed at any moment, by
// its own run too: a run that drops the last reference returns before the task is destroyed, and
// a run that was pending then never comes. Tasks belong to their scheduler's thread, and are
// made by Vex::makePtr.
#pragma once

#include "Loom/TaskScheduler.h"

namespace Loom {

class Task : public Vex::Entity, private LinkedList< Task >::Link {
  VEX_ENTITY( Task, "Loom::Task" )
  VEX_OUTPUT( 54, taskScheduler, TaskScheduler )
  VEX_COMPUTED( 55, taskName, Vex::String )
  VEX_COMPUTED( 56, taskPriority, TaskPriority )
  // The time at which a run is due, the present one when the task is ready; none without any.
  VEX_COMPUTED( 57, nextRun, std::optional< double > )
  VEX_COMPUTED( 58, runs, uint64_t )   // begun so far
  VEX_COMPUTED( 53, yields, uint64_t ) // that the scheduler asked for
  VEX_COMPUTED( 51, work, uint64_t )   // units counted by the runs that have ended
  // In seconds, of the runs on the steady clock.
  VEX_COMPUTED( 52, longestRun, double )
  VEX_ATTRIBUTES( taskScheduler, taskName, taskPriority, nextRun, runs, yields, work, longestRun )
  VEX_OPERATIONS( VEX_OPERATION( scheduleNow ) )

public:
  static constexpr auto vexAccess = Vex::Access::readOnly;

  ~Task() override;

  // In the next turn of the scheduler.
  void scheduleNow();
  // In the first turn when so many seconds have passed, and on virtual time no earlier than at a
  // later time, however few they are; not above 0: as scheduleNow(). Infinitely many never pass;
  // NaN is fatal. A run that is pending for the same time or an earlier one stays as it is.
  void scheduleAfter( double seconds );
  void cancel();
  bool isScheduled() const { return ready() || delayed(); }

  // Counts units of work of the run under way; outside a run of this task there is nothing to
  // count.
  void taskWorkInc( uint64_t n = 1 ) {
    if ( running() ) {
      taskScheduler_->usage_.work += n;
    }
  }
  // Whether the run under way has used up its work budget or its time slice. The clock is read
  // when a run first asks, and then now and again. False outside a run of this task.
  bool taskShouldYield();

protected:
  Task( const Vex::Ptr< TaskScheduler > & scheduler, TaskPriority priority,
        const Vex::String & name );

  virtual void run() = 0;

private:
  friend class TaskScheduler;
  friend class LinkedList< Task >;

  // Makes the task ready when its time has come.
  class Delay final : public Timer {
  public:
    explicit Delay( Task & task ) : Timer( task.timerWheel() ), task_( task ) {}

  private:
    void fire() override;
    Task & task_;
  };

  void vexAppendKey( Vex::TextBuffer & out ) const override { out.append( taskName_ ); }
  bool ready() const { return next; }
  bool running() const { return taskScheduler_->running_ == this; }
  bool delayed() const { return delay_.isSet(); }
  const Vex::Ptr< TimerWheel > & timerWheel() const;
  void endDelay();

  const TaskPriority taskPriority_;
  uint64_t readySince_ = 0; // a turn
  uint64_t runs_ = 0;
  uint64_t yields_ = 0;
  uint64_t work_ = 0;
  double longestRun_ = 0;
  const Vex::String taskName_;
  Delay delay_{ *this };
};

inline Vex::String Task::taskName() const {
  return taskName_;
}

inline TaskPriority Task::taskPriority() const {
  return taskPriority_;
}

inline uint64_t Task::runs() const {
  return runs_;
}

inline uint64_t Task::yields() const {
  return yields_;
}

inline uint64_t Task::work() const {
  return work_;
}

inline double Task::longestRun() const {
  return longestRun_;
}

inline void Task::scheduleNow() {
  if ( ready() ) {
    return;
  }
  if ( delayed() ) {
    endDelay();
  }
  taskScheduler_->makeReady( *this );
}

inline void TaskScheduler::makeReady( Task & task ) {
  task.readySince_ = turn_;
  ready_[ task.taskPriority_.value() ].append( task );
}

} // namespace Loom
