#include "LearnedHosts.h"

namespace LinuxPe {

bool LearnedHosts::seen( const Bridging::MacVlanPair & host, Wire::IntfId intfId, double now ) {
  const auto at = hosts_.find( host );
  if ( at == hosts_.end() ) {
    const bool fits = hosts_.size() < room_;
    if ( fits ) {
      hosts_.emplace( host, Place{ intfId, now } );
    }
    return fits;
  }
  at->second.seen = now;
  return std::exchange( at->second.intfId, intfId ) != intfId;
}

std::vector< HostEvent > LearnedHosts::aged( double now ) {
  std::vector< HostEvent > gone;
  std::erase_if( hosts_, [ & ]( const auto & each ) {
    const bool isGone = now - each.second.seen >= age_;
    if ( isGone ) {
      gone.push_back( { each.first, each.second.intfId, false } );
    }
    return isGone;
  } );
  return gone;
}

} // namespace LinuxPe
