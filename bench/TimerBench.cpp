// Timers of random timeouts in the wheel, against an indexed heap of four branches and against a
// plain wheel of one level whose slots span the timeouts. They are made one after the other, and
// handled in that order or in a random one, in which each is fetched from somewhere else. `ratio`
// is to the faster of the floors; times are per timer, allocations those of all that is timed of
// the subject.
#include "Allocations.h"
#include "Ratio.h"

#include "Loom/TimerWheel.h"
#include "Vex/Clock.h"

#include <deque>
#include <numeric>
#include <random>

// Nothing here is known to the compiler to be the only one of its kind, so that calls are as
// virtual as they are written.
namespace Bench {

constexpr size_t count = 100'000;
size_t fired = 0;

class CountingTimer final : public Loom::Timer {
public:
  explicit CountingTimer( const Vex::Ptr< Loom::TimerWheel > & wheel ) : Timer( wheel ) {}

private:
  void fire() override;
};
void CountingTimer::fire() {
  ++fired;
}

struct Subject {
  using Timer = CountingTimer;

  Subject( double, std::deque< Timer > & timers ) {
    for ( size_t i = 0; i < count; ++i ) {
      timers.emplace_back( wheel );
    }
  }
  static void set( Timer & timer, double time ) { timer.setAt( time ); }
  static void cancel( Timer & timer ) { timer.cancel(); }
  void fireDue( double ) { wheel->fireDue(); }

  const Vex::Ptr< Loom::TimerWheel > wheel = Vex::makePtr< Loom::TimerWheel >();
};

class Heap {
public:
  struct Pending {
    virtual ~Pending() = default;
    virtual void fire() = 0;
    size_t place = SIZE_MAX;
  };
  struct Timer : Pending {
    void fire() override;
  };

  Heap( double, std::deque< Timer > & timers ) { timers.resize( count ); }
  void set( Timer & timer, double time ) {
    if ( timer.place == SIZE_MAX ) {
      entries_.emplace_back();
      up( entries_.size() - 1, { time, &timer } );
    } else {
      move( timer.place, { time, &timer } );
    }
  }
  void cancel( Timer & timer ) {
    if ( timer.place != SIZE_MAX ) {
      take( timer.place );
    }
  }
  void fireDue( double now ) {
    while ( !entries_.empty() && entries_.front().time <= now ) {
      Pending & timer = *entries_.front().timer;
      take( 0 );
      timer.fire();
    }
  }

private:
  struct Entry {
    double time;
    Pending * timer;
  };

  void take( size_t place ) {
    entries_[ place ].timer->place = SIZE_MAX;
    const Entry last = entries_.back();
    entries_.pop_back();
    if ( place < entries_.size() ) {
      move( place, last );
    }
  }
  void move( size_t place, const Entry & entry ) {
    if ( place > 0 && entry.time < entries_[ ( place - 1 ) / 4 ].time ) {
      up( place, entry );
    } else {
      down( place, entry );
    }
  }
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
void Heap::Timer::fire() {
  ++fired;
}

// Fires what is due slot by slot, and in a slot in the order of setting.
class PlainWheel {
  struct Link {
    Link * previous = nullptr;
    Link * next = nullptr;
  };

public:
  struct Pending : Link {
    virtual ~Pending() = default;
    virtual void fire() = 0;
    double time = 0;
  };
  struct Timer : Pending {
    void fire() override;
  };

  PlainWheel( double longest, std::deque< Timer > & timers )
      : ticksPerSecond_( ( slotCount - 1 ) / longest ) {
    timers.resize( count );
    for ( Link & slot : slots_ ) {
      slot = { &slot, &slot };
    }
  }
  void set( Timer & timer, double time ) {
    cancel( timer );
    Link & slot = slots_[ tickOf( time ) % slotCount ];
    timer.time = time;
    timer.previous = slot.previous;
    timer.next = &slot;
    slot.previous->next = &timer;
    slot.previous = &timer;
  }
  static void cancel( Pending & timer ) {
    if ( timer.next ) {
      timer.previous->next = timer.next;
      timer.next->previous = timer.previous;
      timer.next = nullptr;
    }
  }
  void fireDue( double now ) {
    const uint64_t target = tickOf( now );
    reached_ = std::max( reached_, target - std::min( target, slotCount ) );
    for ( ;; ++reached_ ) {
      Link & slot = slots_[ reached_ % slotCount ];
      for ( Link * link = slot.next; link != &slot; ) {
        auto & timer = static_cast< Pending & >( *link );
        link = link->next;
        if ( timer.time <= now ) {
          cancel( timer );
          timer.fire();
        }
      }
      if ( reached_ == target ) {
        return;
      }
    }
  }

private:
  uint64_t tickOf( double time ) const { return static_cast< uint64_t >( time * ticksPerSecond_ ); }

