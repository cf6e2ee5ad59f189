// The part of the expectations that has to do with hosts: the FECs of their chains, and MAC
// entries.
#pragma once

#include "sim/Differences.h"
#include "sim/Expectations.h"

namespace Sim {

void hostDifferences( const System & system, Differences & out );

// The MAC entries of hosts whose chains are complete, and what they lead over.
std::multiset< Vex::String > macEntries( const System & system );

} // namespace Sim
