// Parking: the keys of a machine that wait for another try, because hardware refused them or had no
// room.
//
// A machine owns one Parking, over the collection in which its waiting keys stand. It parks keys
// and releases them, keeps how often hardware refused each and why, keeps the place where a review
// goes on that had to yield, and schedules reviews by the machine's policy. The machine says what a
// try is.
//
// A try of a key goes
//
//   parking_.unpark( key );   it waits no more
//   ...                       refused: parking_.park( key ), perhaps more than once
//   parking_.settle( key );   parked: refused once more; else its refusals are forgotten
//
// and a key that is wanted no more is released. Between events, a review is due while anything is
// parked, but for what was refused where the policy is to wait until something is freed; and the
// bookmark is a parked key.
#pragma once

#include "KezEvpn/Refusal.h"
#include "KezEvpn/frame/Missing.h"
#include "KezEvpn/frame/Review.h"

namespace Kez {

// When parked keys are reviewed.
enum class Retry {
  afterRefusal, // an interval after one was refused, and on while there are any
  whenFreed, // refused ones when hardware has room again, at once, and only then unless the machine
             // `retriesRefused()`; what waits for room of another kind an interval after the
             // machine said so, and on while there is any
  byMachine  // when the machine says; it must, before its task's run ends
};

// When a machine's parked keys are tried again, where a review that yielded goes on, and what it
// traces.
struct ParkingPolicy {
  Retry retry;
  Resume resume;
  ReviewTexts texts = unprogrammedReviewTexts;
};

// A machine that programs hardware and reviews what is parked from its task `reviewUnprogrammed`.
// While a key is parked, `refusal` says how many of its tries in a row hardware refused since the
// machine started, the first and the last time, and why.
template< class Key > class RetryingSm : public InitializedSm {
public:
  using VexReviewUnprogrammed = ReviewTask< Key >;

  VEX_ENTITY( RetryingSm, "Kez::RetryingSm", InitializedSm )
  VEX_COMPUTED( 59, bookmark, std::optional< Key > )
  VEX_TUNABLE( 61, defaultUnprogrammedRetryInterval, Vex::Interval, 5.0 )
  VEX_OUTPUT( 62, reviewUnprogrammed, VexReviewUnprogrammed )
  VEX_MAP( 63, refusal, Key, Refusal )
  VEX_ATTRIBUTES( defaultUnprogrammedRetryInterval, reviewUnprogrammed, bookmark, refusal )

  void reviewUnprogrammedIs( const Vex::Ptr< Loom::TaskScheduler > & scheduler,
                             Loom::TaskPriority priority, const Vex::String & name ) {
    VexReviewUnprogrammed::replace(
        reviewUnprogrammed_, scheduler, priority, name, *this,
        [ this ] { vex_handleReviewUnprogrammed_taskRun(); }, handle(), policy_.texts );
  }

  void vex_handleReviewUnprogrammed_taskRun() {
    if ( initialized() ) {
      doReviewUnprogrammed();
      VEX_ASSERT_IN( source(), reviewIsDueWhileParked() );
    }
  }
  virtual void doReviewUnprogrammed() = 0;

  virtual void maybeScheduleUnprogrammedReview( bool immediate ) {
    const auto & traceHandle = handle();
    TRACE( 8, "maybeScheduleUnprogrammedReview immediate ", immediate );
    scheduleUnprogrammedReview( immediate );
  }

  void check( Findings & out ) const override {
    if ( initialized() ) {
      out.expect( reviewIsDueWhileParked(), "keys are parked and no review is due" );
    }
  }

protected:
  RetryingSm( Ringlog::Handle & traceHandle, const ParkingPolicy & policy )
      : InitializedSm( traceHandle ), policy_( policy ) {}
  ~RetryingSm() override { VexReviewUnprogrammed::drop( reviewUnprogrammed_ ); }

  // How many keys are parked.
  virtual size_t parked() const = 0;

  // What a helper says of the latest call that hardware refused.
  virtual Vex::String refusalReason() const { return {}; }

  // Under Retry::whenFreed: whether refused keys are tried every interval too.
  virtual bool retriesRefused() const { return false; }

  // Has a review due if something waits for one, without putting off or restarting one that is.
  void ensureReview() {
    if ( !reviewIsDueWhileParked() ) {
      maybeScheduleUnprogrammedReview( false );
    }
  }

  // From the first key on: at once, or after the interval unless a run is pending.
  void scheduleUnprogrammedReview( bool immediate ) {
    VEX_ASSERT_IN( source(), initialized() );
    VEX_ASSERT_IN( source(), reviewUnprogrammed() );
    reviewUnprogrammed()->maybeSchedule( immediate, defaultUnprogrammedRetryInterval() );
  }

  // The next run of the review; `otherwise` says when it will be due while none is.
  Due nextTry( std::string_view otherwise = "when an input changes" ) const {
    const auto task = reviewUnprogrammed();
    return { task->nextRun(), otherwise, task->bookmark().has_value() };
  }

  // Says how often hardware refused what is parked, since when and why.
  void explainRefusal( const Key & key, Explanation & out ) const {
    if ( refusalHas( key ) ) {
      out.refused( Refused{ refusal( key ) }, ", next try ", nextTry() );
    }
  }
  // The same for a list of what is missing, where it is that `key` as a subject.
  template< class SubjectKey >
  void addRefusal( const Key & key, const SubjectKey & subject, Missing & out ) const {
    if ( refusalHas( key ) ) {
      const auto & refused = refusal( key );
      out.add( { Standing::refused, refused.first, nextTry( {} ).time }, subject,
               "refused by hardware", Because{ refused.why } );
    }
  }

private:
  template< class, class > friend class Parking;

  // How many keys nothing but a review brings on.
  size_t awaitingReview() const {
    const bool all = policy_.retry != Retry::whenFreed || retriesRefused();
    return parked() - ( all ? 0 : this->refusals() );
  }
  bool reviewIsDueWhileParked() const {
    return awaitingReview() == 0 || reviewUnprogrammed()->isScheduled();
  }

  // What failed assertions name.
  const char * source() const { return handle().source(); }

  const ParkingPolicy policy_;
};

// Where a review that had to yield goes on.
template< class Key > std::optional< Key > RetryingSm< Key >::bookmark() const {
  return reviewUnprogrammed() ? reviewUnprogrammed()->bookmark() : std::nullopt;
}

// The line of parked keys that is a set attribute.
template< class Key > class ParkedSet {
public:
  ParkedSet( const Vex::Entity & owner, Vex::SetStorage< Key > & set, Vex::AttrId id )
      : owner_( owner ), set_( set ), id_( id ) {}

  size_t size() const { return set_.size(); }
  bool has( const Key & key ) const { return set_.has( key ); }
  auto range() const { return set_.range(); }
  void add( const Key & key ) { set_.is( owner_, id_, key, true ); }
  void remove( const Key & key ) { set_.del( owner_, id_, key ); }

private:
  const Vex::Entity & owner_;
  Vex::SetStorage< Key > & set_;
  const Vex::AttrId id_;
};

// `Line` has the members of ParkedSet; what is added with a key is the line's own.
template< class Key, class Line = ParkedSet< Key > > class Parking {
public:
  template< class... Arguments >
  explicit Parking( RetryingSm< Key > & sm, Arguments &&... line )
      : sm_( sm ), line_{ std::forward< Arguments >( line )... } {}

  bool has( const Key & key ) const { return line_.has( key ); }
  auto range() const { return line_.range(); }
  // Of no tries for a key that was not refused.
  Refusal refusal( const Key & key ) const { return sm_.refusal( key ); }

  // A key that is parked already keeps its place.
  template< class... With > void park( const Key & key, const With &... with ) {
    line_.add( key, with... );
    if ( sm_.policy_.retry == Retry::afterRefusal ) {
      sm_.maybeScheduleUnprogrammedReview( false );
    }
  }

  // A run that was to go on at the key goes on behind it, or begins at the first, by the policy.
  void unpark( const Key & key ) {
    if ( line_.size() == 0 ) {
      return;
    }
    if ( const auto & task = sm_.reviewUnprogrammed(); task->bookmark() == key ) {
      if ( sm_.policy_.resume == Resume::behindBookmark ) {
        const auto walk = line_.range().from( key ).begin();
        task->bookmarkIs( walk.more() ? std::optional( walk.nextKey() ) : std::nullopt );
      } else {
        task->bookmarkDel();
      }
    }
    line_.remove( key );
  }

  void settle( const Key & key ) { settle( key, has( key ) ); }
  // Where a parked key need not have been refused by hardware.
  void settle( const Key & key, bool refused ) {
    if ( refused ) {
      refuse( key, sm_.refusalReason() );
    } else if ( sm_.refusals() > 0 ) {
      sm_.refusalDel( key );
    }
  }

  // Hardware does not have what it was taken to have: the key is parked, as if it had been refused.
  template< class... With > void lose( const Key & key, const With &... with ) {
    park( key, with... );
    refuse( key, "found missing after it was accepted" );
  }

  void release( const Key & key ) {
    unpark( key );
    settle( key, false );
  }

  // Hardware has room that may do for what is parked.
  void freed() {
    if ( line_.size() > 0 ) {
      sm_.maybeScheduleUnprogrammedReview( true );
    }
  }

  // One run of the review: `step( key )` for each parked key in turn. False when it had to yield.
  template< class Step > bool review( Step && step ) {
    const auto task = sm_.reviewUnprogrammed();
    VEX_ASSERT_IN( sm_.source(), initialized() );
    VEX_ASSERT_IN( sm_.source(), task );
    const bool ended = task->review( line_.range(), std::forward< Step >( step ),
                                     sm_.defaultUnprogrammedRetryInterval(), sm_.policy_.resume );
    // A step may have had another task take this one's place, which no run of this one is due for.
    const auto & next = sm_.reviewUnprogrammed();
    const bool due = next != task ||
                     ( ended && sm_.policy_.retry != Retry::byMachine && sm_.awaitingReview() > 0 );
    if ( due && line_.size() > 0 && !next->isScheduled() ) {
      sm_.maybeScheduleUnprogrammedReview( false );
    }
    return ended;
  }

  void check( Findings & out ) const {
    for ( const auto & [ key, refusal ] : sm_.refusal() ) {
      out.expect( has( key ), "refusals are on record of ", key, ", which is not parked" );
      out.expect( refusal.tries > 0, "refusals are on record of ", key, ", none of them" );
    }
    if ( const auto task = sm_.reviewUnprogrammed(); task && task->bookmark() ) {
      out.expect( has( *task->bookmark() ), "a review is to go on at ", *task->bookmark(),
                  ", which is not parked" );
    }
  }

private:
  bool initialized() const { return sm_.initialized(); }
  void refuse( const Key & key, std::string_view why ) {
    sm_.refusalIs( key, sm_.refusal( key ).again( why ) );
    if ( sm_.retriesRefused() ) {
      sm_.ensureReview();
    }
  }

  RetryingSm< Key > & sm_;
  Line line_;
};

} // namespace Kez