  static constexpr uint64_t slotCount = 1 << 14;
  const double ticksPerSecond_;
  uint64_t reached_ = 0;
  std::vector< Link > slots_ = std::vector< Link >( slotCount );
};
void PlainWheel::Timer::fire() {
  ++fired;
}

} // namespace Bench

namespace {

using Bench::count;
using Bench::Heap;
using Bench::PlainWheel;
using Bench::Subject;

// What all contenders handle: which timers after each other, and with which timeouts.
struct Plan {
  Plan( double longest, bool inOrder ) : longest( longest ) {
    std::uniform_real_distribution< double > within( 0, longest );
    for ( auto * each : { &timeouts, &others } ) {
      std::generate( each->begin(), each->end(), [ & ] { return within( random ); } );
    }
    std::iota( order.begin(), order.end(), 0 );
    if ( !inOrder ) {
      std::shuffle( order.begin(), order.end(), random );
    }
    Vex::Clock::virtualIs( 0 );
  }
  ~Plan() { Vex::Clock::steadyIs(); }

  const double longest;
  std::mt19937 random{ 3 };
  std::vector< double > timeouts = std::vector< double >( count );
  std::vector< double > others = std::vector< double >( count );
  std::vector< size_t > order = std::vector< size_t >( count );
};

template< class Contender > class Timers {
public:
  explicit Timers( Plan & plan ) : plan_( plan ), contender_( plan.longest, timers_ ) {
    for ( const size_t i : plan.order ) {
      handled_.push_back( &timers_[ i ] );
    }
  }

  // No timer is set, and the wheels stand at another place than in other rounds.
  void begin() {
    cancel();
    start_ = Vex::Clock::now() + std::uniform_real_distribution< double >( 0, 1e4 )( plan_.random );
    Vex::Clock::advanceTo( start_ );
    contender_.set( timers_.front(), start_ );
    contender_.fireDue( start_ );
  }
  void set( const std::vector< double > & timeouts ) {
    for ( size_t i = 0; i < count; ++i ) {
      contender_.set( *handled_[ i ], start_ + timeouts[ i ] );
    }
  }
  void cancel() {
    for ( auto * const each : handled_ ) {
      contender_.cancel( *each );
    }
  }
  // In so many turns of the loop, at equal intervals.
  void fire( benchmark::State & state, double turns ) {
    const size_t before = Bench::fired;
    for ( double i = 1; i <= turns; ++i ) {
      Vex::Clock::advanceTo( start_ + i * plan_.longest / turns );
      contender_.fireDue( Vex::Clock::now() );
    }
    if ( Bench::fired - before != count ) {
      state.SkipWithError( "not every timer fired" );
    }
  }

private:
  Plan & plan_;
  std::deque< typename Contender::Timer > timers_;
  std::vector< typename Contender::Timer * > handled_;
  Contender contender_;
  double start_ = 0;
};

// `prepare` and `work` are called with a contender's timers. The first argument is the longest
// timeout, the second whether timers are handled in the order in which they were made.
template< class Prepare, class Work >
void compare( benchmark::State & state, Prepare prepare, Work work ) {
  Plan plan( static_cast< double >( state.range( 0 ) ), state.range( 1 ) );
  Timers< Subject > subject( plan );
  Timers< Heap > heap( plan );
  Timers< PlainWheel > wheel( plan );
  size_t allocated = 0;
  const auto round = [ & ]( auto & timers ) {
    timers.begin();
    prepare( timers, plan );
    return [ & ] { work( timers, plan ); };
  };
  Bench::compareWith(
      state, count, { "heap", "wheel" },
      [ & ] { return [ &, timed = round( subject ) ] { Bench::counting( allocated, timed ); }; },
      [ & ] { return round( heap ); }, [ & ] { return round( wheel ); } );
  state.counters[ "ratio" ] = std::max( state.counters[ "heap" ], state.counters[ "wheel" ] );
  state.counters[ "allocations" ] = static_cast< double >( allocated );
}

const auto nothing = []( auto &, const Plan & ) {};
const auto setAll = []( auto & timers, const Plan & plan ) { timers.set( plan.timeouts ); };

void timerSet( benchmark::State & state ) {
  compare( state, nothing, setAll );
}
void timerCancel( benchmark::State & state ) {
  compare( state, setAll, []( auto & timers, const Plan & ) { timers.cancel(); } );
}
void timerSetAnew( benchmark::State & state ) {
  compare( state, setAll, []( auto & timers, const Plan & plan ) { timers.set( plan.others ); } );
}
// The third argument says in how many turns.
void timerFire( benchmark::State & state ) {
  compare( state, setAll, [ & ]( auto & timers, const Plan & ) {
    timers.fire( state, static_cast< double >( state.range( 2 ) ) );
  } );
}

const std::vector< int64_t > longest{ 1, 60, 3600 };
const std::vector< int64_t > inOrder{ 0, 1 };

BENCHMARK( timerSet )->ArgsProduct( { longest, inOrder } )->UseManualTime();
BENCHMARK( timerCancel )->ArgsProduct( { longest, inOrder } )->UseManualTime();
BENCHMARK( timerSetAnew )->ArgsProduct( { longest, inOrder } )->UseManualTime();
BENCHMARK( timerFire )->ArgsProduct( { longest, inOrder, { 1, 1000, count } } )->UseManualTime();

} // namespace
