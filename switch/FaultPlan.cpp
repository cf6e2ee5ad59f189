#include "switch/FaultPlan.h"

#include "Vex/Clock.h"
#include "switch/Random.h"

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
  return static_cast< double >( randomNumber( seed(), callsSeen() ) >> 11 ) * 0x1p-53 <
         probability();
}

} // namespace Switch
