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

void EvpnRemoteInfoFinderSm::check( Findings & out ) const {
  for ( const auto [ tunnelId, count ] : remoteInfo()->remoteTunnelId() ) {
    out.expect( count > 0, "tunnel ", tunnelId, " is counted, and nothing uses it" );
  }
}

} // namespace Kez
