// Random topologies, and what happens to one at random, as a story's lines.
#pragma once

#include "fabric/Topology.h"
#include "sim/Simulation.h"

#include <random>

namespace Fabric {

// As a file has it, of 2 to 16 switches.
String randomTopology( uint64_t seed );

Sim::Lines randomLines( const Topology & topology, uint64_t seed, size_t events );

// Kinds of events. The last two are undone by nothing.
VEX_ENUM( EventKind, "Fabric::EventKind", switchFails, linkFails, memberFails, hostMoves,
          preferenceChanges, coldRestart, hitlessRestart )

struct Event {
  EventKind kind;
  String line;
  String undo; // empty where nothing does
};

// None of the kind, if the topology has nothing that it can happen to.
std::optional< Event > randomEvent( const Topology & topology, EventKind kind,
                                    std::mt19937_64 & random );

} // namespace Fabric
