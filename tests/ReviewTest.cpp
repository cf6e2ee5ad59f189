#include "TraceCapture.h"
#include "VirtualTime.h"

#include "PortFilterSm.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;
using Lines = std::vector< std::string >;

namespace {

using ReviewTest = VirtualTime;

// A review of plain numbers, 0 among them.
class NumberReviewTest : public ReviewTest {
protected:
  using Task = Kez::ReviewTask< uint64_t >;

  NumberReviewTest() { replace( 2, "review" ); }

  void replace( Loom::TaskPriority priority, const char * name ) {
    Task::replace(
        task, scheduler, priority, name, *owner, [ this ] { run(); }, handle,
        Kez::unprogrammedReviewTexts );
  }
  void run() {
    visited.emplace_back();
    ended = task->review(
        keys.range(),
        [ this ]( uint64_t key ) {
          visited.back().push_back( key );
          step( key );
        },
        5.0, resume );
  }

  Ringlog::Handle handle{ "NumberReview" };
  Vex::Ptr< Evpn::EvpnStatus > owner = Vex::makePtr< Evpn::EvpnStatus >();
  Vex::Ptr< Task > task;
  Vex::Collection< uint64_t > keys;
  std::function< void( uint64_t ) > step = []( uint64_t ) {};
  Kez::Resume resume = Kez::Resume::atBookmark;
  std::vector< std::vector< uint64_t > > visited;
  bool ended = false;
};

TEST_F( NumberReviewTest, DelayedRunIsNeitherDoubledNorPostponedAndImmediateMovesItForward ) {
  TraceCapture trace( "NumberReview/5" );
  task->maybeSchedule( false, 5.0 );
  advanceTo( 2 );
  task->maybeSchedule( false, 5.0 );
  EXPECT_EQ( scheduler->nextDeadline(), 5.0 );
  task->maybeSchedule( true, 5.0 );
  EXPECT_EQ( scheduler->nextDeadline(), 2.0 );
  EXPECT_THAT( trace.take(), ElementsAre( "5 next unprogrammed review at 5", "5 already scheduled",
                                          "5 schedule immediate unprogrammed review" ) );
  advanceTo( 20 );
  EXPECT_EQ( visited.size(), 1u );
  EXPECT_TRUE( ended );
}

TEST_F( NumberReviewTest, YieldedRunGoesOnAtItsBookmarkOnce ) {
  for ( const uint64_t key : { 7, 0, 5, 0, 9 } ) {
    keys.add( key );
  }
  scheduler->workBudgetIs( 1 );
  task->maybeSchedule( true, 5.0 );
  advanceTo( 0 );
  EXPECT_FALSE( ended );
  EXPECT_EQ( task->bookmark(), 0u );
  EXPECT_EQ( scheduler->nextDeadline(), 5.0 );
  advanceTo( 5 );
  keys.erase( 5 ); // the bookmark goes: back to the first
  advanceTo( 30 );
  EXPECT_THAT( visited, ElementsAre( ElementsAre( 7 ), ElementsAre( 0 ), ElementsAre( 7 ),
                                     ElementsAre( 0 ), ElementsAre( 9 ) ) );
  EXPECT_TRUE( ended );
  EXPECT_EQ( task->bookmark(), std::nullopt );
  EXPECT_EQ( scheduler->nextDeadline(), std::nullopt );

  // A new request starts over, whatever the bookmark was.
  scheduler->workBudgetIs( 2 );
  task->maybeSchedule( true, 5.0 );
  advanceTo( 30 );
  task->maybeSchedule( true, 5.0 );
  advanceTo( 30 );
  EXPECT_EQ( visited.at( 5 ), visited.at( 6 ) );
}

TEST_F( NumberReviewTest, WithoutBookmarkEveryRunBeginsAtTheFirst ) {
  keys.add( 1 );
  keys.add( 2 );
  resume = Kez::Resume::atFirst;
  scheduler->workBudgetIs( 1 );
  task->maybeSchedule( true, 5.0 );
  advanceTo( 5 );
  EXPECT_THAT( visited, ElementsAre( ElementsAre( 1 ), ElementsAre( 1 ) ) );
}

TEST_F( NumberReviewTest, KeysParkedAgainGoToTheBackAndTheRunEnds ) {
  for ( const uint64_t key : { 1, 2, 3 } ) {
    keys.add( key );
  }
  step = [ this ]( uint64_t key ) {
    keys.erase( key );
    keys.add( key == 2 ? 20 : key );
  };
  task->maybeSchedule( true, 5.0 );
  advanceTo( 0 );
  task->maybeSchedule( true, 5.0 );
  advanceTo( 0 );
  EXPECT_THAT( visited, ElementsAre( ElementsAre( 1, 2, 3 ), ElementsAre( 1, 20, 3 ) ) );
}

TEST_F( NumberReviewTest, TaskIsReplacedOnlyForOtherParameters ) {
  const auto first = task;
  first->maybeSchedule( true, 5.0 );
  replace( 2, "review" );
  EXPECT_EQ( task, first );
  replace( 3, "review" );
  EXPECT_NE( task, first );
  const auto second = task;
  replace( 3, "other" );
  EXPECT_NE( task, second );
  // What was due comes once, from the task that stands; one that was given up never runs again.
  keys.add( 1 );
  first->scheduleNow();
  advanceTo( 0 );
  EXPECT_THAT( visited, ElementsAre( ElementsAre( 1 ) ) );
}

class Chip : public Example::PortFilterHelper {
public:
  explicit Chip( int refusals ) : PortFilterHelper( "chip" ), refusals( refusals ) {}
  Kez::HwProgrammingStatus createFilter( Wire::IntfId intfId ) override {
    calls.push_back( "create " + Vex::text( intfId ) );
    onCreate();
    return refusals-- > 0 ? Kez::HwProgrammingStatus::notProgrammed
                          : Kez::HwProgrammingStatus::programmed;
  }
  void deleteFilter( Wire::IntfId intfId ) override {
    calls.push_back( "delete " + Vex::text( intfId ) );
  }
  Lines take() { return std::exchange( calls, {} ); }

