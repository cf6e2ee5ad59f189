// A page about a frame's way (docs/fabric.md): the fabric as it stands, each copy of the frame, and
// each that is not made with the entry that stopped it.
#pragma once

#include "fabric/Judge.h"

namespace Fabric {

// `wrong` is empty when nothing is. Without a way the fabric alone is shown.
void writeWayPage( std::ostream & out, const String & topologyName, const Network & network,
                   const std::optional< Way > & way, const String & wrong );

} // namespace Fabric
