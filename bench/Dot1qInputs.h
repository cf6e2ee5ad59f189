// What dot1q mappings are programmed from: VLANs with a tag, each with every interface as a member.
#pragma once

#include "Evpn/EvpnStatus.h"
#include "KezEvpn/KezEvpn.h"

#include <string>

namespace Bench {

struct Dot1qInputs {
  Dot1qInputs( uint16_t vlans, uint32_t intfs ) : vlans( vlans ), mappings( vlans * intfs ) {
    tag();
    for ( uint16_t vlan = 1; vlan <= vlans; ++vlan ) {
      const auto members = evpnVlanStatus->vlanStatusIs( vlan );
      for ( uint32_t i = 1; i <= intfs; ++i ) {
        members->memberIs( Wire::IntfId( "Ethernet" + std::to_string( i ) ) );
      }
    }
  }
  void tag() const {
    for ( uint16_t vlan = 1; vlan <= vlans; ++vlan ) {
      evpnStatus->vlanToDot1qIs( vlan, uint32_t( vlan ) );
    }
  }
  void untag() const {
    for ( uint16_t vlan = 1; vlan <= vlans; ++vlan ) {
      evpnStatus->vlanToDot1qDel( vlan );
    }
  }

  const uint16_t vlans;
  const size_t mappings;
  Vex::Ptr< Evpn::EvpnStatus > evpnStatus = Vex::makePtr< Evpn::EvpnStatus >();
  Vex::Ptr< Kez::EvpnVlanStatus > evpnVlanStatus = Kez::evpnVlanStatusFactory();
  Vex::Ptr< Kez::EvpnLagMemberInfo > lags = Kez::evpnLagMemberInfoFactory();
};

} // namespace Bench
