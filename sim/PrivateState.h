// What the machines promise of the state that they keep for themselves: indexes mirror each other,
// no member of them is empty, and what is on record as programmed is what hardware has. That holds
// whenever no handler runs, whatever is refused or still due.
#pragma once

#include "sim/System.h"

namespace Sim {

// How the promises are broken; empty when they are kept.
Vex::String brokenState( const System & system );

} // namespace Sim
