// The hardware tunnel id helper of a machine that starts over hardware which is programmed already,
// between it and a chip's helper; see KezHelper/Takeover.h. The machine itself goes on with the ids
// that it finds a tunnel for, and reclaims none until the sweep. That gives back those that are not
// mapped then, which an end between two calls has left.
#pragma once

#include "KezEvpn/TunnelIdToHwTunnelIdMapping.h"
#include "KezHelper/EvpnHwTunnelIdSmHelper.h"
#include "KezHelper/Takeover.h"

namespace KezHelper {

class EvpnHwTunnelIdSmHelperTakeover : public EvpnHwTunnelIdSmHelper,
                                       public Vex::ReactorOwner,
                                       private TakeoverPart {
public:
  class VexChip : public Vex::ReactorOf< EvpnHwTunnelIdSmHelperTakeover, EvpnHwTunnelIdSmHelper > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
  };

  VEX_ENTITY( EvpnHwTunnelIdSmHelperTakeover, "KezHelper::EvpnHwTunnelIdSmHelperTakeover",
              EvpnHwTunnelIdSmHelper )
  VEX_OUTPUT( 1, chip, EvpnHwTunnelIdSmHelper )
  VEX_INPUT( 2, mapping, Kez::TunnelIdToHwTunnelIdMapping )
  VEX_ATTRIBUTES( chip, mapping )

  // Before the machine starts.
  EvpnHwTunnelIdSmHelperTakeover(
      const Vex::String & name, const Vex::Ptr< Takeover > & takeover,
      const Vex::Ptr< EvpnHwTunnelIdSmHelper > & chip,
      const Vex::Ptr< const Kez::TunnelIdToHwTunnelIdMapping > & mapping );
  ~EvpnHwTunnelIdSmHelperTakeover() override;

  Kez::HwTunnelId getHwTunnelId( Kez::HwTunnelIdType hwTunnelIdType ) override;
  Kez::HwTunnelId getHwTunnelIdForTunnel( Kez::HwTunnelIdType hwTunnelIdType,
                                          Tunnel::TunnelTable::TunnelId tunnelId ) override;
  void releaseHwTunnelId( const Kez::HwTunnelId & hwTunnelId ) override;
  const HwTunnelIds * hwTunnelIdsInUse() const override { return chip_->hwTunnelIdsInUse(); }
  Vex::String refusalReason() const override { return chip_->refusalReason(); }

private:
  bool sweepOne() override;
  void releaseUnmapped();

  const Vex::Ptr< Takeover > takeover_;
  bool swept_ = false;
  VexChip chipReactor_;
};

} // namespace KezHelper
