// What convergence costs: single events of every kind, each from rest to rest, with all frames that
// hosts can send sent at every step.
#pragma once

#include "fabric/Events.h"

#include <ostream>

namespace Fabric {

// For each kind so many events, drawn at random, and what undoes them, as a table.
void showConvergence( std::ostream & out, const Topology & topology, uint64_t seed, size_t events );

} // namespace Fabric
