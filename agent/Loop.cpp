#include "agent/Loop.h"

#include "Vex/Clock.h"

#include <chrono>
#include <thread>

namespace Agent {

bool runUntil( Loom::TaskScheduler & scheduler, double time ) {
  for ( size_t turns = 0; turns < turnLimit; ) {
    const auto deadline = scheduler.nextDeadline();
    const double now = Vex::Clock::now();
    if ( deadline && *deadline <= now ) {
      scheduler.runReady();
      ++turns;
      continue;
    }
    if ( now >= time ) {
      return true;
    }
    const double next = deadline ? std::min( *deadline, time ) : time;
    if ( Vex::Clock::isVirtual() ) {
      Vex::Clock::advanceTo( next );
    } else {
      std::this_thread::sleep_for( std::chrono::duration< double >( next - now ) );
    }
  }
  return false;
}

} // namespace Agent
