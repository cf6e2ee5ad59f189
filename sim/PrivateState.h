// Whether what the machines have on record as programmed is what hardware has. That holds whenever
// no handler runs, whatever is refused or still due. What machines promise of their own state they
// say themselves.
#pragma once

#include "sim/System.h"

namespace Sim {

// How it differs; empty when it does not.
Vex::String brokenState( const System & system );

} // namespace Sim
