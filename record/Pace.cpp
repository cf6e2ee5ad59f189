#include "record/Pace.h"

#include "Vex/Clock.h"

#include <chrono>
#include <thread>

namespace Agent {

bool Pace::isVirtual() const {
  return Vex::Clock::isVirtual();
}

bool Pace::run( Loom::TaskScheduler & scheduler, double seconds ) {
  const double end = now() + seconds;
  for ( size_t turns = 0; turns < turnLimit; ) {
    if ( turn( scheduler ) ) {
      ++turns;
    } else if ( now() >= end ) {
      return true;
    } else {
      const auto deadline = scheduler.nextDeadline();
      waitUntil( deadline ? std::min( *deadline, end ) : end );
    }
  }
  return false;
}

bool Pace::turn( Loom::TaskScheduler & scheduler ) {
  const auto deadline = scheduler.nextDeadline();
  if ( !deadline || *deadline > now() ) {
    return false;
  }
  turnIs();
  scheduler.runReady();
  return true;
}

double Pace::now() {
  return Vex::Clock::now();
}

void Pace::waitUntil( double time ) {
  if ( Vex::Clock::isVirtual() ) {
    Vex::Clock::advanceTo( time );
  } else {
    std::this_thread::sleep_for( std::chrono::duration< double >( time - Vex::Clock::now() ) );
  }
}

} // namespace Agent
