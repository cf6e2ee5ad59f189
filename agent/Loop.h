// Lets time pass for the tasks of a scheduler.
#pragma once

#include "Loom/TaskScheduler.h"

namespace Agent {

// No host's work takes so many turns; what does reschedules itself for ever.
constexpr size_t turnLimit = 1'000'000;

// Runs the tasks as they fall due until it is `time` (of Vex::Clock, in seconds) and none is
// ready: virtual time moves from one deadline to the next, steady time is waited for. False when
// the turn limit is reached first.
bool runUntil( Loom::TaskScheduler & scheduler, double time );

} // namespace Agent
