// LAG configuration, written by the agent's LAG creator. A member counts by its presence;
// how its port is programmed is the hardware side's.
#pragma once

#include "Hardware/Lag.h"
#include "Vex/Attributes.h"
#include "Wire/IntfId.h"

namespace Kez {

// A LAG's member ports, and what each may do.
class LagInfo : public Vex::Entity {
  VEX_ENTITY( LagInfo, "Kez::LagInfo" )
  VEX_KEY( LagInfo, intfId, Wire::IntfId )
  VEX_MAP( 1, member, Wire::IntfId, Hardware::Lag::PortProgType )
  VEX_ATTRIBUTES( member )
};

// The LAGs that are configured.
class LagCreatorConfigDir : public Vex::Entity {
  VEX_ENTITY( LagCreatorConfigDir, "Kez::LagCreatorConfigDir" )
  VEX_ENTITIES( 1, lagConfig, LagInfo )
  VEX_ATTRIBUTES( lagConfig )
};

} // namespace Kez
