// The steady clock in steps, so that a recorded session can be replayed: Vex::Clock is moved to the
// machine's time, in whole microseconds, before a line is read and before a turn is run, and stands
// in between. Where the time slice of a task's run ends is recorded too.
#pragma once

#include "record/Pace.h"
#include "record/Recorder.h"

namespace Agent {

class SteppedPace : public Pace {
public:
  // Vex::Clock is to be at this time, that of the machine, before anything reads it.
  static double start();

  explicit SteppedPace( Recorder & recorder ) : recorder_( recorder ) { recorder_.steadyIs(); }

  bool isVirtual() const override { return false; }
  void schedulerIs( Loom::TaskScheduler & scheduler ) override;

private:
  double now() override;
  void turnIs() override { recorder_.turnIs(); }
  void waitUntil( double time ) override;

  Recorder & recorder_;
  bool ended_ = false; // the time slice of the run that asked last
};

} // namespace Agent
