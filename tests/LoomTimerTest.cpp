#include "Loom/Task.h"
#include "Loom/TimerWheel.h"

#include <gmock/gmock.h>

#include <cmath>
#include <functional>
#include <map>
#include <memory>
#include <random>

namespace {

class LambdaTimer final : public Loom::Timer {
public:
  LambdaTimer( const Vex::Ptr< Loom::TimerWheel > & wheel, std::function< void() > body )
      : Timer( wheel ), body_( std::move( body ) ) {}

private:
  void fire() override {
    const auto body = body_; // the timer may end meanwhile
    body();
  }
  std::function< void() > body_;
};

class LoomTimerTest : public testing::Test {
protected:
  LoomTimerTest() { Vex::Clock::virtualIs( 0 ); }
  ~LoomTimerTest() override { Vex::Clock::steadyIs(); }

  Vex::Ptr< Loom::TimerWheel > wheel = Vex::makePtr< Loom::TimerWheel >();
};

// The wheel beside a plain ordered table of what is set. Timers do as they please when they fire,
// and the clock creeps, jumps by hours, stands still, and once in a while is set back.
class TimerSimulation {
public:
  explicit TimerSimulation( unsigned seed ) : random_( seed ) {
    for ( size_t i = 0; i < timers_.size(); ++i ) {
      make( i );
    }
  }

  void step() {
    for ( unsigned i = pick( 40 ); i > 0; --i ) {
      act();
    }
    if ( pick( 300 ) == 0 ) {
      Vex::Clock::virtualIs( Vex::Clock::now() - 1 );
    }
    static constexpr double jumps[] = { 0, 1e-7, 1e-6, 1e-3, 0.06, 1, 20, 4000, 1e5 };
    Vex::Clock::advanceTo( Vex::Clock::now() + jumps[ pick( std::size( jumps ) ) ] );
    if ( pick( 3 ) ) {
      ASSERT_EQ( wheel_->nextDeadline(), expectedDeadline() );
    }
    turn();
    ASSERT_EQ( wheel_->nextDeadline(), expectedDeadline() );
    ASSERT_EQ( wheel_->timers(), table_.size() );
  }
  size_t fired() const { return fired_; }

private:
  struct Entry {
    double time;
    uint64_t sequence;
    bool operator<( const Entry & other ) const {
      return std::tie( time, sequence ) < std::tie( other.time, other.sequence );
    }
  };

  unsigned pick( unsigned n ) { return random_() % n; }

  void turn() {
    turnStart_ = sequence_;
    turnTime_ = Vex::Clock::now();
    try {
      wheel_->fireDue();
      const auto due = firstDue();
      EXPECT_TRUE( due == table_.end() ) << due->second << " did not fire";
    } catch ( const std::runtime_error & ) {}
  }
  // What was set before the turn for a time that it reached.
  std::map< Entry, size_t >::iterator firstDue() {
    return std::find_if( table_.begin(), table_.end(), [ & ]( const auto & each ) {
      return each.first.time <= turnTime_ && each.first.sequence < turnStart_;
    } );
  }
  std::optional< double > expectedDeadline() const {
    return table_.empty() ? std::nullopt : std::optional( table_.begin()->first.time );
  }

  void make( size_t number ) {
    forget( number );
    timers_[ number ] = std::make_unique< LambdaTimer >( wheel_, [ =, this ] { fire( number ); } );
  }
  void forget( size_t number ) {
    std::erase_if( table_, [ & ]( const auto & each ) { return each.second == number; } );
  }
  void fire( size_t number ) {
    ++fired_;
    const auto due = firstDue();
    ASSERT_TRUE( due != table_.end() ) << number << " is early";
    ASSERT_EQ( due->second, number );
    ASSERT_FALSE( timers_[ number ]->isSet() );
    table_.erase( due );
    for ( unsigned i = pick( 3 ); i > 0; --i ) {
      act();
    }
    if ( pick( 8 ) == 0 ) {
      set( number );
    }
    if ( pick( 200 ) == 0 ) {
      throw std::runtime_error( "a timer failed" );
    }
  }
  void act() {
    const size_t number = pick( timers_.size() );
    const unsigned action = pick( 16 );
    if ( action < 12 ) {
      set( number );
    } else if ( action < 15 ) {
      timers_[ number ]->cancel();
      forget( number );
    } else {
      make( number );
    }
  }
  // Mostly near and within one tick or one slot of each other; some equal, passed or never.
  void set( size_t number ) {
    const double now = Vex::Clock::now();
    const double fraction = random_() / 4294967296.0;
    const double times[] = { now + fraction * 1e-6,
                             now + fraction * 1e-4,
                             now + fraction * 0.06,
                             now + fraction * 30,
                             std::floor( now ) + pick( 4 ),
                             now + fraction * 1e4,
                             now + std::exp( fraction * 40 ),
                             now - fraction,
                             std::numeric_limits< double >::infinity(),
                             -std::numeric_limits< double >::infinity() };
    const double time = times[ pick( 32 ) == 0 ? 8 + pick( 2 ) : ( kind_ += pick( 40 ) == 0 ) % 8 ];
    forget( number );
    timers_[ number ]->setAt( time );
    table_.emplace( Entry{ time, sequence_++ }, number );
  }

