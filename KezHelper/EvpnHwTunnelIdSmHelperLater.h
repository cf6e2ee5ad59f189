// The hardware tunnel id helper beside a chip that answers later; see KezHelper/Later.h. Ids are
// handed out at once. One that is given back rests until all calls that were accepted before have
// been answered, so that none of them is to name it, or to take away what does, when it is handed
// out again; meanwhile tunnels keep the ids that they have.
#pragma once

#include "KezHelper/EvpnHwTunnelIdSmHelper.h"
#include "KezHelper/Later.h"

namespace KezHelper {

class EvpnHwTunnelIdSmHelperLater final : public EvpnHwTunnelIdSmHelper, public Vex::ReactorOwner {
public:
  class VexChip : public Vex::ReactorOf< EvpnHwTunnelIdSmHelperLater, EvpnHwTunnelIdSmHelper > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
  };

  VEX_ENTITY( EvpnHwTunnelIdSmHelperLater, "KezHelper::EvpnHwTunnelIdSmHelperLater",
              EvpnHwTunnelIdSmHelper )
  VEX_OUTPUT( 1, chip, EvpnHwTunnelIdSmHelper )
  VEX_SET( 2, resting, Kez::HwTunnelId )
  VEX_ATTRIBUTES( chip, resting )

  EvpnHwTunnelIdSmHelperLater( const Vex::String & name, const Vex::Ptr< LateCalls > & calls,
                               const Vex::Ptr< EvpnHwTunnelIdSmHelper > & chip );

  Kez::HwTunnelId getHwTunnelId( Kez::HwTunnelIdType hwTunnelIdType ) override {
    return chip_->getHwTunnelId( hwTunnelIdType );
  }
  Kez::HwTunnelId getHwTunnelIdForTunnel( Kez::HwTunnelIdType hwTunnelIdType,
                                          Tunnel::TunnelTable::TunnelId tunnelId ) override {
    return chip_->getHwTunnelIdForTunnel( hwTunnelIdType, tunnelId );
  }
  void releaseHwTunnelId( const Kez::HwTunnelId & hwTunnelId ) override;
  const HwTunnelIds * hwTunnelIdsInUse() const override {
    return chip_->hwTunnelIdsInUse() ? &inUse_ : nullptr;
  }
  Vex::String refusalReason() const override { return chip_->refusalReason(); }

private:
  // The chip's, but for those that rest.
  class InUse final : public HwTunnelIds {
  public:
    explicit InUse( const EvpnHwTunnelIdSmHelperLater & helper ) : helper_( helper ) {}
    std::optional< Tunnel::TunnelTable::TunnelId >
    find( const Kez::HwTunnelId & hwTunnelId ) const override;
    std::unique_ptr< Walk > walk() const override;

  private:
    const EvpnHwTunnelIdSmHelperLater & helper_;
  };

  void giveBack( const Kez::HwTunnelId & hwTunnelId );

  const Vex::Ptr< LateCalls > calls_;
  const InUse inUse_{ *this };
  const std::shared_ptr< const bool > alive_ = std::make_shared< const bool >( true );
  VexChip chipReactor_;
};

} // namespace KezHelper
