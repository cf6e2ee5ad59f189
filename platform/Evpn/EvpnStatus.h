// The EVPN control plane's status and its MPLS configuration.
#pragma once

#include "Bridging/VlanId.h"
#include "Evpn/EncapTypeLabel.h"
#include "Vex/Attributes.h"
#include "Wire/TepIntfId.h"

namespace Evpn {

// The BUM flooding of a VLAN.
class EvpnVlanFloodStatus : public Vex::Entity {
  VEX_ENTITY( EvpnVlanFloodStatus, "Evpn::EvpnVlanFloodStatus" )
  VEX_KEY( EvpnVlanFloodStatus, vlanId, Bridging::VlanId )
  // The interfaces to which nothing is flooded, another switch being the designated forwarder.
  VEX_SET( 1, floodFilter, Wire::IntfId )
  VEX_ATTRIBUTES( floodFilter )
};

// An Ethernet segment of this switch, by its interface.
class EthernetSegmentStatus : public Vex::Entity {
  VEX_ENTITY( EthernetSegmentStatus, "Evpn::EthernetSegmentStatus" )
  VEX_KEY( EthernetSegmentStatus, intfId, Wire::IntfId )
  // Per VLAN, the TEP of the designated forwarder.
  VEX_MAP( 1, designatedForwarderTep, Bridging::VlanId, Wire::TepIntfId )
  // Per remote TEP, the ESI label that it advertised.
  VEX_MAP( 2, remoteEsiLabel, Wire::TepIntfId, EncapTypeLabel )
  // The label that all segments share; none when it is not configured.
  VEX_ATTRIBUTE( 3, sharedEsiLabel, Wire::MplsLabel )
  VEX_ATTRIBUTES( designatedForwarderTep, remoteEsiLabel, sharedEsiLabel )

public:
  bool sharedEsiLabelValid() const { return sharedEsiLabel() != Wire::MplsLabel(); }
};

class EvpnStatus : public Vex::Entity {
  VEX_ENTITY( EvpnStatus, "Evpn::EvpnStatus" )
  // The interfaces whose encapsulated BUM traffic is filtered.
  VEX_SET( 1, encapBumFilter, Wire::IntfId )
  // The dot1q tag of a VLAN's EVPN service; a VLAN may be there with none.
  VEX_MAP( 2, vlanToDot1q, Bridging::VlanId, Bridging::VlanIdOrNone )
  VEX_ENTITIES( 3, evpnVlanFloodStatus, EvpnVlanFloodStatus )
  VEX_ENTITIES( 4, ethernetSegmentStatus, EthernetSegmentStatus )
  // Per Ethernet segment, the ESI label that this switch advertises.
  VEX_MAP( 5, localEsiLabel, Wire::IntfId, EncapTypeLabel )
  VEX_ATTRIBUTES( encapBumFilter, vlanToDot1q, evpnVlanFloodStatus, ethernetSegmentStatus,
                  localEsiLabel )
};

// What is configured of EVPN over MPLS as a whole.
class MplsConfig : public Vex::Entity {
  VEX_ENTITY( MplsConfig, "Evpn::MplsConfig" )
  // A VLAN whose EVPN service has no dot1q tag is tagged with its own id.
  VEX_ATTRIBUTE( 1, vlanServiceDot1qEnabled, bool )
  VEX_ATTRIBUTES( vlanServiceDot1qEnabled )
};

} // namespace Evpn
