// The EVPN control plane's status.
#pragma once

#include "Vex/Attributes.h"
#include "Wire/IntfId.h"

namespace Evpn {

class EvpnStatus : public Vex::Entity {
  VEX_ENTITY( EvpnStatus, "Evpn::EvpnStatus" )
  // The interfaces whose encapsulated BUM traffic is filtered.
  VEX_SET( 1, encapBumFilter, Wire::IntfId )
  VEX_ATTRIBUTES( encapBumFilter )
};

} // namespace Evpn
