// The program: random lives of fabrics, stories, the ways of frames, and what convergence costs.
#pragma once

#include "Vex/Text.h"

#include <ostream>
#include <vector>

namespace Fabric {

// The exit status: 0, 1 when something failed, 2 for a bad command line or file.
int kezFabric( const std::vector< Vex::String > & arguments, std::ostream & out,
               std::ostream & err );

} // namespace Fabric
