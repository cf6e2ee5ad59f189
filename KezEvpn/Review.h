// Review tasks: how a machine comes back to keys that wait, parked because hardware refused
// them or queued for later.
//
// A run takes the waiting keys in their order and hands each to the machine's step. Walks are
// exact, so a step that removes its key and parks it again sends it to the back of the line and
// the run ends all the same. A run that must yield remembers the next key and goes on there; the
// bookmark serves that one run.
#pragma once

#include "KezEvpn/Explain.h"
#include "KezEvpn/StateMachine.h"
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
enum class Resume { atBookmark, atFirst };

template< class Key > class ReviewTask : public Loom::Task {
  VEX_ENTITY( ReviewTask, "Kez::ReviewTask", Loom::Task )
  VEX_ATTRIBUTE( 60, bookmark, std::optional< Key > )
  VEX_ATTRIBUTES( bookmark )

public:
  // `entry` is what a run calls; `owner`, the machine, is held meanwhile.
  ReviewTask( const Vex::Ptr< Loom::TaskScheduler > & scheduler, Loom::TaskPriority priority,
              const Vex::String & name, const Vex::Entity & owner, std::function< void() > entry,
              Ringlog::Handle & traceHandle, const ReviewTexts & texts )
      : Task( scheduler, priority, name ), owner_( owner ), entry_( std::move( entry ) ),
        traceHandle( traceHandle ), texts_( texts ) {}

  // Keeps `task` if it has these parameters, puts a new one in its place otherwise.
  static void replace( Vex::Ptr< ReviewTask > & task,
                       const Vex::Ptr< Loom::TaskScheduler > & scheduler,
                       Loom::TaskPriority priority, const Vex::String & name,
                       const Vex::Entity & owner, std::function< void() > entry,
                       Ringlog::Handle & traceHandle, const ReviewTexts & texts ) {
    if ( !task || task->taskScheduler() != scheduler || task->taskPriority() != priority ||
         task->taskName() != name ) {
      drop( task );
      task = Vex::makePtr< ReviewTask >( scheduler, priority, name, owner, std::move( entry ),
                                         traceHandle, texts );
    }
  }

  // What is due of a task that its machine gives up never runs, whoever holds the task.
  static void drop( const Vex::Ptr< ReviewTask > & task ) {
    if ( task ) {
      task->cancel();
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
  bool review( const Range & keys, Step && step, double resumeDelay,
               Resume resume = Resume::atBookmark ) {
    const auto from = bookmark();
    bookmarkDel();
    for ( auto walk = keys.from( from ).begin(); walk.valid(); ++walk ) {
      step( walk.key() );
      taskWorkInc();
      if ( walk.more() && taskShouldYield() ) {
        if ( resume == Resume::atBookmark ) {
          bookmarkIs( walk.nextKey() );
        }
        scheduleAfter( resumeDelay );
        return false;
      }
    }
    return true;
  }

  // A key stands in the line no more, or elsewhere in it: a run that was to go on there begins at
  // the first. For machines that do not schedule a run when keys are left.
  void keyLeft( const Key & key ) {
    if ( bookmark() == key ) {
      bookmarkDel();
    }
  }

  // A key is about to leave the line `keys`: a run that was to go on there goes on behind it.
  template< class Range > void keyLeaves( const Range & keys, const Key & key ) {
    if ( bookmark() == key ) {
      const auto walk = keys.from( key ).begin();
      bookmarkIs( walk.more() ? std::optional( walk.nextKey() ) : std::nullopt );
    }
  }

private:
  void run() override {
    const Vex::Ptr< const Vex::Entity > alive( &owner_ );
    entry_();
  }

  const Vex::Entity & owner_;
  const std::function< void() > entry_;
  Ringlog::Handle & traceHandle; // the machine's; the name is what TRACE looks for
  const ReviewTexts texts_;
};

// A machine that programs hardware and retries what was refused from its task
// `reviewUnprogrammed`. While a key waits for that, `refusal` counts how many of its attempts were
// refused in a row since the machine started.
template< class Key > class RetryingSm : public InitializedSm {
public:
  using VexReviewUnprogrammed = ReviewTask< Key >;

  VEX_ENTITY( RetryingSm, "Kez::RetryingSm", InitializedSm )
  VEX_TUNABLE( 61, defaultUnprogrammedRetryInterval, Vex::Interval, 5.0 )
  VEX_OUTPUT( 62, reviewUnprogrammed, VexReviewUnprogrammed )
  VEX_COUNTER( 63, refusal, Key )
  VEX_ATTRIBUTES( defaultUnprogrammedRetryInterval, reviewUnprogrammed, refusal )

  void reviewUnprogrammedIs( const Vex::Ptr< Loom::TaskScheduler > & scheduler,
                             Loom::TaskPriority priority, const Vex::String & name,
                             const ReviewTexts & texts = unprogrammedReviewTexts ) {
    VexReviewUnprogrammed::replace(
        reviewUnprogrammed_, scheduler, priority, name, *this,
        [ this ] { vex_handleReviewUnprogrammed_taskRun(); }, traceHandle_, texts );
  }

  void vex_handleReviewUnprogrammed_taskRun() {
    if ( initialized() ) {
      doReviewUnprogrammed();
    }
  }
  virtual void doReviewUnprogrammed() = 0;

protected:
  // An attempt has come to its end, or the key needs none any more.
  void attempted( const Key & key, bool refused ) {
    if ( refused ) {
      refusalInc( key );
    } else if ( refusals() > 0 ) {
      refusalDel( key );
    }
  }

  // The next run of the review; `otherwise` says when it will be due while none is.
  Due nextTry( std::string_view otherwise = "when an input changes" ) const {
    const auto task = reviewUnprogrammed();
    return { task->nextRun(), otherwise, task->bookmark().has_value() };
  }

  explicit RetryingSm( Ringlog::Handle & traceHandle ) : traceHandle_( traceHandle ) {}
  ~RetryingSm() override { VexReviewUnprogrammed::drop( reviewUnprogrammed_ ); }

private:
  Ringlog::Handle & traceHandle_;
};

} // namespace Kez
