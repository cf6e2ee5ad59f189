// The road of flood-set destinations and dot1q mappings through the whole agent: VLAN after VLAN
// its tag, ports and destinations become known, and the machines bring them to the switch.
#pragma once

#include "Settle.h"

#include "Bridging/VlanConfig.h"
#include "Evpn/EvpnStatus.h"
#include "L2Rib/FloodSet.h"
#include "agent/Shell.h"

#include <sstream>

namespace Bench {

class AgentRoad {
public:
  static constexpr uint32_t tunnels = 512;
  static constexpr uint32_t destsOfAVlan = 256;

  AgentRoad( uint16_t vlans, uint32_t portsOfAVlan )
      : vlans( vlans ), portsOfAVlan( portsOfAVlan ) {}

  // With a turn of an event loop after each VLAN.
  template< class Turn > void run( Turn && turn ) {
    for ( uint16_t vlan = 1; vlan <= vlans; ++vlan ) {
      vlanIs( vlan );
      turn();
    }
    settle( *wiring.scheduler, turn );
  }
  // All VLANs at once.
  void run() {
    inputsAre();
    settle( *wiring.scheduler );
  }
  void inputsAre() {
    for ( uint16_t vlan = 1; vlan <= vlans; ++vlan ) {
      vlanIs( vlan );
    }
  }

  const uint16_t vlans;
  const uint32_t portsOfAVlan;
  Agent::Wiring wiring = Agent::wire();
  std::ostringstream out;
  Agent::Shell shell{ wiring, out, out };

private:
  template< class T > T & input( const char * name ) {
    return dynamic_cast< T & >( *wiring.roots.root( name )->entity );
  }
  void vlanIs( uint16_t vlan ) {
    evpnStatus_.vlanToDot1qIs( vlan, uint32_t( vlan ) );
    const auto vlanStatus = vlanStatusDir_.vlanStatusIs( vlan );
    for ( uint32_t port = 1; port <= portsOfAVlan; ++port ) {
      vlanStatus->vlanPortStatusIs( Wire::IntfId( "Ethernet" + std::to_string( port ) ), {} );
    }
    const auto floodSet = floodSets_.vlanFloodSetIs( vlan )->floodSetIs( 0xffffffffffff );
    for ( uint64_t i = 0; i < destsOfAVlan; ++i ) {
      const auto tunnelId = ( i + vlan * 37u ) % tunnels + 1;
      floodSet->destSetIs( L2Rib::Dest::ofMpls( { {}, 100, tunnelId } ) );
    }
  }

  Evpn::EvpnStatus & evpnStatus_ = input< Evpn::EvpnStatus >( "evpnStatus" );
  Bridging::VlanStatusDir & vlanStatusDir_ = input< Bridging::VlanStatusDir >( "vlanStatusDir" );
  L2Rib::FloodSetOutput & floodSets_ = input< L2Rib::FloodSetOutput >( "floodSetOutput" );
};

} // namespace Bench
