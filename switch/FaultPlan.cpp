#include "switch/FaultPlan.h"

#include "Vex/Clock.h"

namespace Switch {

bool FaultPlan::strikes() {
  callsSeenIs( callsSeen() + 1 );
  return strikesNext() || ( everyNth() && callsSeen() % everyNth() == 0 ) || strikesByChance() ||
         Vex::Clock::now() < untilTime();
}

bool FaultPlan::strikesNext() {
  if ( nextCalls() == 0 ) {
    return false;
  }
  nextCallsIs( nextCalls() - 1 );
  return true;
}

bool FaultPlan::strikesByChance() const {
  if ( !( probability() > 0 ) ) {
    return false;
  }
  // The generator SplitMix64, whose n-th number needs no other: nothing is kept but the count.
  uint64_t number = seed() + callsSeen() * 0x9E3779B97F4A7C15ull;
  number = ( number ^ ( number >> 30 ) ) * 0xBF58476D1CE4E5B9ull;
  number = ( number ^ ( number >> 27 ) ) * 0x94D049BB133111EBull;
  number ^= number >> 31;
  return static_cast< double >( number >> 11 ) * 0x1p-53 < probability();
}

} // namespace Switch
