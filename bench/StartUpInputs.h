// What the LAG and VLAN membership machines start from.
#pragma once

#include "Bridging/VlanConfig.h"
#include "Evpn/EvpnStatus.h"
#include "Kez/LagConfig.h"

#include <string>
#include <vector>

namespace Bench {

// Configured LAGs of four members.
struct LagInputs {
  static constexpr uint32_t members = 4;

  explicit LagInputs( uint32_t lags ) {
    for ( uint32_t lag = 1; lag <= lags; ++lag ) {
      const auto config = dir->lagConfigIs( Wire::PortChannelIntfId::intfId( lag ) );
      for ( uint32_t member = 1; member <= members; ++member ) {
        const Wire::IntfId port( "Ethernet" + std::to_string( lag ) + "/" +
                                 std::to_string( member ) );
        config->memberIs( port, Hardware::Lag::PortProgType() );
      }
    }
  }

  Vex::Ptr< Kez::LagCreatorConfigDir > dir = Vex::makePtr< Kez::LagCreatorConfigDir >();
};

// VLANs of two hundred interfaces, each configured and up there; of every fourth encapsulated BUM
// traffic is filtered.
struct MembershipInputs {
  static constexpr uint32_t intfs = 200;

  explicit MembershipInputs( uint16_t vlans ) {
    for ( uint32_t intf = 1; intf <= intfs; ++intf ) {
      ports.emplace_back( "Ethernet" + std::to_string( intf ) );
      if ( intf % 4 == 0 ) {
        evpnStatus->encapBumFilterIs( ports.back() );
      }
    }
    for ( uint16_t vlan = 1; vlan <= vlans; ++vlan ) {
      const auto vlanConfig = config->vlanConfigIs( vlan );
      const auto vlanStatus = statusDir->vlanStatusIs( vlan );
      for ( const auto port : ports ) {
        vlanConfig->intfIs( port, Bridging::VlanPortConfig() );
        vlanStatus->vlanPortStatusIs( port, Bridging::VlanPortStatus() );
      }
    }
  }

  Vex::Ptr< Bridging::Config > config = Vex::makePtr< Bridging::Config >();
  Vex::Ptr< Bridging::VlanStatusDir > statusDir = Vex::makePtr< Bridging::VlanStatusDir >();
  Vex::Ptr< Evpn::EvpnStatus > evpnStatus = Vex::makePtr< Evpn::EvpnStatus >();
  std::vector< Wire::IntfId > ports;
};

} // namespace Bench
