// Agent data that state machines share. They take it so that all of them see the same; nothing
// of it is consulted yet.
#pragma once

#include "Vex/Attributes.h"

namespace Kez {

class KezCommonSmData : public Vex::Entity {
  VEX_ENTITY( KezCommonSmData, "Kez::KezCommonSmData" )
  VEX_ATTRIBUTES()
};

} // namespace Kez
