#include "KezEvpn/KezEvpnLagSm.h"

#include "KezEvpn/frame/Explain.h"
#include "KezEvpn/frame/Findings.h"

namespace Kez {

// The port of a LAG is programmed for the LAG.
void EvpnLagSm::explain( const Subject & subject, Explanation & out ) const {
  const auto intfId = subject.intfId();
  if ( isLag( intfId ) ) {
    if ( subject.get< Wire::IntfId >() && evpnLagMemberInfo()->lagToPortHas( intfId ) ) {
      const auto ports = evpnLagMemberInfo()->lagToPort( intfId );
      out.say( "has the ports ", Members{ ports } );
    } else if ( subject.get< Wire::IntfId >() && lagConfigHas( intfId ) ) {
      out.awaits( "waiting for a port, none configured" );
    }
    return;
  }
  for ( const auto & [ lagIntfId, ports ] : evpnLagMemberInfo()->lagToPort() ) {
    if ( intfId != Wire::IntfId() && ports.portHas( intfId ) ) {
      out.say( intfId, " is a port of ", lagIntfId );
      out.leadsTo( subject.withIntfId( lagIntfId ) );
      return;
    }
  }
}

void EvpnLagSm::check( Findings & out ) const {
  for ( const auto & [ lagIntfId, portList ] : evpnLagMemberInfo()->lagToPort() ) {
    out.expect( portList.ports() > 0, lagIntfId, " is published without a port" );
  }
  for ( const auto & [ lagIntfId, reactor ] : lagConfig() ) {
    KezPortList configured;
    for ( const auto [ memberIntfId, portProgType ] : reactor->notifier()->member() ) {
      configured.portIs( memberIntfId, true );
    }
    out.expect( evpnLagMemberInfo()->lagToPort( lagIntfId ) == configured, lagIntfId,
                " is not published with ", configured );
  }
}

} // namespace Kez
