// Random lives of the agent. Each seed has its own mix of what happens often, seldom or never.
#pragma once

#include "sim/Simulation.h"

namespace Sim {

// The lines of a seed's life; the same ones each time. About `events` of them.
Lines randomLines( uint64_t seed, size_t events );

} // namespace Sim
