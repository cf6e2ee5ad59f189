// On which objects and tunnels chains of hosts depend.
//
// A machine owns one, over the chains that each object and each tunnel has an entry for. Those say
// what the chains' own `object` and `tunnel` say, the other way round, and no entry is empty.
#pragma once

#include "KezEvpn/MacFecs.h"

#include <vector>

namespace Kez {

class MacChainDependencies {
public:
  using TunnelId = Tunnel::TunnelTable::TunnelId;

  MacChainDependencies( Vex::Entity & owner, Vex::EntityStorage< ObjectChains > & ofObject,
                        Vex::AttrId ofObjectId, Vex::EntityStorage< TunnelChains > & ofTunnel,
                        Vex::AttrId ofTunnelId )
      : owner_( owner ), ofObject_( ofObject ), ofObjectId_( ofObjectId ), ofTunnel_( ofTunnel ),
        ofTunnelId_( ofTunnelId ) {}

  // In the place of what the chain depended on.
  void are( MacChain & chain, const std::vector< L2Rib::ObjectId > & objects,
            const std::vector< TunnelId > & tunnels );

private:
  Vex::Entity & owner_;
  Vex::EntityStorage< ObjectChains > & ofObject_;
  const Vex::AttrId ofObjectId_;
  Vex::EntityStorage< TunnelChains > & ofTunnel_;
  const Vex::AttrId ofTunnelId_;
};

} // namespace Kez
