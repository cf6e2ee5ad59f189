// How time passes for a session, and its lines with it. A session without a pace of another kind
// has this one: virtual time moves from one deadline to the next, steady time is waited for.
#pragma once

#include "Loom/TaskScheduler.h"

#include <functional>

namespace Agent {

// No host's work takes so many turns; what does reschedules itself for ever.
constexpr size_t turnLimit = 1'000'000;

class Pace {
public:
  virtual ~Pace() = default;

  // Whether time passes by the session's lines alone.
  virtual bool isVirtual() const;
  // A scheduler that is run from now on.
  virtual void schedulerIs( Loom::TaskScheduler & ) {}
  // A line that is about to be executed.
  virtual void lineIs( std::string_view ) {}
  // How it came to an end.
  enum class Run { done, interrupted, endless };
  // Lets so many seconds pass and runs the tasks as they fall due, until none is ready, or it is
  // interrupted, or the turn limit is reached.
  virtual Run run( Loom::TaskScheduler & scheduler, double seconds );
  // What is asked before time is waited for.
  void interruptedIs( std::function< bool() > interrupted ) {
    interrupted_ = std::move( interrupted );
  }

  // Runs one turn of the scheduler if one is due; whether one was.
  bool turn( Loom::TaskScheduler & scheduler );

protected:
  // The time that stands, in seconds of Vex::Clock, brought up to date where it does not move by
  // itself.
  virtual double now();
  // A turn of the scheduler is about to be run.
  virtual void turnIs() {}
  // Returns no later than that, and when a signal comes.
  virtual void waitUntil( double time );
  static void sleep( double seconds );

private:
  std::function< bool() > interrupted_ = [] { return false; };
};

} // namespace Agent
