// The machines of a provider edge, on the entities that they read and write, over the soft switch.
//
// A real product makes the same machines of the same factories over its own chip's helpers; it has
// more of them where it has more chips, and inputs that other agents write.
#pragma once

#include "KezHelper/Takeover.h"
#include "Loom/TaskScheduler.h"
#include "SoftSwitch.h"
#include "shell/Roots.h"

namespace LinuxPe {

struct Wiring {
  KezShell::Roots roots;
  Vex::Ptr< Loom::TaskScheduler > scheduler;
  Vex::Ptr< SoftSwitch > softSwitch;
  Vex::Ptr< KezHelper::LateCalls > lateCalls;
  Vex::Ptr< KezHelper::Takeover > takeover; // null over a switch that was empty
};

// What an edge's machines are made on in the place of earlier ones: the inputs as they stand, and
// the switch, which has answered all calls, and forwards meanwhile.
Wiring unwired( const Wiring & earlier );

// The machines have started; over a switch that stands they take over what it has. The earlier ones
// have ended by then. Raises std::runtime_error when an interface cannot be used.
Wiring wire( const SwitchOptions & options, const Wiring & ground = {} );

} // namespace LinuxPe
