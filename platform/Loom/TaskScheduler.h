// Decides which tasks run and in what order; owns no thread. The host calls `runReady()` again
// and again, and may sleep until `nextDeadline()` in between. The scheduler, its tasks and
// whatever schedules them belong to one thread; nothing is locked.
//
// A task is in one place at most: ready, in the queue of its priority, first come first, or
// delayed until a time of Vex::Clock, as a timer of the scheduler's wheel. One turn, `runReady()`,
// fires the wheel's timers that are due, of tasks and of others who set theirs there, and then
// runs every task that is ready exactly once, lower priority numbers first. A task that becomes
// ready meanwhile waits for the next turn, so that a turn ends. No task runs early.
//
// Tasks keep the scheduler alive; it keeps none of them but the one that runs, until the run
// returns. A task that is destroyed or cancelled leaves its queue at once, in the midst of a turn
// too. An exception that leaves a run ends the turn and passes to the host: the tasks that had
// their turn to come are the first of the next one.
//
// Making a task ready, delaying it and running it allocate nothing. On virtual time a turn reads
// the clock once, and only if a timer is set; on the steady clock also before and after each run.
#pragma once

#include "Loom/LinkedList.h"
#include "Loom/TaskPriority.h"
#include "Loom/TimerWheel.h"
#include "Vex/Attributes.h"

#include <array>
#include <functional>
#include <optional>

namespace Loom {

class Task;

class TaskScheduler : public Vex::Entity {
  VEX_ENTITY( TaskScheduler, "Loom::TaskScheduler" )
  // When a run should yield: after so many seconds of the steady clock, counted from the first
  // time that the run asks, or so many units of work. On virtual time work alone counts.
  VEX_TUNABLE( 1, timeSlice, Vex::Interval, 0.02 )
  VEX_TUNABLE( 2, workBudget, Vex::PositiveCount, 1000 )
  VEX_COMPUTED( 3, readyTasks, size_t )
  VEX_COMPUTED( 4, delayedTasks, size_t )
  VEX_OUTPUT( 5, timerWheel, TimerWheel )
  // In seconds, of the turns on the steady clock: for so long the host did nothing else.
  VEX_COMPUTED( 6, longestTurn, double )
  VEX_ATTRIBUTES( timeSlice, workBudget, readyTasks, delayedTasks, timerWheel, longestTurn )

public:
  TaskScheduler() : timerWheel_( Vex::makePtr< TimerWheel >() ) {}

  // One turn; how many tasks ran. Fatal when called from a task's run.
  size_t runReady();
  // When the next turn has something to do: the present time if a task is ready, else the exact
  // time of the wheel's first timer, which may have passed; none without either.
  std::optional< double > nextDeadline() const;

  // Has the last word on whether a run's time slice is over, on virtual time too: of which task,
  // at which of the run's questions (from 0), and whether the machine's clock says so. So that a
  // host can keep where runs ended, and have them end there again.
  using SliceJudge = std::function< bool( const Task & task, uint64_t question, bool over ) >;
  void sliceJudgeIs( SliceJudge judge ) { sliceJudge_ = std::move( judge ); }

private:
  friend class Task;

  // What the run under way has used.
  struct Usage {
    uint64_t work = 0;
    uint64_t timesAsked = 0;
  };

  bool anyReady() const;
  inline void makeReady( Task & task ); // in Loom/Task.h
  bool timeSliceOver();

  std::array< LinkedList< Task >, TaskPriority::count > ready_;
  uint64_t turn_ = 0;
  size_t delayedTasks_ = 0;
  double longestTurn_ = 0;
  const Task * running_ = nullptr;
  Usage usage_;
  double sliceEnd_ = 0; // this and the next are set when a run first asks
  bool sliceOver_ = false;
  SliceJudge sliceJudge_;
};

} // namespace Loom
