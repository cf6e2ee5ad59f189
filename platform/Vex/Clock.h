// The current time in seconds, one clock for the process: the machine's steady clock, or a
// virtual one that only moves when it is told to.
#pragma once

namespace Vex {

class Clock {
public:
  // Seconds since an arbitrary start; never goes back.
  static double now();

  // Makes time virtual, standing at `seconds`.
  static void virtualIs( double seconds );
  static bool isVirtual();
  static void steadyIs();
  // The machine's steady clock, also while time is virtual.
  static double steadyNow();

  // Moves virtual time forward to `seconds`; an earlier time changes nothing. Fatal on the
  // steady clock.
  static void advanceTo( double seconds );
};

} // namespace Vex
