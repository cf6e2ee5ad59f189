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
  Counts counts;
  countDests( counts );
  for ( const auto [ tunnelId, count ] : remoteInfo()->remoteTunnelId() ) {
    out.expect( counts.has( tunnelId ), "tunnel ", tunnelId, " is counted, and nothing uses it" );
  }
  for ( const auto [ tunnelId, count ] : counts.range() ) {
    const auto published = remoteInfo()->remoteTunnelId( tunnelId );
    out.expect( published == count, "tunnel ", tunnelId, " counts ", published, ", and ",
                Count{ count, "destination" }, " use it" );
  }
}

} // namespace Kez
