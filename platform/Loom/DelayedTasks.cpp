#include "Loom/DelayedTasks.h"

#include "Loom/Task.h"

#include <algorithm>
#include <utility>

namespace Loom {

double DelayedTasks::time( const Task & task ) const {
  return heap_[ task.delayedPlace_ ].time;
}

void DelayedTasks::set( Task & task, double time ) {
  if ( task.delayedPlace_ == absent ) {
    heap_.emplace_back();
    siftUp( heap_.size() - 1, { time, sequence_++, &task } );
  } else if ( time < heap_[ task.delayedPlace_ ].time ) {
    siftUp( task.delayedPlace_, { time, sequence_++, &task } );
  }
}

void DelayedTasks::remove( Task & task ) {
  const size_t hole = std::exchange( task.delayedPlace_, absent );
  const Entry last = heap_.back();
  heap_.pop_back();
  if ( hole == heap_.size() ) {
    return;
  }
  if ( hole > 0 && last.before( heap_[ ( hole - 1 ) / fanOut ] ) ) {
    siftUp( hole, last );
  } else {
    siftDown( hole, last );
  }
}

Task * DelayedTasks::takeDue( double now ) {
  if ( empty() || earliest() > now ) {
    return nullptr;
  }
  Task * task = heap_.front().task;
  remove( *task );
  return task;
}

void DelayedTasks::put( size_t place, const Entry & entry ) {
  heap_[ place ] = entry;
  entry.task->delayedPlace_ = place;
}

void DelayedTasks::siftUp( size_t place, const Entry & entry ) {
  while ( place > 0 ) {
    const size_t parent = ( place - 1 ) / fanOut;
    if ( !entry.before( heap_[ parent ] ) ) {
      break;
    }
    put( place, heap_[ parent ] );
    place = parent;
  }
  put( place, entry );
}

void DelayedTasks::siftDown( size_t place, const Entry & entry ) {
  while ( place * fanOut + 1 < heap_.size() ) {
    const auto children = heap_.begin() + static_cast< ptrdiff_t >( place * fanOut + 1 );
    const auto end = children + std::min< ptrdiff_t >( fanOut, heap_.end() - children );
    const auto least = std::min_element(
        children, end, []( const Entry & a, const Entry & b ) { return a.before( b ); } );
    if ( !least->before( entry ) ) {
      break;
    }
    put( place, *least );
    place = static_cast< size_t >( least - heap_.begin() );
  }
  put( place, entry );
}

} // namespace Loom
