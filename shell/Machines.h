// The machines that stand among the roots of a host.
#pragma once

#include "KezEvpn/frame/StateMachine.h"
#include "shell/Roots.h"

namespace KezShell {

// Runs `what( machine )` for every machine, in the order in which they were made.
template< class What > void forEachMachine( const Roots & roots, What && what ) {
  for ( const auto & root : roots ) {
    if ( auto * const machine = dynamic_cast< Kez::StateMachine * >( root.entity.get() ) ) {
      what( *machine );
    }
  }
}

} // namespace KezShell
