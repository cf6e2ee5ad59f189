// One life of the whole agent on virtual time, a line at a time. Lines are the agent's own, so that
// what the simulation did can be replayed in the agent; one more, a comment there, says where the
// machines are let come to rest and everything is compared with what the inputs say.
#pragma once

#include "agent/Shell.h"
#include "sim/Expectations.h"

#include <sstream>

namespace Sim {

using Lines = std::vector< Vex::String >;

inline constexpr std::string_view compareLine = "# compare";

// Two more: the named machines bear a zombie mark from the one to the other, or to the comparison.
inline constexpr std::string_view unheardLine = "# unheard ";
inline constexpr std::string_view heardLine = "# heard";

// What ends all faults and lets all that is due be done.
inline const Lines settleLines{ "del switch.fault", "set scheduler.workBudget 1000", "advance 60" };

class Simulation {
public:
  Simulation();

  // What is wrong after the line; empty when nothing is.
  Vex::String execute( const Vex::String & line );
  const System & system() const { return *system_; }

private:
  void executeInAgent( const Vex::String & line );
  void remember( const Vex::String & line );
  Vex::String brokenPromises() const;
  Vex::String compare();
  Vex::String reviewEverything();
  template< class Do > void forEachMachine( const Do & what ) const;
  void markUnheard( const Vex::String & line );
  void hear();
  uint64_t hardwareCalls() const;

  Agent::Wiring wiring_;
  std::ostream nowhere_{ nullptr };
  std::ostringstream errors_;
  Agent::Shell shell_;
  std::optional< System > system_;
  std::set< Kez::StateMachine * > unheard_;
  History history_;
};

struct Outcome {
  size_t line = 0; // the index of the one that showed it
  Vex::String text;
};

// What went wrong first, if anything. `line` follows the index of the line that is executed.
std::optional< Outcome > run( const Lines & lines, volatile size_t * line = nullptr );

// The inputs as they stand, as lines that set them, and lines that tell of every route.
Lines inputLines( const System & system );

} // namespace Sim
