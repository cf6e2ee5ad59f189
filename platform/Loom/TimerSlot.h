// What a timer wheel keeps timers in: a list through the timers, which knows whether it may not be
// in the order of their times. Walked from its end it is fetched from memory several timers at a
// time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

namespace Loom {

// The end of a slot's list, or a timer in it.
struct TimerEnd {
  TimerEnd * next = nullptr; // null while in no slot
  double time = -std::numeric_limits< double >::infinity();
  TimerEnd * previous = nullptr;
};

// A timer's place in a slot.
struct TimerLink : TimerEnd {
  // One that joined the slot a little earlier, and perhaps has left it and is no more: where to
  // fetch from, and nothing to look at.
  const TimerEnd * before = nullptr;
};

// The list; in a cache line.
class alignas( 64 ) TimerSlot {
public:
  TimerSlot() { clear(); }
  TimerSlot( const TimerSlot & ) = delete;
  TimerSlot & operator=( const TimerSlot & ) = delete;

  bool empty() const { return ends_.next == &ends_; }
  // Null without any.
  TimerLink * first() const { return empty() ? nullptr : static_cast< TimerLink * >( ends_.next ); }
  bool unordered() const { return unordered_; }
  // Counts one by one, no further than `limit`.
  size_t size( size_t limit = SIZE_MAX ) const;

  void append( TimerLink & link ) {
    TimerEnd * const last = ends_.previous;
    unordered_ |= link.time < last->time;
    link.previous = last;
    link.next = &ends_;
    last->next = &link;
    ends_.previous = &link;
    link.before = thirdLast_;
    thirdLast_ = secondLast_;
    secondLast_ = last;
  }
  void prepend( TimerLink & link ) {
    TimerEnd * const first = ends_.next;
    const bool later = link.time > first->time;
    const bool alone = first == &ends_;
    unordered_ |= later & !alone; // no branch, which would be guessed wrong each second time
    link.next = first;
    link.previous = &ends_;
    first->previous = &link;
    ends_.next = &link;
  }
  // Null without any.
  TimerLink * takeFirst() {
    TimerLink * const link = first();
    if ( link ) {
      ends_.next = link->next;
      ends_.next->previous = &ends_;
      link->next = nullptr;
    }
    return link;
  }
  static void remove( TimerLink & link ) {
    link.previous->next = link.next;
    link.next->previous = link.previous;
    link.next = nullptr;
  }

  // Equal times keep their order. O( n log n ).
  void order();

  // Takes out all, the last first.
  template< class Take > void takeFromBack( const Take & take ) {
    TimerEnd * end = ends_.previous;
    clear();
    while ( end != &ends_ ) {
      auto & link = static_cast< TimerLink & >( *end );
      __builtin_prefetch( link.before );
      end = end->previous;
      take( link );
    }
  }

private:
  static constexpr size_t few = 16;

  void clear() {
    ends_.next = ends_.previous = &ends_;
    unordered_ = false;
  }
  void insertEach();
  void mergeRuns();

  TimerEnd ends_;                         // its time is before all times
  const TimerEnd * secondLast_ = nullptr; // to join; and perhaps left
  const TimerEnd * thirdLast_ = nullptr;
  bool unordered_ = false;
};

} // namespace Loom
