#include "KezEvpn/HwTunnelIdRecords.h"

#include <map>

namespace Kez {

using Tunnel::TunnelTable::TunnelId;
using IdsInUse = KezHelper::EvpnHwTunnelIdSmHelper::HwTunnelIds;
using TunnelsOfIds = std::map< HwTunnelId, TunnelId >;

std::optional< TunnelIdToHwTunnelId > hwTunnelIdRecord( const TunnelIdToHwTunnelIdMapping & mapping,
                                                        TunnelId tunnelId ) {
  try {
    return mapping.tunnelIdToHwTunnelId( tunnelId );
  } catch ( const Rook::Corruption & corruption ) {
    KezBaseHelper::kezAssert( corruption.what() );
  }
}

// And what is left.
static TunnelsOfIds dropRecordsOfOthers( TunnelIdToHwTunnelIdMapping & mapping,
                                         const IdsInUse & inUse ) {
  TunnelsOfIds recorded;
  size_t records = 0;
  const size_t all = mapping.tunnelIdToHwTunnelIds();
  try {
    for ( const auto & [ tunnelId, hwTunnelId ] : mapping.tunnelIdToHwTunnelId() ) {
      ++records;
      const auto owner = inUse.find( hwTunnelId );
      const bool stands = owner && ( *owner == tunnelId || *owner == TunnelId::invalid() );
      if ( !stands || !recorded.emplace( hwTunnelId, tunnelId ).second ) {
        mapping.tunnelIdToHwTunnelIdDel( tunnelId );
      }
    }
  } catch ( const Rook::Corruption & corruption ) {
    KezBaseHelper::kezAssert( corruption.what() );
  }
  VEX_ASSERT( records == all ); // a damaged one is stepped over
  return recorded;
}

void takeOverHwTunnelIdRecords(
    TunnelIdToHwTunnelIdMapping & mapping, const IdsInUse & inUse,
    const std::function< void( const TunnelIdToHwTunnelId & record ) > & goesOn ) {
  const auto recorded = dropRecordsOfOthers( mapping, inUse );
  for ( const auto walk = inUse.walk(); const auto entry = walk->next(); ) {
    const auto hwTunnelId = entry->key;
    const auto at = recorded.find( hwTunnelId );
    const bool known = at != recorded.end();
    const auto tunnelId = known ? at->second : entry->data;
    const bool wanted =
        known || ( tunnelId != TunnelId::invalid() && !hwTunnelIdRecord( mapping, tunnelId ) &&
                   mapping.tunnelIdToHwTunnelIdMakeRoom() );
    if ( wanted ) {
      goesOn( { tunnelId, hwTunnelId } );
    }
    if ( wanted && !known ) {
      mapping.tunnelIdToHwTunnelIdIs( { tunnelId, hwTunnelId } );
    }
  }
}

} // namespace Kez
