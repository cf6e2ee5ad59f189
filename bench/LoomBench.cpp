// Timers of random timeouts in the wheel, against an indexed heap of four branches and against an
// intrusive wheel of one level; tasks posted and run, against a deque of functions. Times are per
// timer or post; allocations are those of all that is timed of the subject.
#include "Ratio.h"

#include "Loom/Task.h"
#include "Loom/TimerWheel.h"

#include <cstdlib>
#include <deque>
#include <functional>
#include <new>
#include <numeric>
#include <random>

namespace {

size_t allocations = 0;

} // namespace

// Out of line: g++ 12 mistakes an inlined pair for a mismatch.
[[gnu::noinline]] void * operator new( size_t size ) {
  ++allocations;
  if ( void * memory = std::malloc( size ) ) {
    return memory;
  }
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete( void * memory ) noexcept {
  std::free( memory );
}
[[gnu::noinline]] void operator delete( void * memory, size_t ) noexcept {
  std::free( memory );
}

namespace {

constexpr size_t count = 100'000;

// Adds what `work` allocates to `sum`.
template< class Work > void counting( size_t & sum, Work && work ) {
  const size_t before = allocations;
  work();
  sum += allocations - before;
}

struct HeapTimer {
  virtual ~HeapTimer() = default;
  virtual void fire() { ++fired; }
  static inline size_t fired = 0;
  double time = 0;
  size_t place = SIZE_MAX;
};

class Heap {
public:
  void set( HeapTimer & timer, double time ) {
    timer.time = time;
    entries_.emplace_back();
    up( entries_.size() - 1, { time, &timer } );
  }
  void fireDue( double now ) {
    while ( !entries_.empty() && entries_.front().time <= now ) {
      HeapTimer & timer = *entries_.front().timer;
      timer.place = SIZE_MAX;
      const Entry last = entries_.back();
      entries_.pop_back();
      if ( !entries_.empty() ) {
        down( 0, last );
      }
      timer.fire();
    }
  }
  void clear() { entries_.clear(); }

private:
  struct Entry {
    double time;
    HeapTimer * timer;
  };
  void put( size_t place, const Entry & entry ) {
    entries_[ place ] = entry;
    entry.timer->place = place;
  }
  void up( size_t place, const Entry & entry ) {
    for ( ; place > 0 && entry.time < entries_[ ( place - 1 ) / 4 ].time;
          place = ( place - 1 ) / 4 ) {
      put( place, entries_[ ( place - 1 ) / 4 ] );
    }
    put( place, entry );
  }
  void down( size_t place, const Entry & entry ) {
    for ( size_t child; ( child = place * 4 + 1 ) < entries_.size(); ) {
      const size_t end = std::min( child + 4, entries_.size() );
      size_t least = child;
      while ( ++child < end ) {
        least = entries_[ child ].time < entries_[ least ].time ? child : least;
      }
      if ( entry.time <= entries_[ least ].time ) {
        break;
      }
      put( place, entries_[ least ] );
      place = least;
    }
    put( place, entry );
  }
  std::vector< Entry > entries_;
};

struct SlotTimer {
  SlotTimer * previous = this;
  SlotTimer * next = this;
  double time = 0;
};

class OneLevelWheel {
public:
  void set( SlotTimer & timer, double time ) {
    SlotTimer & slot = slots_[ static_cast< uint64_t >( time * 256 ) % slots_.size() ];
    timer.time = time;
    timer.previous = slot.previous;
    timer.next = &slot;
    slot.previous->next = &timer;
    slot.previous = &timer;
  }
  static void cancel( SlotTimer & timer ) {
    timer.previous->next = timer.next;
    timer.next->previous = timer.previous;
    timer.next = nullptr;
  }

private:
  std::array< SlotTimer, 4096 > slots_;
};

class CountingTimer final : public Loom::Timer {
public:
  explicit CountingTimer( const Vex::Ptr< Loom::TimerWheel > & wheel ) : Timer( wheel ) {}
  static inline size_t fired = 0;

private:
  void fire() override { ++fired; }
};

// Timers with timeouts of up to `longest` seconds, on virtual time.
struct Timers {
  explicit Timers( double longest ) : longest( longest ) {
    std::uniform_real_distribution< double > within( 0, longest );
    std::generate( timeouts.begin(), timeouts.end(), [ & ] { return within( random ); } );
    std::iota( shuffled.begin(), shuffled.end(), 0 );
    std::shuffle( shuffled.begin(), shuffled.end(), random );
    for ( size_t i = 0; i < count; ++i ) {
      wheelTimers.emplace_back( wheel );
    }
    Vex::Clock::virtualIs( 0 );
  }
  ~Timers() { Vex::Clock::steadyIs(); }

  // No timer is set, and the wheel stands at another place of its levels than in other rounds.
  void begin() {
    std::for_each( wheelTimers.begin(), wheelTimers.end(), []( auto & each ) { each.cancel(); } );
    heap.clear();
    start = Vex::Clock::now() + std::uniform_real_distribution< double >( 0, 1e4 )( random );
    Vex::Clock::advanceTo( start );
    wheelTimers.front().setAt( start );
    wheel->fireDue();
  }
  void setWheel() {
    for ( size_t i = 0; i < count; ++i ) {
      wheelTimers[ i ].setAt( start + timeouts[ i ] );
    }
  }
  void setHeap() {
    for ( size_t i = 0; i < count; ++i ) {
      heap.set( heapTimers[ i ], start + timeouts[ i ] );
    }
  }

  const double longest;
  std::mt19937 random{ 3 };
  std::vector< double > timeouts = std::vector< double >( count );
  std::vector< uint32_t > shuffled = std::vector< uint32_t >( count );
  double start = 0;
  const Vex::Ptr< Loom::TimerWheel > wheel = Vex::makePtr< Loom::TimerWheel >();
  std::deque< CountingTimer > wheelTimers;
  Heap heap;
  std::deque< HeapTimer > heapTimers = std::deque< HeapTimer >( count );
};

void timerSet( benchmark::State & state ) {
  Timers timers( state.range( 0 ) );
  size_t allocated = 0;
  Bench::compareWith(
      state, count, { "ratio" },
      [ & ] {
        timers.begin();
        return [ & ] { counting( allocated, [ & ] { timers.setWheel(); } ); };
      },
      [ & ] {
        timers.begin();
        return [ & ] { timers.setHeap(); };
      } );
  state.counters[ "allocations" ] = static_cast< double >( allocated );
}
BENCHMARK( timerSet )->Arg( 1 )->Arg( 60 )->Arg( 3600 )->UseManualTime();

void timerCancel( benchmark::State & state ) {
  Timers timers( state.range( 0 ) );
  OneLevelWheel floor;
  std::deque< SlotTimer > floorTimers( count );
  Bench::compareWith(
      state, count, { "ratio" },
      [ & ] {
        timers.begin();
        timers.setWheel();
        return [ & ] {
          for ( const uint32_t i : timers.shuffled ) {
            timers.wheelTimers[ i ].cancel();
          }
        };
      },
      [ & ] {
        for ( size_t i = 0; i < count; ++i ) {
          floor.set( floorTimers[ i ], timers.timeouts[ i ] );
        }
        return [ & ] {
          for ( const uint32_t i : timers.shuffled ) {
            OneLevelWheel::cancel( floorTimers[ i ] );
          }
        };
      } );
}
BENCHMARK( timerCancel )->Arg( 1 )->Arg( 60 )->Arg( 3600 )->UseManualTime();

// The second argument says in how many turns of the loop, at equal intervals.
void timerFire( benchmark::State & state ) {
  Timers timers( state.range( 0 ) );
  const double turns = state.range( 1 );
  const auto eachTurn = [ & ]( const size_t & fired, auto && turn ) {
    const size_t before = fired;
    for ( double i = 1; i <= turns; ++i ) {
      Vex::Clock::advanceTo( timers.start + i * timers.longest / turns );
      turn();
    }
    if ( fired - before != count ) {
      state.SkipWithError( "not every timer fired" );
    }
  };
  Bench::compareWith(
      state, count, { "ratio" },
      [ & ] {
        timers.begin();
        timers.setWheel();
        return [ & ] { eachTurn( CountingTimer::fired, [ & ] { timers.wheel->fireDue(); } ); };
      },
      [ & ] {
        timers.begin();
        timers.setHeap();
        return [ & ] {
          eachTurn( HeapTimer::fired, [ & ] { timers.heap.fireDue( Vex::Clock::now() ); } );
        };
      } );
}
BENCHMARK( timerFire )->ArgsProduct( { { 1, 60, 3600 }, { 1, 1000, count } } )->UseManualTime();

// Tasks are posted and run in batches of as many as there are tasks.
void postAndRun( benchmark::State & state ) {
  class Job : public Loom::Task {
  public:
    explicit Job( const Vex::Ptr< Loom::TaskScheduler > & scheduler )
        : Task( scheduler, 4, "job" ) {}
    void run() override { ++ran; }
    size_t ran = 0;
  };

  const auto scheduler = Vex::makePtr< Loom::TaskScheduler >();
  std::vector< Vex::Ptr< Job > > jobs( static_cast< size_t >( state.range( 0 ) ) );
  std::generate( jobs.begin(), jobs.end(), [ & ] { return Vex::makePtr< Job >( scheduler ); } );
  std::deque< std::function< void() > > queue;
  size_t allocated = 0;
  const auto batches = [ & ]( auto && batch ) {
    for ( size_t posts = 0; posts < count; posts += jobs.size() ) {
      batch();
    }
  };
  Bench::compareWith(
      state, count, { "ratio" },
      [ & ] {
        return [ & ] {
          counting( allocated, [ & ] {
            batches( [ & ] {
              for ( const auto & job : jobs ) {
                job->scheduleNow();
              }
              scheduler->runReady();
            } );
          } );
        };
      },
      [ & ] {
        return [ & ] {
          batches( [ & ] {
            for ( const auto & job : jobs ) {
              queue.emplace_back( [ job ] { job->run(); } );
            }
            while ( !queue.empty() ) {
              const auto work = std::move( queue.front() );
              queue.pop_front();
              work();
            }
          } );
        };
      } );
  state.counters[ "allocations" ] = static_cast< double >( allocated );
}
BENCHMARK( postAndRun )->Arg( 10 )->Arg( 1000 )->UseManualTime();

} // namespace
