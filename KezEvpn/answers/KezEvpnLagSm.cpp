#include "KezEvpn/KezEvpnLagSm.h"

#include "KezEvpn/frame/Findings.h"

namespace Kez {

void EvpnLagSm::check( Findings & out ) const {
  for ( const auto & [ lagIntfId, portList ] : evpnLagMemberInfo()->lagToPort() ) {
    out.expect( portList.ports() > 0, lagIntfId, " is published without a port" );
  }
}

} // namespace Kez
