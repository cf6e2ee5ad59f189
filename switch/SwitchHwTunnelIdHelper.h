// The hardware tunnel id helper over the simulated switch, whose pools are as large as the
// capacities of that name say. Giving back what is not in use is a wrong call. Every call is traced
// at level 5 with what it answered.
#pragma once

#include "KezHelper/EvpnHwTunnelIdSmHelper.h"
#include "switch/SimulatedSwitch.h"

namespace Switch {

class SwitchHwTunnelIdHelper : public KezHelper::EvpnHwTunnelIdSmHelper {
  VEX_ENTITY( SwitchHwTunnelIdHelper, "Switch::SwitchHwTunnelIdHelper",
              KezHelper::EvpnHwTunnelIdSmHelper )
  VEX_OUTPUT( 1, simulatedSwitch, SimulatedSwitch )
  VEX_ATTRIBUTES( simulatedSwitch )

public:
  SwitchHwTunnelIdHelper( const Vex::String & name, const Vex::Ptr< SimulatedSwitch > & hardware )
      : EvpnHwTunnelIdSmHelper( name ), simulatedSwitch_( hardware ) {}

  Kez::HwTunnelId getHwTunnelId( Kez::HwTunnelIdType hwTunnelIdType ) override;
  Kez::HwTunnelId getHwTunnelIdForTunnel( Kez::HwTunnelIdType hwTunnelIdType,
                                          Tunnel::TunnelTable::TunnelId tunnelId ) override;
  void releaseHwTunnelId( const Kez::HwTunnelId & hwTunnelId ) override;
  const HwTunnelIds * hwTunnelIdsInUse() const override { return &idsInUse_; }
  Vex::String refusalReason() const override { return simulatedSwitch_->lastFailure(); }

private:
  // Those of all pools.
  class IdsInUse final : public HwTunnelIds {
  public:
    explicit IdsInUse( const SwitchHwTunnelIdHelper & helper ) : helper_( helper ) {}

    std::optional< Tunnel::TunnelTable::TunnelId >
    find( const Kez::HwTunnelId & hwTunnelId ) const override;
    std::unique_ptr< Walk > walk() const override;

  private:
    const SwitchHwTunnelIdHelper & helper_;
  };

  const IdsInUse idsInUse_{ *this };
};

} // namespace Switch
