#include "KezEvpn/MacChainDecision.h"

#include <map>

namespace Kez {

using Tunnel::TunnelTable::TunnelId;

MacChainDecision decideMacChain( const L2Rib::HostOutput & hosts,
                                 const TunnelIdToHwTunnelIdMapping & mapping, L2Rib::ObjectId first,
                                 MaxChainLength maxLength, size_t maxPaths, Explanation * asked ) {
  MacChainDecision decision;
  decision.walked = L2Rib::walkChain( hosts, first, maxLength.value() );
  if ( decision.walked.lack != L2Rib::ChainLack::nothing ) {
    decision.lack = L2Rib::lackText( decision.walked );
    return decision;
  }
  std::map< Rook::Fib::FecVia, TunnelId > ways; // the tunnel is invalid for a VXLAN endpoint
  for ( const auto & [ label, dest ] : decision.walked.paths ) {
    const auto tunnelId = destTunnelId( dest );
    if ( dest.destType() == L2Rib::destTypeVxlan_ ) {
      ways[ { Wire::VtepIntfId::intfId( dest.vtep() ), label } ] = tunnelId;
    } else if ( tunnelId != TunnelId::invalid() ) {
      ways[ { tunnelId.intfId(), label } ] = tunnelId;
    } else {
      decision.lack = Vex::text( dest ) + " is reached by no FEC";
      return decision;
    }
  }
  const size_t most = decision.walked.loadBalanced ? maxPaths : 1;
  for ( const auto & [ via, tunnelId ] : ways ) {
    if ( decision.vias.size() == most ) {
      break;
    }
    decision.vias.push_back( via );
    decision.hwTunnelIds.emplace_back();
    if ( tunnelId != TunnelId::invalid() ) {
      const auto & table = mapping.tunnelIdToHwTunnelIdTable();
      const auto record = asked ? examine( table, tunnelId, *asked ) : table.safeRecord( tunnelId );
      decision.tunnels.push_back( tunnelId );
      decision.hwTunnelIds.back() = record ? record->hwTunnelId : HwTunnelId();
      if ( !decision.hwTunnelIds.back().valid() ) {
        decision.lack = "tunnel " + Vex::text( tunnelId ) + " has no hardware tunnel id";
      }
    }
  }
  return decision;
}

} // namespace Kez
