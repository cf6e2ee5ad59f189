// The flood sets of the L2 routing information base: for every VLAN and MAC address, the
// destinations to which a frame is flooded.
#pragma once

#include "Bridging/VlanId.h"
#include "L2Rib/Dest.h"
#include "Vex/Attributes.h"
#include "Wire/EthAddr.h"

namespace L2Rib {

// Who makes the copies of a flooded frame.
VEX_ENUM( FloodSetType, "L2Rib::FloodSetType", headEndReplication, underlayMulticast )

class FloodSet : public Vex::Entity {
  VEX_ENTITY( FloodSet, "L2Rib::FloodSet" )
  VEX_KEY( FloodSet, mac, Wire::EthAddr )
  VEX_ATTRIBUTE( 1, floodSetType, FloodSetType )
  VEX_SET( 2, destSet, Dest )
  VEX_ATTRIBUTES( floodSetType, destSet )
};

// The flood sets of a VLAN, by the address of the frames that they are for.
class VlanFloodSet : public Vex::Entity {
  VEX_ENTITY( VlanFloodSet, "L2Rib::VlanFloodSet" )
  VEX_KEY( VlanFloodSet, vlanId, Bridging::VlanId )
  VEX_ENTITIES( 1, floodSet, FloodSet )
  VEX_ATTRIBUTES( floodSet )
};

// The flood sets of all VLANs.
class FloodSetOutput : public Vex::Entity {
  VEX_ENTITY( FloodSetOutput, "L2Rib::FloodSetOutput" )
  // What the flood sets come from, as their producer calls itself.
  VEX_ATTRIBUTE( 1, source, Vex::String )
  VEX_ENTITIES( 2, vlanFloodSet, VlanFloodSet )
  VEX_ATTRIBUTES( source, vlanFloodSet )
};

inline bool hasDest( const FloodSetOutput & output, Bridging::VlanId vlanId, Wire::EthAddr mac,
                     const Dest & dest ) {
  const auto vlanFloodSet = output.vlanFloodSet( vlanId );
  const auto floodSet = vlanFloodSet ? vlanFloodSet->floodSet( mac ) : nullptr;
  return floodSet && floodSet->destSetHas( dest );
}

// Runs `what( vlanId, mac, dest )` for every destination.
template< class What > void forEachDest( const FloodSetOutput & output, What && what ) {
  for ( const auto & [ vlanId, vlanFloodSet ] : output.vlanFloodSet() ) {
    for ( const auto & [ mac, floodSet ] : vlanFloodSet->floodSet() ) {
      for ( const auto & dest : floodSet->destSet() ) {
        what( vlanId, mac, dest );
      }
    }
  }
}

} // namespace L2Rib
