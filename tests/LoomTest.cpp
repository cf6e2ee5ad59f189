#include "Loom/Task.h"
#include "Vex/Clock.h"

#include <gmock/gmock.h>

#include <cmath>
#include <functional>
#include <map>
#include <random>
#include <utility>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class LoomTest : public testing::Test {
protected:
  class Job : public Loom::Task {
  public:
    Job( LoomTest & test, Loom::TaskPriority priority, const std::string & name,
         std::function< void() > body )
        : Task( test.scheduler, priority, name ), test( test ), body( std::move( body ) ) {}

  private:
    void run() override {
      test.ran.push_back( name() );
      body();
      alive = name(); // the run may have dropped its last reference
    }
    LoomTest & test;
    std::function< void() > body;
    std::string alive;
  };

  LoomTest() { Vex::Clock::virtualIs( 0 ); }
  ~LoomTest() override { Vex::Clock::steadyIs(); }

  Vex::Ptr< Job > job(
      const std::string & name, int priority = 4, std::function< void() > body = [] {} ) {
    return Vex::makePtr< Job >( *this, priority, name, std::move( body ) );
  }
  // Who ran in one turn.
  std::vector< std::string > turn() {
    ran.clear();
    const size_t runs = scheduler->runReady();
    EXPECT_EQ( runs, ran.size() );
    return ran;
  }
  std::vector< std::string > turnAt( double seconds ) {
    Vex::Clock::advanceTo( seconds );
    return turn();
  }

  Vex::Ptr< Loom::TaskScheduler > scheduler = Vex::makePtr< Loom::TaskScheduler >();
  std::vector< std::string > ran;
};

TEST_F( LoomTest, PriorityIsZeroToSeven ) {
  EXPECT_EQ( Vex::text( Vex::parse< Loom::TaskPriority >( "7" ) ), "7" );
  for ( const int value : { -1, 8, 256 } ) {
    try {
      const Loom::TaskPriority priority( value );
      FAIL() << value << " became " << Vex::text( priority );
    } catch ( const Vex::RangeError & error ) {
      EXPECT_STREQ( error.what(), "TaskPriority::value > 7 not allowed" );
    }
  }
}

TEST_F( LoomTest, TurnRunsWhatWasReadyByPriorityThenFirstCome ) {
  const auto urgent = job( "urgent", 0 );
  const auto low = job( "low", 7 );
  const auto late = job( "late", 2 );
  Vex::Ptr< Job > again;
  again = job( "again", 2, [ & ] {
    again->scheduleNow();
    urgent->scheduleNow();
    low->cancel(); // gives up its place in this turn
    low->scheduleNow();
  } );
  const auto last = job( "last", 7 );
  late->scheduleAfter( 1 );
  low->scheduleNow();
  last->scheduleNow();
  again->scheduleNow();
  low->scheduleNow();
  EXPECT_THAT( turnAt( 1 ), ElementsAre( "again", "late", "last" ) );
  EXPECT_THAT( turn(), ElementsAre( "urgent", "again" ) );
  again->cancel();
  EXPECT_THAT( turn(), ElementsAre( "urgent", "low" ) );
  EXPECT_EQ( scheduler->nextDeadline(), std::nullopt );
}

TEST_F( LoomTest, PendingRunIsNeverEarlyAndOnlyMovesForward ) {
  const auto task = job( "task" );
  const auto nextRun = [ & ] { return task->fwkType().attribute( "nextRun" )->value( *task ); };
  task->scheduleAfter( 9 );
  task->scheduleAfter( 0.3 );
  task->scheduleAfter( 7 );
  EXPECT_EQ( nextRun(), "0.3" );
  EXPECT_EQ( scheduler->nextDeadline(), 0.3 );
  EXPECT_THAT( turnAt( std::nextafter( 0.3, 0 ) ), IsEmpty() );
  EXPECT_THAT( turnAt( 0.3 ), ElementsAre( "task" ) );
  EXPECT_EQ( nextRun(), "none" );

  task->scheduleAfter( 5 );
  task->scheduleAfter( -1 );
  task->scheduleAfter( 1 ); // ready already
  EXPECT_EQ( scheduler->delayedTasks(), 0u );
  EXPECT_EQ( nextRun(), "0.3" );
  EXPECT_EQ( scheduler->nextDeadline(), 0.3 );
  EXPECT_THAT( turn(), ElementsAre( "task" ) );
  EXPECT_THAT( turnAt( 20 ), IsEmpty() );
}

// Against a plain table of who is due when; few distinct times, so that many are equal.
TEST_F( LoomTest, AnyDelayAboveNothingLetsTimePass ) {
  Vex::Clock::virtualIs( 1e9 ); // where the clock cannot tell a nanosecond
  const auto task = job( "task" );
  task->scheduleAfter( 1e-300 );
  EXPECT_GT( *scheduler->nextDeadline(), 1e9 );
  task->cancel();
  task->scheduleAfter( std::numeric_limits< double >::infinity() );
  Vex::Clock::advanceTo( 1e300 );
  EXPECT_EQ( scheduler->runReady(), 0u );
  task->scheduleAfter( -std::numeric_limits< double >::infinity() );
  EXPECT_EQ( scheduler->runReady(), 1u );
  EXPECT_DEATH( task->scheduleAfter( std::nan( "" ) ), "isnan" );
}

