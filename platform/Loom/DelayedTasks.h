// The tasks that wait for a time, earliest first, equal times in the order in which they were
// set: a heap that knows where each task stands in it, so that one may be moved forward or taken
// out at any moment. Setting and taking out cost O( log n ); memory is kept for the most tasks
// that ever waited at once. It holds no reference to a task: one that ends takes itself out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Loom {

class Task;

class DelayedTasks {
public:
  static constexpr size_t absent = SIZE_MAX; // the place of a task that does not wait

  size_t size() const { return heap_.size(); }
  bool empty() const { return heap_.empty(); }
  // Of the first task; there must be one.
  double earliest() const { return heap_.front().time; }
  // Of a task that waits.
  double time( const Task & task ) const;

  // Adds the task, or moves it to an earlier time; a later or equal one changes nothing.
  void set( Task & task, double time );
  // The task must wait.
  void remove( Task & task );
  // Takes out the first task if its time has come; null otherwise.
  Task * takeDue( double now );

private:
  struct Entry {
    double time;
    uint64_t sequence;
    Task * task;
    bool before( const Entry & other ) const {
      return time < other.time || ( time == other.time && sequence < other.sequence );
    }
  };

  void put( size_t place, const Entry & entry );
  // Fill the hole at `place` with `entry`, or further up or down where it belongs.
  void siftUp( size_t place, const Entry & entry );
  void siftDown( size_t place, const Entry & entry );

  static constexpr size_t fanOut = 4;
  std::vector< Entry > heap_;
  uint64_t sequence_ = 0;
};

} // namespace Loom
