// What a switch needs to know to forward frames and no machine programs: whose labels it has
// advertised, and which hosts are behind its own interfaces.
#pragma once

#include "Bridging/MacVlanPair.h"
#include "Vex/Attributes.h"
#include "Wire/IntfId.h"
#include "Wire/MplsLabel.h"

namespace Switch {

// What a service label was advertised for: frames to be flooded, or those to known hosts.
VEX_ENUM( LabelUse, "Switch::LabelUse", flood, unicast )

// What frames from tunnels under a label are for.
struct ServiceLabel {
  Bridging::VlanId vlanId;
  LabelUse use = LabelUse::flood;
  VEX_VALUE( ServiceLabel, "Switch::ServiceLabel", vlanId, use )
};

class ForwardingInput : public Vex::Entity {
  VEX_ENTITY( ForwardingInput, "Switch::ForwardingInput" )
  // By the label on top of frames from tunnels.
  VEX_MAP( 1, serviceLabel, Wire::MplsLabel, ServiceLabel )
  // To its interface, a port or a LAG.
  VEX_MAP( 2, localHost, Bridging::MacVlanPair, Wire::IntfId )
  VEX_ATTRIBUTES( serviceLabel, localHost )
};

} // namespace Switch
