// Review tasks: how a machine comes back to keys that wait, parked because hardware refused
// them or queued for later.
//
// A run takes the waiting keys in their order and hands each to the machine's step. Walks are
// exact, so a step that removes its key and parks it again sends it to the back of the line and
// the run ends all the same. A run that must yield remembers the next key and goes on there; the
// bookmark serves that one run.
#pragma once

#include "KezEvpn/frame/Explain.h"
#include "KezEvpn/frame/Findings.h"
#include "KezEvpn/frame/StateMachine.h"
#include "Loom/Task.h"
#include "Loom/TaskScheduler.h"
#include "Ringlog/Trace.h"
#include "Vex/Clock.h"

#include <functional>
#include <optional>

namespace Kez {

// What the scheduling of a review traces, at level 5.
struct ReviewTexts {
  std::string_view immediate;
  std::string_view pending;
  std::string_view next; // followed by the time of the run
};

inline constexpr ReviewTexts unprogrammedReviewTexts{ "schedule immediate unprogrammed review",
                                                      "already scheduled",
                                                      "next unprogrammed review at " };

// Where a run that follows a yield begins.
enum class Resume {
  atFirst,
  atBookmark,    // at the key whose turn it was, or at the first if that has left since
  behindBookmark // likewise, but behind it if it has left
};

// The task of a machine that goes through keys, as many in a run as the scheduler lets it.
template< class Key > class ReviewTask : public Loom::Task {
  VEX_ENTITY( ReviewTask, "Kez::ReviewTask", Loom::Task )
  VEX_ATTRIBUTE( 60, bookmark, std::optional< Key > )
  VEX_ATTRIBUTES( bookmark )

public:
  // `entry` is what a run calls; `owner`, the machine, is held meanwhile.
  ReviewTask( const Vex::Ptr< Loom::TaskScheduler > & scheduler, Loom::TaskPriority priority,
              const Vex::String & name, const Vex::Entity & owner, std::function< void() > entry,
              Ringlog::Handle & handle, const ReviewTexts & texts )
      : Task( scheduler, priority, name ), owner_( &owner ), entry_( std::move( entry ) ),
        traceHandle( handle ), texts_( texts ) {}

  // Keeps `task` if it has these parameters, puts a new one in its place otherwise, which takes
  // over the run that is due and its bookmark.
  static void replace( Vex::Ptr< ReviewTask > & task,
                       const Vex::Ptr< Loom::TaskScheduler > & scheduler,
                       Loom::TaskPriority priority, const Vex::String & name,
                       const Vex::Entity & owner, std::function< void() > entry,
                       Ringlog::Handle & handle, const ReviewTexts & texts ) {
    if ( !task || task->taskScheduler() != scheduler || task->taskPriority() != priority ||
         task->taskName() != name ) {
      const auto replaced = task;
      task = Vex::makePtr< ReviewTask >( scheduler, priority, name, owner, std::move( entry ),
                                         handle, texts );
      if ( const auto due = replaced ? replaced->nextRun() : std::nullopt ) {
        task->scheduleAfter( *due - Vex::Clock::now() );
        task->bookmarkIs( replaced->bookmark() );
      }
      drop( replaced );
    }
  }

  // A task that its machine gives up calls it no more, whoever holds and schedules the task.
  static void drop( const Vex::Ptr< ReviewTask > & task ) {
    if ( task ) {
      task->cancel();
      task->owner_ = nullptr;
    }
  }

  // A run from the first key: at once, or `delay` seconds from now unless one is pending.
  void maybeSchedule( bool immediate, double delay ) {
    bookmarkDel();
    if ( immediate ) {
      scheduleNow();
      TRACE( 5, texts_.immediate );
    } else {
      scheduleUnlessPending( delay );
    }
  }

  // A run `delay` seconds from now unless one is pending, which goes on where it was to.
  void scheduleUnlessPending( double delay ) {
    if ( isScheduled() ) {
      TRACE( 5, texts_.pending );
    } else {
      scheduleAfter( delay );
      TRACE( 5, texts_.next, Vex::Clock::now() + delay );
    }
  }

  // One run over `keys`. When the scheduler wants the task to yield while keys remain, the next
  // run is scheduled `resumeDelay` seconds ahead (0: at once) and false returned; true says that
  // the walk came to its end, whatever is parked again by then.
  template< class Range, class Step >
  bool review( const Range & keys, Step && step, double resumeDelay, Resume resume ) {
    const auto from = bookmark();
    bookmarkDel();
    return walk( keys.from( from ), step, resumeDelay, [ & ]( const Key & left ) {
      if ( resume != Resume::atFirst ) {
        bookmarkIs( left );
      }
    } );
  }
  // The same over a queue of keys of any type, from which the step takes its key: what is left is
  // gone on with at once.
  template< class Range, class Step > bool drain( const Range & queue, Step && step ) {
    return walk( queue, step, 0.0, []( const auto & ) {} );
  }

private:
  template< class Range, class Step, class AtYield >
  bool walk( const Range & keys, Step && step, double resumeDelay, AtYield && atYield ) {
    for ( auto walk = keys.begin(); walk.valid(); ++walk ) {
      step( walk.key() );
      taskWorkInc();
      if ( walk.more() && taskShouldYield() ) {
        atYield( walk.nextKey() );
        scheduleAfter( resumeDelay );
        return false;
      }
    }
    return true;
  }

  void run() override {
    if ( const Vex::Ptr< const Vex::Entity > alive = owner_ ) {
      entry_();
    }
  }

  const Vex::Entity * owner_; // null once it has given the task up
  const std::function< void() > entry_;
  Ringlog::Handle & traceHandle; // the machine's; the name is what TRACE looks for
  const ReviewTexts texts_;
};

} // namespace Kez
