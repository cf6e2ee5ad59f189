// Lets the machines of a scheduler come to rest, on virtual time.
#pragma once

#include "Loom/TaskScheduler.h"
#include "Vex/Clock.h"

#include <algorithm>

namespace Bench {

inline void settle( Loom::TaskScheduler & scheduler ) {
  while ( const auto deadline = scheduler.nextDeadline() ) {
    Vex::Clock::advanceTo( std::max( *deadline, Vex::Clock::now() ) );
    scheduler.runReady();
  }
}

} // namespace Bench
