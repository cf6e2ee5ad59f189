#include "Loom/NumAllocator.h"

#include <gmock/gmock.h>

#include <cmath>
#include <deque>
#include <random>
#include <set>

namespace {

class NumAllocatorTest : public testing::Test {
protected:
  NumAllocatorTest() { Vex::Clock::virtualIs( 0.1 ); }
  ~NumAllocatorTest() override { Vex::Clock::steadyIs(); }

  void configure( uint64_t min, uint64_t max, double expiryTime ) {
    allocator = Vex::makePtr< Loom::NumAllocator >(
        Vex::makePtr< Loom::NumAllocatorConfig >( Loom::Range( min, max ), expiryTime ), status,
        Vex::makePtr< Loom::TimerWheel >() );
  }
  Loom::NumAllocatorCounts counts() const { return status->counts(); }

  Vex::Ptr< Loom::NumAllocatorStatus > status = Vex::makePtr< Loom::NumAllocatorStatus >();
  Vex::Ptr< Loom::NumAllocator > allocator;
};

// Few numbers and long rests, so that the range is exhausted again and again.
TEST_F( NumAllocatorTest, OldestReleaseWhoseRestIsOverGoesFirstThenFreshAscending ) {
  configure( 5, 44, 0.3 );
  std::mt19937 random( 7 );
  std::set< uint64_t > used;
  std::deque< std::pair< uint64_t, double > > resting;
  uint64_t fresh = 5;
  int exhausted = 0;
  for ( int step = 0; step < 20000; ++step ) {
    const double now = Vex::Clock::now();
    if ( random() % 2 ) {
      uint64_t expected = UINT64_MAX;
      if ( !resting.empty() && resting.front().second + 0.3 <= now ) {
        expected = resting.front().first;
        resting.pop_front();
      } else if ( fresh <= 44 ) {
        expected = fresh++;
      }
      ASSERT_EQ( allocator->getNumber(), expected ) << "step " << step;
      if ( expected == UINT64_MAX ) {
        ++exhausted;
      } else {
        used.insert( expected );
      }
    } else if ( !used.empty() ) {
      const auto number = *std::next( used.begin(), random() % used.size() );
      used.erase( number );
      resting.emplace_back( number, now );
      allocator->releaseNumber( number );
    }
    ASSERT_EQ( counts(), Loom::NumAllocatorCounts( used.size(), resting.size(), 45 - fresh ) );
    // To the very end of the oldest rest, to just before it, or a little on.
    const double over = resting.empty() ? now : resting.front().second + 0.3;
    const double times[] = { now, now + 0.004, std::nextafter( over, 0 ), over };
    Vex::Clock::advanceTo( times[ random() % 32 < 4 ? 2 + random() % 2 : random() % 2 ] );
  }
  EXPECT_GT( exhausted, 1000 );
}

TEST_F( NumAllocatorTest, WidestRangeAndLastNumbers ) {
  configure( 0, UINT64_MAX - 1, 10 );
  EXPECT_EQ( counts(), Loom::NumAllocatorCounts( 0, 0, UINT64_MAX ) );
  EXPECT_EQ( allocator->getNumber(), 0u );
  EXPECT_EQ( allocator->getNumber(), 1u );
  allocator->releaseNumber( 0 );
  EXPECT_EQ( counts(), Loom::NumAllocatorCounts( 1, 1, UINT64_MAX - 2 ) );

  configure( UINT64_MAX - 2, UINT64_MAX - 1, 0 ); // the status starts anew with its allocator
  EXPECT_EQ( allocator->getNumber(), UINT64_MAX - 2 );
  EXPECT_EQ( allocator->getNumber(), UINT64_MAX - 1 );
  EXPECT_EQ( allocator->getNumber(), allocator->invalidNumber() );
  EXPECT_EQ( counts(), Loom::NumAllocatorCounts( 2, 0, 0 ) );
  allocator->releaseNumber( UINT64_MAX - 1 );
  EXPECT_EQ( allocator->getNumber(), UINT64_MAX - 1 );
}

TEST_F( NumAllocatorTest, ReleaseOfANumberNotInUseIsFatal ) {
  configure( 5, 9, 0 );
  allocator->getNumber();
  allocator->getNumber();
  allocator->releaseNumber( 5 );
  for ( const uint64_t number : { 0ul, 4ul, 5ul, 7ul, 10ul, UINT64_MAX } ) {
    EXPECT_DEATH( allocator->releaseNumber( number ), "isUsed\\( number \\)" ) << number;
  }
}

TEST_F( NumAllocatorTest, ConfigurationRefusesWhatCannotBe ) {
  EXPECT_THROW( configure( 6, 5, 0 ), Vex::RangeError );
  EXPECT_THROW( configure( 0, UINT64_MAX, 0 ), Vex::RangeError );
  EXPECT_THROW( configure( 5, 5, -1 ), Vex::RangeError );
  EXPECT_THROW( configure( 5, 5, std::nan( "" ) ), Vex::RangeError );
  EXPECT_THROW( configure( 5, 5, HUGE_VAL ), Vex::RangeError );
}

} // namespace
