#include "KezEvpn/MacChainDependencies.h"

namespace Kez {

void MacChainDependencies::are( MacChain & chain, const std::vector< L2Rib::ObjectId > & objects,
                                const std::vector< TunnelId > & tunnels ) {
  for ( const auto object : chain.object() ) {
    ofObject_.memberDel( owner_, ofObjectId_, object, chain.first() );
  }
  for ( const auto tunnelId : chain.tunnel() ) {
    ofTunnel_.memberDel( owner_, ofTunnelId_, tunnelId, chain.first() );
  }
  chain.objectDelAll();
  chain.tunnelDelAll();
  for ( const auto object : objects ) {
    chain.objectIs( object );
    ofObject_.make( owner_, ofObjectId_, object )->chainIs( chain.first() );
  }
  for ( const auto tunnelId : tunnels ) {
    chain.tunnelIs( tunnelId );
    ofTunnel_.make( owner_, ofTunnelId_, tunnelId )->chainIs( chain.first() );
  }
}

} // namespace Kez
