// Lets the machines of a scheduler come to rest, on virtual time.
#pragma once

#include "Loom/TaskScheduler.h"
#include "Vex/Clock.h"

#include <algorithm>

namespace Bench {

// `turn` runs what is ready, and whatever else a turn of an event loop does.
template< class Turn > void settle( Loom::TaskScheduler & scheduler, Turn && turn ) {
  while ( const auto deadline = scheduler.nextDeadline() ) {
    Vex::Clock::advanceTo( std::max( *deadline, Vex::Clock::now() ) );
    turn();
  }
}

inline void settle( Loom::TaskScheduler & scheduler ) {
  settle( scheduler, [ & ] { scheduler.runReady(); } );
}

} // namespace Bench