TEST_F( LoomTest, AnyMixOfRequestsKeepsTheOrderOfTimes ) {
  std::mt19937 random( 20 );
  std::map< std::string, Vex::Ptr< Job > > jobs;
  std::map< std::string, std::pair< double, int > > due; // time, number of the request
  for ( int step = 0; step < 20000; ++step ) {
    const auto name = std::to_string( random() % 60 );
    auto & task = jobs[ name ];
    task = task ? task : job( name );
    const unsigned action = random() % 16;
    if ( action < 12 ) {
      const double delay = 1 + random() % 8;
      task->scheduleAfter( delay );
      const std::pair request( Vex::Clock::now() + delay, step );
      const auto [ at, added ] = due.emplace( name, request );
      at->second = at->second.first <= request.first ? at->second : request;
    } else if ( action == 12 ) {
      task = nullptr;
      due.erase( name );
    } else if ( action < 15 ) {
      task->cancel();
      due.erase( name );
    } else {
      std::map< std::pair< double, int >, std::string > order;
      for ( const auto & [ each, at ] : due ) {
        order[ at ] = each;
      }
      ASSERT_EQ( scheduler->nextDeadline().value_or( -1 ),
                 order.empty() ? -1 : order.begin()->first.first );
      const double now = Vex::Clock::now() + 1;
      std::vector< std::string > expected;
      for ( auto at = order.begin(); at != order.end() && at->first.first <= now; ++at ) {
        expected.push_back( at->second );
        due.erase( at->second );
      }
      ASSERT_EQ( turnAt( now ), expected ) << "step " << step;
    }
  }
}

TEST_F( LoomTest, RunMayRescheduleCancelOrDestroyAnyTask ) {
  std::vector< bool > scheduled;
  auto ready = job( "ready" );
  auto delayed = job( "delayed" );
  Vex::Ptr< Job > self;
  self = job( "self", 4, [ & ] {
    const auto note = [ & ] { scheduled.push_back( self->isScheduled() ); };
    note();
    self->scheduleAfter( 1 );
    note();
    self->cancel();
    note();
    self->scheduleNow();
    ready = delayed = self = nullptr;
  } );
  Vex::Ptr< Job > last;
  last = job( "last", 5, [ & ] { last = nullptr; } );
  self->scheduleNow();
  ready->scheduleNow();
  delayed->scheduleAfter( 1 );
  last->scheduleNow();
  EXPECT_THAT( turn(), ElementsAre( "self", "last" ) );
  EXPECT_THAT( scheduled, ElementsAre( false, true, false ) );
  EXPECT_EQ( scheduler->nextDeadline(), std::nullopt );

  // The last task of all takes the scheduler with it, once the turn is over.
  last = job( "last", 5, [ & ] { last = nullptr; } );
  last->scheduleNow();
  auto * ending = std::exchange( scheduler, nullptr ).get();
  EXPECT_EQ( ending->runReady(), 1u );
}

TEST_F( LoomTest, ExceptionPassesAndTheOthersRunInTheNextTurn ) {
  const auto after = job( "after", 5 );
  const auto fails = job( "fails", 4, [] { throw std::runtime_error( "fails" ); } );
  const auto before = job( "before", 3 );
  for ( const auto & each : { after, fails, before } ) {
    each->scheduleAfter( 1 );
  }
  Vex::Clock::advanceTo( 1 );
  EXPECT_THROW( scheduler->runReady(), std::runtime_error );
  EXPECT_EQ( scheduler->readyTasks(), 1u );
  EXPECT_EQ( scheduler->nextDeadline(), 1.0 );
  EXPECT_FALSE( fails->taskShouldYield() );
  EXPECT_THAT( turn(), ElementsAre( "after" ) );
}

TEST_F( LoomTest, RunYieldsByWorkOrOnTheSteadyClockByTime ) {
  uint64_t units = 0;
  Vex::Ptr< Job > task;
  task = job( "task", 4, [ & ] {
    for ( units = 0; !task->taskShouldYield() && units < 100'000'000; ++units ) {
      if ( Vex::Clock::isVirtual() ) {
        Vex::Clock::advanceTo( Vex::Clock::now() + 1 );
      }
      task->taskWorkInc();
    }
    EXPECT_TRUE( task->taskShouldYield() );
  } );
  const auto run = [ & ] {
    task->scheduleNow();
    EXPECT_EQ( scheduler->runReady(), 1u );
    return units;
  };
  EXPECT_EQ( run(), 1000u );
  scheduler->workBudgetIs( 7 );
  EXPECT_EQ( run(), 7u );
  EXPECT_EQ( run(), 7u ); // counted anew
  task->taskWorkInc( 10 );
  EXPECT_FALSE( task->taskShouldYield() ); // not in a run

  Vex::Clock::steadyIs();
  scheduler->timeSliceIs( 1e6 );
  EXPECT_EQ( run(), 7u );
  scheduler->workBudgetIs( UINT64_MAX );
  scheduler->timeSliceIs( 0.001 );
  EXPECT_LT( run(), 100'000'000u );
  EXPECT_LT( run(), 100'000'000u );
  EXPECT_GT( units, 1u ); // the slice began anew
}

} // namespace
