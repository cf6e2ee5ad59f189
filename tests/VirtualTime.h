// A scheduler on virtual time, which begins at 0.
#pragma once

#include "Loom/TaskScheduler.h"
#include "Vex/Clock.h"

#include <gtest/gtest.h>

class VirtualTime : public testing::Test {
protected:
  VirtualTime() { Vex::Clock::virtualIs( 0 ); }

  // Runs what is due until `seconds`.
  void advanceTo( double seconds ) {
    while ( scheduler->nextDeadline().value_or( seconds + 1 ) <= seconds ) {
      Vex::Clock::advanceTo( std::max( *scheduler->nextDeadline(), Vex::Clock::now() ) );
      scheduler->runReady();
    }
    Vex::Clock::advanceTo( seconds );
  }
  void advance( double seconds ) { advanceTo( Vex::Clock::now() + seconds ); }

  Vex::Ptr< Loom::TaskScheduler > scheduler = Vex::makePtr< Loom::TaskScheduler >();
};
