// Hands out the numbers of a range and takes them back. A number that was released rests before
// it is handed out again; one whose rest is over, oldest release first, goes before a number that
// was never handed out, and those go in ascending order.
//
// Memory is needed for released numbers alone, whatever the range. An allocator begins with every
// number of its range fresh, whatever the status told of one before it, and the status is its own
// from then on. Who wants to avoid a number that it was given releases it: it is passed over, and
// rests.
#pragma once

#include "Loom/TimerWheel.h"
#include "Vex/Value.h"

namespace Loom {

// From min to max, both included.
struct Range {
  uint64_t min = 0;
  uint64_t max = 0;
  VEX_VALUE( Range, "Loom::Range", min, max )
};

// Which numbers there are, and how long one rests before it is given again.
class NumAllocatorConfig : public Vex::Entity {
  VEX_ENTITY( NumAllocatorConfig, "Loom::NumAllocatorConfig" )
  VEX_COMPUTED( 1, range, Range )
  VEX_COMPUTED( 2, expiryTime, double ) // how long a released number rests, in seconds
  VEX_ATTRIBUTES( range, expiryTime )

public:
  // Raises Vex::RangeError for a range that is empty or holds the invalid number, and for a time
  // that Vex::Seconds does not contain.
  NumAllocatorConfig( const Range & range, double expiryTime );

private:
  const Range range_;
  const double expiryTime_;
};

// Every number of the range counts once.
struct NumAllocatorCounts {
  uint64_t used = 0;
  uint64_t resting = 0; // released and not yet handed out again, though their rest may be over
  uint64_t fresh = 0;   // never handed out
  VEX_VALUE( NumAllocatorCounts, "Loom::NumAllocatorCounts", used, resting, fresh )
};

// How many numbers are in use, rest and are free.
class NumAllocatorStatus : public Vex::Entity {
  VEX_ENTITY( NumAllocatorStatus, "Loom::NumAllocatorStatus" )
  VEX_ATTRIBUTE( 1, counts, NumAllocatorCounts ) // as one value, so that they always add up
  VEX_ATTRIBUTES( counts )

public:
  static constexpr auto vexAccess = Vex::Access::readOnly;
};

class NumAllocator : public Vex::Entity {
  VEX_ENTITY( NumAllocator, "Loom::NumAllocator" )
  VEX_INPUT( 1, numAllocatorConfig, NumAllocatorConfig )
  VEX_OUTPUT( 2, numAllocatorStatus, NumAllocatorStatus )
  VEX_INPUT( 3, clock, TimerWheel )
  VEX_MAP( 4, restingNumber, uint64_t, double ) // when it was released, oldest first
  VEX_ATTRIBUTES( numAllocatorConfig, numAllocatorStatus, clock, restingNumber )

public:
  static constexpr auto vexAccess = Vex::Access::readOnly;

  // Rests are measured on the clock of the timer wheel.
  NumAllocator( const Vex::Ptr< const NumAllocatorConfig > & config,
                const Vex::Ptr< NumAllocatorStatus > & status,
                const Vex::Ptr< const TimerWheel > & clock );

  static constexpr uint64_t invalidNumber() { return UINT64_MAX; }

  // The invalid number if every number is in use or rests.
  uint64_t getNumber();
  // Fatal if the number is not in use.
  void releaseNumber( uint64_t number );
  bool isUsed( uint64_t number ) const;

private:
  uint64_t restedNumber() const;
  void publishCounts() const;

  uint64_t fresh_; // the next one; beyond the range when there is none
};

} // namespace Loom
