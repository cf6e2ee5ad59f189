#include "KezEvpn/KezEvpnLagSm.h"

#include "KezEvpn/frame/Findings.h"

namespace Kez {

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
