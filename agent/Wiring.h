// The machines that the agent hosts, on the entities that they read and write. Everything else
// of the agent knows them by reflection alone.
#pragma once

#include "KezEvpn/frame/StateMachine.h"
#include "Loom/TaskScheduler.h"
#include "shell/Roots.h"
#include "switch/SimulatedSwitch.h"

namespace Agent {

struct Wiring {
  Roots roots;
  Vex::Ptr< Loom::TaskScheduler > scheduler;
  Vex::Ptr< Switch::SimulatedSwitch > hardware;
};

// With the roots of an earlier agent, which ends: over its inputs as they stand, and a switch that
// is empty and has the same sizes and listeners.
Wiring wire( Roots earlier = {} );

// Runs `what( machine )` for every machine, in the order in which they were made.
template< class What > void forEachMachine( const Wiring & wiring, What && what ) {
  for ( const auto & [ role, entity ] : wiring.roots ) {
    if ( auto * const machine = dynamic_cast< Kez::StateMachine * >( entity.get() ) ) {
      what( *machine );
    }
  }
}

} // namespace Agent
