#include "KezEvpn/KezEvpnRemoteInfoFinderSm.h"

#include "KezEvpn/frame/Explain.h"
#include "KezEvpn/frame/Findings.h"

namespace Kez {

using Tunnel::TunnelTable::TunnelId;

void EvpnRemoteInfoFinderSm::explain( const Subject & subject, Explanation & out ) const {
  const auto * const tunnelId = subject.get< TunnelId >();
  if ( tunnelId && remoteInfo()->remoteTunnelIdHas( *tunnelId ) ) {
    out.say( "used by ",
             Count{ remoteInfo()->remoteTunnelId( *tunnelId ), "flood-set destination" } );
  }
}

} // namespace Kez
