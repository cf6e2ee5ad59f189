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

#include "Loom/TimerSlot.h"
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

  static constexpr double ticksPerSecond = 1 << 12; // a power of two: no time's tick is rounded
  static constexpr unsigned digitBits = 8;
  static constexpr unsigned slotsPerLevel = 1u << digitBits;
  static constexpr unsigned levelCount = 6;
  static constexpr uint64_t maxTick = ( uint64_t( 1 ) << digitBits * levelCount ) - 1;
  static constexpr size_t many = 32; // fewer are put in order more cheaply than handed down
  static constexpr double noTurn = -std::numeric_limits< double >::infinity();

  // A slot with timers, and the first tick of its span.
  struct Place {
    unsigned slot;
    uint64_t tick;
  };

  static uint64_t tickOf( double time );
  void set( Timer & timer );
  void cancelled( const Timer & timer );
  void setPassed( Timer & timer );
  void keepFirst( const Timer & timer );
  void place( Timer & timer, uint64_t tick );
  unsigned slotOf( uint64_t tick ) const;
  void occupy( unsigned slot );
  bool findFirst( Place & place ) const;
  bool crowded( const Place & place ) const;
  void handDown( const Place & place );
  void endTurn();

  static constexpr unsigned slotCount = levelCount * slotsPerLevel;
  static constexpr unsigned slotsPerWord = 64;

  // Mutable are what asking for the first timer puts in order, and what it found.
  mutable std::array< TimerSlot, slotCount > slots_; // the lowest level's first
  // Of the slots those with timers, and perhaps some that are empty by now; of these words those
  // that are not 0, and perhaps some that are by now.
  mutable std::array< uint64_t, slotCount / slotsPerWord > occupied_{};
  mutable uint32_t occupiedWords_ = 0;
  mutable const Timer * first_ = nullptr; // of those in slots; null when not known
  mutable double firstTime_ = noTurn;     // before all times when that is not known
  uint64_t reached_ = 0;                  // no timer stands in a slot before this tick
  double turn_ = noTurn;                  // the time of the turn under way
  double passed_ = 0; // the same if above 0: only what is set for a later time is placed at once
  TimerSlot late_;    // set during the turn for a time that it has reached
};

// One time to be told of. It may be set, cancelled or destroyed at any moment, by its own firing
// or another's too, and keeps its wheel alive.
class Timer : private TimerLink {
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
  double time() const { return TimerLink::time; }

protected:
  explicit Timer( const Vex::Ptr< TimerWheel > & wheel ) : wheel_( wheel ) {}
  ~Timer() { cancel(); }

  // The time has come; the timer is no longer set.
  virtual void fire() = 0;

private:
  friend class TimerWheel;

  const Vex::Ptr< TimerWheel > wheel_;
};

inline double TimerWheel::now() const {
  return Vex::Clock::now();
}

inline uint64_t TimerWheel::tickOf( double time ) {
  return static_cast< uint64_t >( static_cast< int64_t >(
      std::min( time * ticksPerSecond, static_cast< double >( maxTick ) ) ) );
}

inline unsigned TimerWheel::slotOf( uint64_t tick ) const {
  const auto bit = static_cast< unsigned >( 63 - std::countl_zero( ( tick ^ reached_ ) | 1 ) );
  const unsigned shift = bit & ~( digitBits - 1 );
  return shift * ( slotsPerLevel / digitBits ) +
         static_cast< unsigned >( tick >> shift & ( slotsPerLevel - 1 ) );
}

inline void TimerWheel::occupy( unsigned slot ) {
  occupied_[ slot / slotsPerWord ] |= uint64_t( 1 ) << slot % slotsPerWord;
  occupiedWords_ |= 1u << slot / slotsPerWord;
}

inline void TimerWheel::keepFirst( const Timer & timer ) {
  if ( timer.time() < firstTime_ ) {
    first_ = &timer;
    firstTime_ = timer.time();
  }
}

inline void TimerWheel::place( Timer & timer, uint64_t tick ) {
  keepFirst( timer );
  const unsigned number = slotOf( std::max( tick, reached_ ) );
  TimerSlot & slot = slots_[ number ];
  if ( slot.empty() ) {
    occupy( number );
  }
  slot.append( timer );
}

inline void TimerWheel::set( Timer & timer ) {
  if ( timer.time() <= passed_ ) [[unlikely]] {
    setPassed( timer );
  } else {
    place( timer, tickOf( timer.time() ) );
  }
}

inline void TimerWheel::cancelled( const Timer & timer ) {
  if ( first_ == &timer ) {
    first_ = nullptr;
    firstTime_ = noTurn;
  }
}

inline void Timer::setAt( double time ) {
  VEX_ASSERT( !std::isnan( time ) );
  cancel();
  TimerLink::time = time;
  wheel_->set( *this );
}

inline void Timer::cancel() {
  if ( isSet() ) {
    wheel_->cancelled( *this );
    TimerSlot::remove( *this );
  }
}

} // namespace Loom
