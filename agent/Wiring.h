// The machines that the agent hosts, on the entities that they read and write. Everything else
// of the agent knows them by reflection alone.
#pragma once

#include "KezHelper/Takeover.h"
#include "Loom/TaskScheduler.h"
#include "shell/Roots.h"
#include "switch/SimulatedSwitch.h"

namespace Agent {

using KezShell::Role;
using KezShell::Roots;

struct Wiring {
  Roots roots;
  Vex::Ptr< Loom::TaskScheduler > scheduler;
  Vex::Ptr< Switch::SimulatedSwitch > hardware;
  Vex::Ptr< KezHelper::Takeover > takeover; // null over a switch that was empty
};

// What becomes of the switch when an agent takes the place of an earlier one.
enum class Hardware { empties, stays };

// What an agent is made on, and what is left when it cannot be made: of an earlier one the inputs
// as they stand, which come first among its roots too, the switch, as it is or an empty one of the
// same sizes, listeners and journal, which is emptied, and a scheduler.
Wiring unwired( const Wiring & earlier = {}, Hardware hardware = Hardware::empties );

// Has the agent that is made on this take over what the switch has.
void takeoverIs( Wiring & ground );

// An agent, whose machines start, and take over what the switch has if anything. The earlier one
// has ended by then: machines do not share inputs,
// and a shared table has one writer. Raises std::runtime_error when a table cannot be mounted.
Wiring wire( const Wiring & ground = unwired() );

} // namespace Agent
