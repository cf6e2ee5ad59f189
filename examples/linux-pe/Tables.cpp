#include "Tables.h"

namespace LinuxPe {

Wire::IntfId Tables::interfaceOf( Wire::IntfId port ) const {
  for ( const auto & [ lag, info ] : lags->lagConfig() ) {
    if ( info->memberHas( port ) ) {
      return lag;
    }
  }
  return port;
}

Tunnel::TunnelTable::TunnelId Tables::tunnelTo( Wire::EthAddr nextHop ) const {
  for ( const auto & [ tunnelId, address ] : core->nextHop() ) {
    if ( address == nextHop ) {
      return tunnelId;
    }
  }
  return {};
}

} // namespace LinuxPe
