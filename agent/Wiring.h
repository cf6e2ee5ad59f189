// The machines that the agent hosts, on the entities that they read and write. Everything else
// of the agent knows them by reflection alone.
#pragma once

#include "Loom/TaskScheduler.h"
#include "shell/Roots.h"
#include "switch/SimulatedSwitch.h"

namespace Agent {

struct Wiring {
  Roots roots;
  Vex::Ptr< Loom::TaskScheduler > scheduler;
  Vex::Ptr< Switch::SimulatedSwitch > hardware;
};

// With the roots of an earlier agent, which ends: over its inputs as they stand, and a switch that
// is empty and has the same sizes and listeners.
Wiring wire( Roots earlier = {} );

} // namespace Agent
