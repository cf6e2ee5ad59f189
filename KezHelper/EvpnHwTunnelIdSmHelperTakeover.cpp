#include "KezHelper/EvpnHwTunnelIdSmHelperTakeover.h"

namespace KezHelper {

EvpnHwTunnelIdSmHelperTakeover::EvpnHwTunnelIdSmHelperTakeover(
    const Vex::String & name, const Vex::Ptr< Takeover > & takeover,
    const Vex::Ptr< EvpnHwTunnelIdSmHelper > & chip,
    const Vex::Ptr< const Kez::TunnelIdToHwTunnelIdMapping > & mapping )
    : EvpnHwTunnelIdSmHelper( name ), chip_( chip ), mapping_( mapping ), takeover_( takeover ),
      chipReactor_( *this ) {
  if ( const auto * const inUse = chip->hwTunnelIdsInUse() ) {
    for ( const auto walk = inUse->walk(); walk->next(); ) {
      takeover->inheritedInc( 1 );
    }
  }
  idsStayIs( true );
  takeover->partIs( *this, SweepRank::hwTunnelId );
  chipReactor_.notifierIs( chip );
}

EvpnHwTunnelIdSmHelperTakeover::~EvpnHwTunnelIdSmHelperTakeover() {
  takeover_->partDel( *this );
}

void EvpnHwTunnelIdSmHelperTakeover::VexChip::onAttribute( Vex::AttrId id, const void * ) {
  if ( id == EvpnHwTunnelIdSmHelper::idsFreedAttr ) {
    sm()->idsFreedIs( sm()->idsFreed() + 1 );
  } else if ( id == EvpnHwTunnelIdSmHelper::idsStayAttr ) {
    sm()->idsStayIs( !sm()->swept_ || notifier()->idsStay() );
  }
}

Kez::HwTunnelId
EvpnHwTunnelIdSmHelperTakeover::getHwTunnelId( Kez::HwTunnelIdType hwTunnelIdType ) {
  return chip_->getHwTunnelId( hwTunnelIdType );
}

Kez::HwTunnelId
EvpnHwTunnelIdSmHelperTakeover::getHwTunnelIdForTunnel( Kez::HwTunnelIdType hwTunnelIdType,
                                                        Tunnel::TunnelTable::TunnelId tunnelId ) {
  return chip_->getHwTunnelIdForTunnel( hwTunnelIdType, tunnelId );
}

void EvpnHwTunnelIdSmHelperTakeover::releaseHwTunnelId( const Kez::HwTunnelId & hwTunnelId ) {
  chip_->releaseHwTunnelId( hwTunnelId );
}

// All in one step: pools are small, and an id that is got meanwhile must not be taken for one that
// no tunnel has.
bool EvpnHwTunnelIdSmHelperTakeover::sweepOne() {
  if ( !std::exchange( swept_, true ) ) {
    releaseUnmapped();
    idsStayIs( chip_->idsStay() );
  }
  return false;
}

void EvpnHwTunnelIdSmHelperTakeover::releaseUnmapped() {
  const auto * const inUse = chip_->hwTunnelIdsInUse();
  if ( !inUse ) {
    return;
  }
  Vex::Collection< Kez::HwTunnelId > mapped;
  try {
    for ( const auto & record : mapping()->tunnelIdToHwTunnelId() ) {
      mapped.add( record.hwTunnelId );
    }
  } catch ( const Rook::Corruption & corruption ) {
    kezAssert( corruption.what() );
  }
  // A damaged record, which is stepped over, may have any of them.
  if ( mapped.size() < mapping()->tunnelIdToHwTunnelIds() ) {
    return;
  }
  for ( const auto walk = inUse->walk(); const auto entry = walk->next(); ) {
    if ( mapped.has( entry->key ) ) {
      takeover_->keptInc();
    } else {
      chip_->releaseHwTunnelId( entry->key );
      takeover_->removedInc( 1 );
    }
  }
}

} // namespace KezHelper
