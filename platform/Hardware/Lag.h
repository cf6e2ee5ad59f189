// How hardware programs the member ports of a LAG.
#pragma once

#include "Vex/Value.h"

namespace Hardware::Lag {

VEX_ENUM( PortProgType, "Hardware::Lag::PortProgType", portProgRxTx, portProgRx, portProgTx,
          portProgNone )

} // namespace Hardware::Lag