  int refusals;
  std::function< void() > onCreate = [] {};
  Lines calls;
};

class PortFilterSmTest : public ReviewTest {
protected:
  ~PortFilterSmTest() override {
    if ( sm ) {
      Kez::Findings findings( "sm" );
      sm->check( findings );
      EXPECT_EQ( findings.text(), "" );
    }
  }
  std::string told( Wire::IntfId intfId ) const {
    Kez::Explanation explanation;
    sm->explain( { Kez::IntfVlanKey( intfId, 1 ) }, explanation );
    return std::string( explanation.text() );
  }

  const Wire::IntfId eth1{ "Ethernet1" };
  const Wire::IntfId eth2{ "Ethernet2" };
  Vex::Ptr< Evpn::EvpnStatus > evpnStatus = Vex::makePtr< Evpn::EvpnStatus >();
  Vex::Ptr< Chip > chip = Vex::makePtr< Chip >( 0 );
  Vex::Ptr< Example::PortFilterSm > sm =
      Vex::makePtr< Example::PortFilterSm >( chip, scheduler, evpnStatus );
};

TEST_F( PortFilterSmTest, StartsFromWhatStandsAndRetriesUntilProgrammedOrWithdrawn ) {
  evpnStatus->encapBumFilterIs( eth1 );
  sm->vex_handleReviewUnprogrammed_taskRun();
  EXPECT_THAT( chip->take(), IsEmpty() );

  chip->refusals = 3;
  sm->handleInitialized();
  evpnStatus->encapBumFilterIs( eth2 );
  EXPECT_THAT( chip->take(), ElementsAre( "create Ethernet1", "create Ethernet2" ) );
  EXPECT_EQ( sm->unprogrammeds(), 2u );
  EXPECT_EQ( told( eth1 ),
             "filtered, not in hardware; hardware refused once just now, next try in 5.0 s" );
  Kez::Missing missing;
  sm->addMissing( missing );
  ASSERT_EQ( missing.groups().size(), 1u );
  EXPECT_EQ( Kez::text( missing.groups().front() ),
             "2 interfaces refused by hardware, next try in 5.0 s: Ethernet1, Ethernet2" );
  advanceTo( 5 ); // one refused again, the other takes its turn
  EXPECT_THAT( chip->take(), ElementsAre( "create Ethernet1", "create Ethernet2" ) );
  EXPECT_EQ( scheduler->nextDeadline(), 10.0 );
  evpnStatus->encapBumFilterDel( eth2 ); // frees room: the parked one is tried at once
  EXPECT_EQ( scheduler->nextDeadline(), 5.0 );
  advanceTo( 5 );
  EXPECT_THAT( chip->take(), ElementsAre( "delete Ethernet2", "create Ethernet1" ) );
  EXPECT_EQ( sm->programmeds(), 1u );
  EXPECT_EQ( scheduler->nextDeadline(), std::nullopt );
}

TEST_F( PortFilterSmTest, MachineMayBeDroppedByItsOwnRun ) {
  chip->refusals = 1;
  sm->handleInitialized();
  evpnStatus->encapBumFilterIs( eth1 );
  const auto task = sm->reviewUnprogrammed();
  chip->onCreate = [ & ] { sm = nullptr; };
  advanceTo( 5 );
  EXPECT_EQ( sm, nullptr );
  EXPECT_THAT( chip->take(), ElementsAre( "create Ethernet1", "create Ethernet1" ) );
  EXPECT_EQ( scheduler->nextDeadline(), std::nullopt );
}

TEST_F( PortFilterSmTest, TaskHeldBeyondItsMachineRunsNothing ) {
  chip->refusals = 9;
  sm->handleInitialized();
  evpnStatus->encapBumFilterIs( eth1 );
  const auto task = sm->reviewUnprogrammed();
  sm = nullptr;
  chip->take();
  task->scheduleNow();
  advanceTo( 9 );
  EXPECT_THAT( chip->take(), IsEmpty() );
}

TEST_F( PortFilterSmTest, ReplacedTaskLeavesItsRetryBehind ) {
  chip->refusals = 1;
  sm->handleInitialized();
  evpnStatus->encapBumFilterIs( eth1 );
  advanceTo( 2 );
  sm->reviewUnprogrammedIs( scheduler, 1, "reviewUnprogrammed" );
  EXPECT_EQ( scheduler->nextDeadline(), 5.0 );
  advanceTo( 5 );
  EXPECT_EQ( sm->programmeds(), 1u );
}

TEST_F( PortFilterSmTest, NotificationsOfTheWholeMachineAreSwitchedTogether ) {
  sm->handleInitialized();
  sm->hasNotificationActiveIs( false );
  evpnStatus->encapBumFilterIs( eth1 );
  sm->hasNotificationActiveIs( true ); // replays nothing
  EXPECT_THAT( chip->take(), IsEmpty() );
  evpnStatus->encapBumFilterIs( eth2 );
  EXPECT_THAT( chip->take(), ElementsAre( "create Ethernet2" ) );
}

TEST_F( PortFilterSmTest, BrokenInvariantsNameTheMachinesSource ) {
  EXPECT_DEATH( sm->maybeScheduleUnprogrammedReview( true ),
                "PortFilterSm: assertion failed: initialized\\(\\)" );
  EXPECT_DEATH( sm->doReviewUnprogrammed(), "assertion failed: initialized\\(\\)" );
  sm->initializedIs( true );
  EXPECT_DEATH( sm->doReviewUnprogrammed(), "PortFilterSm: assertion failed: task" );
  EXPECT_DEATH( sm->maybeScheduleUnprogrammedReview( false ),
                "PortFilterSm: assertion failed: reviewUnprogrammed\\(\\)" );
}

} // namespace
