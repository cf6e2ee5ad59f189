// Cutting down a list of lines that fails. Each try runs in a process of its own, so that a broken
// assertion or an endless loop is a failure like any other.
#pragma once

#include "sim/Simulation.h"

#include <functional>

namespace Sim {

// What lines do. No run takes so many seconds; what does never ends.
struct Runner {
  std::function< std::optional< Outcome >( const Lines & lines, volatile size_t * line ) > run =
      Sim::run;
  unsigned longestRun = 3;
};

// Runs the lines in a process of their own. What ends that process is what its last line did.
std::optional< Outcome > runApart( const Lines & lines, const Runner & runner = {} );

// The same failure or another one, with fewer lines: none of them can be left out.
Lines shrink( const Lines & lines, const Outcome & outcome, const Runner & runner = {} );

} // namespace Sim
