// Timers on the time of Vex::Clock, and the wheel that they are set in. Setting and cancelling
// take constant time and allocate nothing: a timer is a link in one of the wheel's slots.
//
// Time is counted in ticks. A slot of the lowest level spans one, a slot of each further level as
// much as the whole level below it. A timer stands in the level of the highest digit in which its
// tick differs from the tick that the wheel has reached. When its slot's span begins, the slot is
// handed down to lower levels if many timers are in it, and else is put in order where it is.
//
// Ticks say in which slot to look and nothing else. A slot is put in the order of the exact times
// before its timers fire, and a timer fires once the clock has reached its time: hence none is
// early, earlier times come first, and equal times come in the order in which they were set.
//
// The wheel owns no thread. Its scheduler, or another host, calls `fireDue()` again and again,
// and may sleep until `nextDeadline()` in between. Timers, wheel and host belong to one thread.
#pragma once

#include "Loom/LinkedList.h"
#include "Vex/Attributes.h"
#include "Vex/Clock.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <optional>

namespace Loom {

class Timer;

class TimerWheel : public Vex::Entity {
  VEX_ENTITY( TimerWheel, "Loom::TimerWheel" )
  VEX_COMPUTED( 1, now, double ) // on the wheel's clock, in seconds
  // The exact time of the first timer, which may have passed; none without a timer. A host that
  // sleeps until then misses none, and its next turn fires at least one. Constant time, but for
  // putting the first slot in order when that has not been done since timers joined it.
  VEX_COMPUTED( 2, nextDeadline, std::optional< double > )
  VEX_COMPUTED( 3, timers, size_t ) // that are set, counted one by one
  VEX_ATTRIBUTES( now, nextDeadline, timers )

public:
  static constexpr auto vexAccess = Vex::Access::readOnly;

  TimerWheel() = default;

  // One turn: fires every timer whose time the clock has reached when the turn begins. One that
  // is set meanwhile for a time reached already waits for the next turn, so that a turn ends. An
  // exception of a timer ends the turn and passes to the host; the timers that were still to fire
  // do so in the next one. Fatal when called by a timer.
  void fireDue();

private:
  friend class Timer;
  using Slot = LinkedList< Timer >;

  static constexpr double ticksPerSecond = 1 << 20; // a power of two: no time's tick is rounded
  static constexpr unsigned digitBits = 8;
  static constexpr unsigned slotsPerLevel = 1u << digitBits;
  static constexpr unsigned levelCount = 7;
  static constexpr uint64_t maxTick = ( uint64_t( 1 ) << digitBits * levelCount ) - 1;
  static constexpr size_t many = 32; // fewer are put in order more cheaply than handed down
  static constexpr double noTurn = -std::numeric_limits< double >::infinity();

  class SlotSet {
  public:
    void add( unsigned index, bool present = true ) {
      words_[ index / 64 ] |= uint64_t( present ) << index % 64;
    }
    void remove( unsigned index ) { words_[ index / 64 ] &= ~( uint64_t( 1 ) << index % 64 ); }
    bool has( unsigned index ) const { return words_[ index / 64 ] >> index % 64 & 1; }
    std::optional< unsigned > first() const;

  private:
    std::array< uint64_t, slotsPerLevel / 64 > words_{};
  };
  struct Level {
    SlotSet occupied;  // and perhaps some that are empty by now
    SlotSet unordered; // those that may not be in the order of their times
    std::array< Slot, slotsPerLevel > slots;
  };
  // A slot with timers, and the first tick of its span.
  struct Place {
    unsigned level;
    unsigned index;
    uint64_t tick;
  };

  static uint64_t tickOf( double time );
  void set( Timer & timer );
  void cancelled( const Timer & timer );
  void place( Timer & timer );
  std::optional< Place > firstPlace() const;
  bool crowded( const Place & place ) const;
  void order( const Place & place ) const;
  void handDown( const Place & place );
  void endTurn();

  // Mutable are what asking for the first timer puts in order, and what it found.
  mutable std::array< Level, levelCount > levels_;
  mutable uint32_t occupiedLevels_ = 0;   // a bit a level, and perhaps some that are empty by now
  mutable const Timer * first_ = nullptr; // of those in slots; null when not known
  uint64_t reached_ = 0;                  // no timer stands in a slot before this tick
  double turn_ = noTurn;                  // the time of the turn under way
  Slot late_;                             // set during the turn for a time that it has reached
};

// One time to be told of. It may be set, cancelled or destroyed at any moment, by its own firing
// or another's too, and keeps its wheel alive.
class Timer : private LinkedList< Timer >::Link {
public:
  Timer( const Timer & ) = delete;
  Timer & operator=( const Timer & ) = delete;

  // Sets the timer, or sets it anew, for a time in seconds of the wheel's clock. For a time that
  // has passed, however long ago, it fires in the next turn. Infinity is never reached; NaN is
  // fatal.
  void setAt( double time );
  void setAfter( double seconds ) { setAt( wheel_->now() + seconds ); }
  void cancel();
  bool isSet() const { return next; }
  // The time it was last set for.
  double time() const { return time_; }

protected:
  explicit Timer( const Vex::Ptr< TimerWheel > & wheel ) : wheel_( wheel ) {}
  ~Timer() { cancel(); }

  // The time has come; the timer is no longer set.
  virtual void fire() = 0;

private:
  friend class TimerWheel;
  friend class LinkedList< Timer >;

  double time_ = 0;
  const Vex::Ptr< TimerWheel > wheel_;
};

inline double TimerWheel::now() const {
  return Vex::Clock::now();
}

inline uint64_t TimerWheel::tickOf( double time ) {
  const double ticks = time * ticksPerSecond;
  if ( !( ticks > 0 ) ) {
    return 0;
  }
  return ticks < static_cast< double >( maxTick ) ? static_cast< uint64_t >( ticks ) : maxTick;
}

inline void TimerWheel::place( Timer & timer ) {
  const uint64_t tick = std::max( tickOf( timer.time_ ), reached_ );
  const auto digit = static_cast< unsigned >( std::bit_width( ( tick ^ reached_ ) | 1 ) - 1 );
  const unsigned number = digit / digitBits;
  const unsigned index = tick >> number * digitBits & ( slotsPerLevel - 1 );
  Level & level = levels_[ number ];
  const Timer * last = level.slots[ index ].last();
  level.unordered.add( index, last && timer.time_ < last->time_ );
  level.slots[ index ].append( timer );
  level.occupied.add( index );
  occupiedLevels_ |= 1u << number;
}

inline void TimerWheel::set( Timer & timer ) {
  if ( timer.time_ <= turn_ && turn_ != noTurn ) {
    late_.append( timer );
    return;
  }
  if ( first_ && timer.time_ < first_->time_ ) {
    first_ = &timer;
  }
  place( timer );
}

inline void TimerWheel::cancelled( const Timer & timer ) {
  if ( first_ == &timer ) {
    first_ = nullptr;
  }
}

inline void Timer::setAt( double time ) {
  VEX_ASSERT( !std::isnan( time ) );
  cancel();
  time_ = time;
  wheel_->set( *this );
}

inline void Timer::cancel() {
  if ( isSet() ) {
    wheel_->cancelled( *this );
    LinkedList< Timer >::remove( *this );
  }
}

} // namespace Loom
