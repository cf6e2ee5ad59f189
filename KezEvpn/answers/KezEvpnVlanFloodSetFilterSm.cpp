#include "KezEvpn/KezEvpnVlanFloodSetFilterSm.h"

#include "KezEvpn/frame/Explain.h"
#include "KezEvpn/frame/Findings.h"

namespace Kez {

void VlanFloodSetFilterSm::explain( const Subject & subject, Explanation & out ) const {
  const auto * const vmd = subject.get< VlanMacDest >();
  if ( !initialized() || !vmd ) {
    return;
  }
  if ( !isDestPresent( vmd->vlanId, vmd->macAddr, vmd->dest ) ) {
    out.say( "not in the flood set" );
  } else if ( vmd->dest.destType() == destType() ) {
    out.say( "in the flood set" );
  } else {
    out.say( "in the flood set, of a type that no machine programs" );
  }
}

void VlanFloodSetFilterSm::check( Findings & out ) const {
  if ( !initialized() ) {
    return;
  }
  for ( const auto & [ vlanId, vlanFloodSet ] : outFloodSetOutput()->vlanFloodSet() ) {
    out.expect( vlanFloodSet->floodSets() > 0, "VLAN ", vlanId, " has no flood set" );
    for ( const auto & [ mac, floodSet ] : vlanFloodSet->floodSet() ) {
      out.expect( floodSet->destSets() > 0, "flood set ", mac, " of VLAN ", vlanId, " is empty" );
      for ( const auto & dest : floodSet->destSet() ) {
        out.expect( dest.destType() == destType() && isDestPresent( vlanId, mac, dest ),
                    "destination ", dest, " of VLAN ", vlanId, " and ", mac,
                    " is of another type or not in the input" );
      }
    }
  }
  forEachDest( *inFloodSetOutput(), [ & ]( Bridging::VlanId vlanId, Wire::EthAddr mac,
                                           const L2Rib::Dest & dest ) {
    out.expect( dest.destType() != destType() || hasDest( *outFloodSetOutput(), vlanId, mac, dest ),
                "destination ", dest, " of VLAN ", vlanId, " and ", mac, " is not in the output" );
  } );
}

} // namespace Kez
