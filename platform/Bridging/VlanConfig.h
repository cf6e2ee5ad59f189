// VLAN configuration and operational status: for every VLAN, which interfaces are configured in
// it, and which are up in it. An interface that does not forward in a VLAN may have a port
// status there; its presence alone makes it a member.
#pragma once

#include "Bridging/VlanId.h"
#include "Vex/Attributes.h"
#include "Wire/IntfId.h"

namespace Bridging {

VEX_ENUM( VlanPortConfig, "Bridging::VlanPortConfig", untagged, tagged )
VEX_ENUM( VlanPortStatus, "Bridging::VlanPortStatus", blocking, learning, forwarding )

class VlanConfig : public Vex::Entity {
  VEX_ENTITY( VlanConfig, "Bridging::VlanConfig" )
  VEX_KEY( VlanConfig, vlanId, VlanId )
  VEX_MAP( 1, intf, Wire::IntfId, VlanPortConfig )
  VEX_ATTRIBUTES( intf )
};

// The VLANs that are configured.
class Config : public Vex::Entity {
  VEX_ENTITY( Config, "Bridging::Config" )
  VEX_ENTITIES( 1, vlanConfig, VlanConfig )
  VEX_ATTRIBUTES( vlanConfig )
};

// The interfaces of a VLAN that are up in it, and whether each forwards.
class VlanStatus : public Vex::Entity {
  VEX_ENTITY( VlanStatus, "Bridging::VlanStatus" )
  VEX_KEY( VlanStatus, vlanId, VlanId )
  VEX_MAP( 1, vlanPortStatus, Wire::IntfId, VlanPortStatus )
  VEX_ATTRIBUTES( vlanPortStatus )
};

// The status of all VLANs.
class VlanStatusDir : public Vex::Entity {
  VEX_ENTITY( VlanStatusDir, "Bridging::VlanStatusDir" )
  VEX_ENTITIES( 1, vlanStatus, VlanStatus )
  VEX_ATTRIBUTES( vlanStatus )
};

} // namespace Bridging
