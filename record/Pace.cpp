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
    const auto deadline = scheduler.nextDeadline();
    const double time = now();
    if ( deadline && *deadline <= time ) {
      turnIs();
      scheduler.runReady();
      ++turns;
    } else if ( time >= end ) {
      return true;
    } else {
      waitUntil( deadline ? std::min( *deadline, end ) : end );
    }
  }
  return false;
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
