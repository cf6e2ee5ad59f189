// Cutting down a list of lines that fails. Each try runs in a process of its own, so that a broken
// assertion or an endless loop is a failure like any other.
#pragma once

#include "sim/Simulation.h"

namespace Sim {

// Runs the lines in a process of their own. What ends that process is what its last line did.
std::optional< Outcome > runApart( const Lines & lines );

// The same failure or another one, with fewer lines: none of them can be left out.
Lines shrink( const Lines & lines, const Outcome & outcome );

} // namespace Sim
