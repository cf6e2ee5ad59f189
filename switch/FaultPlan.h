// When an operation of the simulated switch fails although nothing is wrong with the call, and what
// it answers then. A call fails if any of the causes below says so; without one none does. A plan
// is a function of what it is set to and of the calls that it has seen, so that a run repeats.
#pragma once

#include "Vex/Attributes.h"
#include "switch/Operation.h"

namespace Switch {

class FaultPlan : public Vex::Entity {
  VEX_ENTITY( FaultPlan, "Switch::FaultPlan" )
  VEX_KEY( FaultPlan, operation, FallibleOperation )
  VEX_ATTRIBUTE( 1, nextCalls, uint32_t )           // so many calls from now on, counted down
  VEX_ATTRIBUTE( 2, everyNth, uint32_t )            // of the calls seen; 0: none
  VEX_ATTRIBUTE( 3, probability, Vex::Probability ) // of each call
  VEX_ATTRIBUTE( 4, seed, uint64_t )          // chooses the calls that the probability strikes
  VEX_ATTRIBUTE( 5, untilTime, Vex::Seconds ) // all calls before this time of Vex::Clock
  VEX_ATTRIBUTE( 6, answer, Failure )         // or what the operation answers in its place
  VEX_ATTRIBUTE( 7, callsSeen, uint64_t )
  VEX_ATTRIBUTES( nextCalls, everyNth, probability, seed, untilTime, answer, callsSeen )

public:
  // Sees a call. Whether it is to fail.
  bool strikes();

private:
  bool strikesNext();
  bool strikesByChance() const;
};

} // namespace Switch
