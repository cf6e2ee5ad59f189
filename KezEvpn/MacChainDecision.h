// What a chain of hosts comes to: the FEC to request for it, without an id, or why it has none.
#pragma once

#include "KezEvpn/MacFecs.h"
#include "KezEvpn/TunnelIdToHwTunnelIdMapping.h"
#include "KezEvpn/frame/Explain.h"

#include <vector>

namespace Kez {

struct MacChainDecision {
  L2Rib::Chain walked;
  std::vector< Tunnel::TunnelTable::TunnelId > tunnels; // on which the decision depends
  Vex::String lack;                                     // empty for a complete chain
  Rook::Fib::FecVias vias;
  std::vector< HwTunnelId > hwTunnelIds; // one a via, not valid for a VXLAN endpoint's

  Rook::Fib::FecKind kind() const {
    return walked.loadBalanced ? Rook::Fib::FecKind::macLoadBalance : Rook::Fib::FecKind::macPath;
  }
};

// Of the chain that begins at `first`, which is walked within `maxLength` tables. Over a
// load-balance object the FEC has at most `maxPaths` vias. Damage that is met is said to who asked,
// else handed to the table's corruption handler.
MacChainDecision decideMacChain( const L2Rib::HostOutput & hosts,
                                 const TunnelIdToHwTunnelIdMapping & mapping, L2Rib::ObjectId first,
                                 MaxChainLength maxLength, size_t maxPaths, Explanation * asked );

} // namespace Kez
