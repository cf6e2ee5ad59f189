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
  void releaseHwTunnelId( const Kez::HwTunnelId & hwTunnelId ) override;
};

} // namespace Switch
