#include "record/Pace.h"

#include "Vex/Clock.h"

#include <algorithm>
#include <ctime>

namespace Agent {

bool Pace::isVirtual() const {
  return Vex::Clock::isVirtual();
}

Pace::Run Pace::run( Loom::TaskScheduler & scheduler, double seconds ) {
  const double end = now() + seconds;
  for ( size_t turns = 0; turns < turnLimit; ) {
    if ( turn( scheduler ) ) {
      ++turns;
    } else if ( now() >= end ) {
      return Run::done;
    } else if ( interrupted_() ) {
      return Run::interrupted;
    } else {
      const auto deadline = scheduler.nextDeadline();
      waitUntil( deadline ? std::min( *deadline, end ) : end );
    }
  }
  return Run::endless;
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
    sleep( time - Vex::Clock::now() );
  }
}

void Pace::sleep( double seconds ) {
  timespec time{};
  time.tv_sec = static_cast< time_t >( std::max( seconds, 0.0 ) );
  time.tv_nsec = static_cast< long >( ( std::max( seconds, 0.0 ) - double( time.tv_sec ) ) * 1e9 );
  nanosleep( &time, nullptr );
}

} // namespace Agent
