// Decides which tasks run and in what order; owns no thread. The host calls `runReady()` again
// and again, and may sleep until `nextDeadline()` in between. The scheduler, its tasks and
// whatever schedules them belong to one thread; nothing is locked.
//
// A task is in one place at most: ready, in the queue of its priority, first come first, or
// delayed until a time of Vex::Clock. One turn, `runReady()`, makes those ready whose time has
// come and runs every task that is ready then exactly once, lower priority numbers first. A task
// that becomes ready meanwhile waits for the next turn, so that a turn ends. No task runs early.
//
// Tasks keep the scheduler alive; it keeps none of them but the one that runs, until the run
// returns. A task that is destroyed or cancelled leaves its queue at once, in the midst of a turn
// too. An exception that leaves a run ends the turn and passes to the host: the tasks that had
// their turn to come are the first of the next one.
//
// Making a task ready and running it allocates nothing and reads no clock; a turn reads it once,
// if tasks are delayed.
#pragma once

#include "Loom/DelayedTasks.h"
#include "Loom/TaskPriority.h"
#include "Vex/Attributes.h"

#include <array>
#include <optional>

namespace Loom {

// A ready task's neighbours; null while it is not ready. Aligned so that both lie in one cache
// line.
struct alignas( 16 ) ReadyLink {
  ReadyLink * previous = nullptr;
  ReadyLink * next = nullptr;
};

class ReadyTasks {
public:
  ReadyTasks() : ends_{ &ends_, &ends_ } {}
  ReadyTasks( const ReadyTasks & ) = delete;
  ReadyTasks & operator=( const ReadyTasks & ) = delete;

  // Null without any.
  ReadyLink * first() const { return ends_.next == &ends_ ? nullptr : ends_.next; }
  void append( ReadyLink & link ) {
    link.previous = ends_.previous;
    link.next = &ends_;
    ends_.previous->next = &link;
    ends_.previous = &link;
  }
  size_t size() const {
    size_t count = 0;
    for ( const auto * link = ends_.next; link != &ends_; link = link->next ) {
      ++count;
    }
    return count;
  }
  static void remove( ReadyLink & link ) {
    link.previous->next = link.next;
    link.next->previous = link.previous;
    link.next = nullptr;
  }

private:
  ReadyLink ends_;
};

class TaskScheduler : public Vex::Entity {
  VEX_ENTITY( TaskScheduler, "Loom::TaskScheduler" )
  // When a run should yield: after so many seconds of the steady clock, counted from the first
  // time that the run asks, or so many units of work. On virtual time work alone counts.
  VEX_TUNABLE( 1, timeSlice, double, 0.02 )
  VEX_TUNABLE( 2, workBudget, uint64_t, 1000 )
  VEX_COMPUTED( 3, readyTasks, size_t )
  VEX_COMPUTED( 4, delayedTasks, size_t )
  VEX_ATTRIBUTES( timeSlice, workBudget, readyTasks, delayedTasks )

public:
  TaskScheduler() = default;

  // One turn; how many tasks ran. Fatal when called from a task's run.
  size_t runReady();
  // When the next turn has something to run: the present time if a task is ready, else the
  // earliest time that one waits for, which may have passed; none without either.
  std::optional< double > nextDeadline() const;

private:
  friend class Task;

  // What the run under way has used.
  struct Usage {
    uint64_t work = 0;
    uint64_t timesAsked = 0;
  };

  bool anyReady() const;
  inline void makeReady( Task & task ); // in Loom/Task.h
  void makeDueReady();
  bool timeSliceOver();

  std::array< ReadyTasks, TaskPriority::count > ready_;
  uint64_t turn_ = 0;
  DelayedTasks delayed_;
  const Task * running_ = nullptr;
  Usage usage_;
  double sliceEnd_ = 0; // this and the next are set when a run first asks
  bool sliceOver_ = false;
};

} // namespace Loom
