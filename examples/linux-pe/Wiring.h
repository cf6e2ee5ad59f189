// The machines of a provider edge, on the entities that they read and write, over the soft switch.
//
// A real product makes the same machines of the same factories over its own chip's helpers; it has
// more of them where it has more chips, and inputs that other agents write.
#pragma once

#include "Loom/TaskScheduler.h"
#include "SoftSwitch.h"
#include "shell/Roots.h"

namespace LinuxPe {

struct Wiring {
  KezShell::Roots roots;
  Vex::Ptr< Loom::TaskScheduler > scheduler;
  Vex::Ptr< SoftSwitch > softSwitch;
};

// The machines have started. Raises std::runtime_error when an interface cannot be used.
Wiring wire( const SwitchOptions & options );

} // namespace LinuxPe