  std::mt19937 random_;
  const Vex::Ptr< Loom::TimerWheel > wheel_ = Vex::makePtr< Loom::TimerWheel >();
  std::array< std::unique_ptr< LambdaTimer >, 400 > timers_;
  std::map< Entry, size_t > table_;
  size_t fired_ = 0;
  unsigned kind_ = 0;
  uint64_t sequence_ = 0;
  uint64_t turnStart_ = 0;
  double turnTime_ = 0;
};

TEST_F( LoomTimerTest, AnyMixFiresInTimeOrderNeverEarlyNeverTwice ) {
  for ( unsigned seed = 1; seed <= 3 && !HasFailure(); ++seed ) {
    Vex::Clock::virtualIs( seed == 1 ? 0 : 1e6 * seed + 0.3 );
    TimerSimulation simulation( seed );
    for ( int step = 0; step < 2000 && !HasFailure(); ++step ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) + " step " + std::to_string( step ) );
      simulation.step();
    }
    EXPECT_GT( simulation.fired(), 10000u );
  }
}

TEST_F( LoomTimerTest, TurnEndsThoughATimerIsSetForATimeReached ) {
  int fired = 0;
  std::unique_ptr< LambdaTimer > timer;
  timer = std::make_unique< LambdaTimer >( wheel, [ & ] {
    timer->setAt( ++fired ); // at 3600 s behind the clock at first
  } );
  timer->setAt( 0 );
  Vex::Clock::advanceTo( 3600 );
  for ( int turn = 1; turn <= 3; ++turn ) {
    wheel->fireDue();
    EXPECT_EQ( fired, turn );
    EXPECT_EQ( wheel->nextDeadline(), turn );
  }
  timer = std::make_unique< LambdaTimer >( wheel, [ & ] { wheel->fireDue(); } );
  timer->setAt( 0 );
  EXPECT_DEATH( wheel->fireDue(), "turn_ == noTurn" );
  EXPECT_DEATH( timer->setAt( std::nan( "" ) ), "isnan" );
}

TEST_F( LoomTimerTest, TimersOfOthersShareTheSchedulersTurn ) {
  class Job : public Loom::Task {
  public:
    explicit Job( const Vex::Ptr< Loom::TaskScheduler > & scheduler )
        : Task( scheduler, 4, "job" ) {}

  private:
    void run() override {}
  };

  auto scheduler = Vex::makePtr< Loom::TaskScheduler >();
  wheel = scheduler->timerWheel();
  const auto job = Vex::makePtr< Job >( scheduler );
  std::unique_ptr< LambdaTimer > timer;
  timer = std::make_unique< LambdaTimer >( wheel, [ & ] {
    job->scheduleNow();
    wheel = nullptr;
    timer = nullptr;
  } );
  job->scheduleAfter( 9 );
  timer->setAfter( 0.3 );
  EXPECT_EQ( scheduler->nextDeadline(), 0.3 );
  EXPECT_EQ( scheduler->delayedTasks(), 1u );
  Vex::Clock::advanceTo( 0.3 );
  EXPECT_EQ( scheduler->runReady(), 1u );
  EXPECT_EQ( scheduler->delayedTasks(), 0u );
  EXPECT_EQ( scheduler->nextDeadline(), std::nullopt );
}

} // namespace
