// The machines that the agent hosts, on the entities that they read and write. Everything else
// of the agent knows them by reflection alone.
#pragma once

#include "Loom/TaskScheduler.h"
#include "agent/Roots.h"

namespace Agent {

struct Wiring {
  Roots roots;
  Vex::Ptr< Loom::TaskScheduler > scheduler;
};

Wiring wire();

} // namespace Agent
