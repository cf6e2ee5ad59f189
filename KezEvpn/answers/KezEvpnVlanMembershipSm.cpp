#include "KezEvpn/KezEvpnVlanMembershipSm.h"

#include "KezEvpn/frame/Explain.h"
#include "KezEvpn/frame/Findings.h"

namespace Kez {

// --- What an operator is told

void KezEvpnVlanMembershipSm::explain( const Subject & subject, Explanation & out ) const {
  if ( const auto * const pair = subject.get< IntfVlanKey >() ) {
    explainPair( *pair, out );
  } else if ( const auto * const vlanId = subject.get< Bridging::VlanId >() ) {
    if ( const auto memberInfo = evpnVlanStatus()->vlanStatus( *vlanId ) ) {
      out.say( "has the EVPN members ", Members{ memberInfo->member() } );
    } else {
      out.say( "has no EVPN members" );
    }
  } else if ( const auto * const intfId = subject.get< Wire::IntfId >() ) {
    std::vector< Bridging::VlanId > vlans;
    for ( const auto & [ vlanId, memberInfo ] : evpnVlanStatus()->vlanStatus() ) {
      if ( memberInfo->memberHas( *intfId ) ) {
        vlans.push_back( vlanId );
      }
    }
    if ( vlans.empty() ) {
      out.say( "an EVPN member of no VLAN" );
    } else {
      out.say( "an EVPN member of ", Count{ vlans.size(), "VLAN" }, ": ", Members{ vlans } );
    }
  }
}

void KezEvpnVlanMembershipSm::explainPair( const IntfVlanKey & key, Explanation & out ) const {
  const auto memberInfo = evpnVlanStatus()->vlanStatus( key.vlanId );
  const bool member = memberInfo && memberInfo->memberHas( key.intfId );
  out.say( member ? "an EVPN member" : "no EVPN member" );
  const auto decision = decide( key.intfId, key.vlanId );
  out.say( decision.member ? "" : "not ",
           decision.byConfiguration
               ? "configured in the VLAN, which decides while its BUM encapsulation is filtered"
               : "operational in the VLAN" );
  if ( member != decision.member ) {
    out.say( "decided anew when its port status or configuration in the VLAN changes" );
  }
}

// --- What holds between events

void KezEvpnVlanMembershipSm::check( Findings & out ) const {
  for ( const auto & [ vlanId, memberInfo ] : evpnVlanStatus()->vlanStatus() ) {
    out.expect( memberInfo->members() > 0, "VLAN ", vlanId, " is published without a member" );
    for ( const auto intfId : memberInfo->member() ) {
      out.expect( isConfigured( intfId, vlanId ) || isOperational( intfId, vlanId ), intfId,
                  " is a member of VLAN ", vlanId, ", neither configured nor operational" );
    }
  }
  for ( const auto & [ intfId, vlans ] : intfVlanConfigSet() ) {
    out.expect( vlans->vlanIds() > 0, "intfVlanConfigSet has an empty interface ", intfId );
    for ( const auto vlanId : vlans->vlanId() ) {
      out.expect( isConfigured( intfId, vlanId ), "intfVlanConfigSet has VLAN ", vlanId, " of ",
                  intfId, ", which is not configured" );
      const auto memberInfo = evpnVlanStatus()->vlanStatus( vlanId );
      const bool member = memberInfo && memberInfo->memberHas( intfId );
      out.expect( member == decide( intfId, vlanId ).member, intfId, " in VLAN ", vlanId,
                  member ? " is a member, and is not to be" : " is no member, and is to be" );
    }
  }
  for ( const auto & [ vlanId, config ] : bridgingConfig()->vlanConfig() ) {
    for ( const auto & [ intfId, vlanPortConfig ] : config->intf() ) {
      const auto vlans = intfVlanConfigSet( intfId );
      out.expect( vlans && vlans->vlanIdHas( vlanId ), "intfVlanConfigSet lacks VLAN ", vlanId,
                  " of ", intfId );
    }
  }
}

} // namespace Kez
