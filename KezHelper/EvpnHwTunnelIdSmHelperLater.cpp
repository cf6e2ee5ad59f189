#include "KezHelper/EvpnHwTunnelIdSmHelperLater.h"

namespace KezHelper {

using Kez::HwTunnelId;
using Tunnel::TunnelTable::TunnelId;

EvpnHwTunnelIdSmHelperLater::EvpnHwTunnelIdSmHelperLater(
    const Vex::String & name, const Vex::Ptr< LateCalls > & calls,
    const Vex::Ptr< EvpnHwTunnelIdSmHelper > & chip )
    : EvpnHwTunnelIdSmHelper( name ), chip_( chip ), calls_( calls ), chipReactor_( *this ) {
  chipReactor_.notifierIs( chip );
}

void EvpnHwTunnelIdSmHelperLater::VexChip::onAttribute( Vex::AttrId id, const void * ) {
  if ( id == EvpnHwTunnelIdSmHelper::idsFreedAttr ) {
    sm()->idsFreedIs( sm()->idsFreed() + 1 );
  }
}

void EvpnHwTunnelIdSmHelperLater::releaseHwTunnelId( const HwTunnelId & hwTunnelId ) {
  if ( !calls_->isUnderWay() ) {
    chip_->releaseHwTunnelId( hwTunnelId );
    return;
  }
  restingIs( hwTunnelId );
  idsStayIs( true );
  const auto number = calls_->begin();
  calls_->whenEndedBefore(
      number, [ this, hwTunnelId, number, alive = std::weak_ptr( alive_ ), calls = calls_.get() ] {
        if ( !alive.expired() ) {
          giveBack( hwTunnelId );
        }
        calls->end( number );
      } );
}

void EvpnHwTunnelIdSmHelperLater::giveBack( const HwTunnelId & hwTunnelId ) {
  restingDel( hwTunnelId );
  chip_->releaseHwTunnelId( hwTunnelId );
  if ( restings() == 0 ) {
    idsStayIs( false );
  }
}

std::optional< TunnelId >
EvpnHwTunnelIdSmHelperLater::InUse::find( const HwTunnelId & hwTunnelId ) const {
  return helper_.restingHas( hwTunnelId ) ? std::nullopt
                                          : helper_.chip()->hwTunnelIdsInUse()->find( hwTunnelId );
}

std::unique_ptr< EvpnHwTunnelIdSmHelper::HwTunnelIds::Walk >
EvpnHwTunnelIdSmHelperLater::InUse::walk() const {
  class ButResting final : public Walk {
  public:
    explicit ButResting( const EvpnHwTunnelIdSmHelperLater & helper )
        : helper_( helper ), walk_( helper.chip()->hwTunnelIdsInUse()->walk() ) {}
    std::optional< Entry > next() override {
      auto entry = walk_->next();
      while ( entry && helper_.restingHas( entry->key ) ) {
        entry = walk_->next();
      }
      return entry;
    }

  private:
    const EvpnHwTunnelIdSmHelperLater & helper_;
    const std::unique_ptr< Walk > walk_;
  };
  return std::make_unique< ButResting >( helper_ );
}

} // namespace KezHelper
