#include "Loom/TimerSlot.h"

#include <array>
#include <utility>

namespace Loom {

namespace {

// Linked by `next` alone, and ended by null.
TimerEnd * merged( TimerEnd * front, TimerEnd * back ) {
  TimerEnd * first = nullptr;
  TimerEnd ** last = &first;
  while ( front && back ) {
    TimerEnd *& least = back->time < front->time ? back : front;
    *last = least;
    last = &least->next;
    least = least->next;
  }
  *last = front ? front : back;
  return first;
}

} // namespace

size_t TimerSlot::size( size_t limit ) const {
  size_t count = 0;
  for ( const TimerEnd * link = ends_.next; link != &ends_ && count < limit; link = link->next ) {
    ++count;
  }
  return count;
}

void TimerSlot::order() {
  if ( unordered_ ) {
    unordered_ = false;
    if ( size( few ) < few ) {
      insertEach();
    } else {
      mergeRuns();
    }
  }
}

void TimerSlot::insertEach() {
  for ( TimerEnd * next = ends_.next->next; next != &ends_; ) {
    auto & link = static_cast< TimerLink & >( *std::exchange( next, next->next ) );
    TimerEnd * previous = link.previous;
    if ( link.time < previous->time ) {
      remove( link );
      do {
        previous = previous->previous;
      } while ( link.time < previous->time );
      link.previous = previous;
      link.next = previous->next;
      link.next->previous = &link;
      previous->next = &link;
    }
  }
}

// The run at `i`, if any, is of two to the power of `i` timers that stood before those of the runs
// below.
void TimerSlot::mergeRuns() {
  std::array< TimerEnd *, 48 > runs{};
  ends_.previous->next = nullptr;
  for ( TimerEnd * rest = ends_.next; rest; ) {
    TimerEnd * run = std::exchange( rest, rest->next );
    run->next = nullptr;
    size_t size = 0;
    for ( ; runs[ size ]; ++size ) {
      run = merged( std::exchange( runs[ size ], nullptr ), run );
    }
    runs[ size ] = run;
  }
  TimerEnd * all = nullptr;
  for ( TimerEnd * run : runs ) {
    all = merged( run, all );
  }
  TimerEnd * last = &ends_;
  for ( TimerEnd * link = all; link; link = link->next ) {
    last->next = link;
    link->previous = last;
    last = link;
  }
  last->next = &ends_;
  ends_.previous = last;
}

} // namespace Loom
