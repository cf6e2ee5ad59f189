// What the tests of the machines that program ports through the flooding helper have in common:
// their inputs, the simulated switch below them, and what they all promise of their pairs.
#pragma once

#include "TraceCapture.h"
#include "VirtualTime.h"

#include "KezEvpn/PortProgramming.h"
#include "KezHelper/EvpnFloodingSmHelperStub.h"
#include "agent/SwitchFloodingHelper.h"

#include <gmock/gmock.h>

#include <array>
#include <map>
#include <random>
#include <set>

using Agent::FallibleOperation;
using Agent::Operation;

class FloodingMachines : public VirtualTime {
protected:
  // Nothing was ever asked of the switch that hardware refuses.
  ~FloodingMachines() override { EXPECT_EQ( hardware->lastRefusal(), "" ); }

  void lagIs( Wire::IntfId lag, const std::vector< Wire::IntfId > & ports ) {
    Kez::KezPortList list;
    for ( const auto port : ports ) {
      list.portIs( port, true );
    }
    lagInfo->lagToPortIs( lag, list );
  }
  void failNext( FallibleOperation operation, uint32_t calls ) {
    hardware->faultIs( operation )->nextCallsIs( calls );
  }
  uint32_t calls( Operation operation ) const { return hardware->callCount( operation ); }

  Wire::IntfId anyIntf( std::mt19937 & random ) const {
    return std::array{ eth1, eth2, lag1, lag2 }[ random() % 4 ];
  }
  static std::vector< Wire::IntfId > somePorts( std::mt19937 & random ) {
    std::vector< Wire::IntfId > some;
    for ( const auto port : { "Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4" } ) {
      if ( random() % 2 ) {
        some.emplace_back( port );
      }
    }
    return some;
  }

  // The ports behind an interface, as the machines are to see them.
  std::vector< Wire::IntfId > portsOf( Wire::IntfId intf ) const {
    if ( !Kez::isLag( intf ) ) {
      return { intf };
    }
    const auto & list = lagInfo->lagToPort( intf );
    return { list.begin(), list.end() };
  }

  // The indexes mirror each other and have no empty member; a pair is parked exactly while it has
  // unprogrammed ports; what is programmed is what `inHardware` holds; a review is due while
  // something is parked.
  template< class Statuses, class Parked >
  void expectConsistent( const Kez::PortProgrammingSm & sm, const Statuses & statuses,
                         const Parked & parked,
                         const std::set< Agent::PortVlanKey > & inHardware ) {
    std::set< Kez::IntfVlanKey > byIntf;
    std::set< Kez::IntfVlanKey > byVlan;
    for ( const auto & [ intf, vlans ] : sm.intfVlanSet() ) {
      EXPECT_GT( vlans->vlanIds(), 0u );
      for ( const auto vlan : vlans->vlanId() ) {
        byIntf.insert( { intf, vlan } );
      }
    }
    for ( const auto & [ vlan, intfs ] : sm.vlanIntfSet() ) {
      EXPECT_GT( intfs->intfIds(), 0u );
      for ( const auto intf : intfs->intfId() ) {
        byVlan.insert( { intf, vlan } );
      }
    }
    EXPECT_EQ( byIntf, byVlan );

    std::set< Kez::IntfVlanKey > unprogrammed;
    std::set< Agent::PortVlanKey > programmed;
    for ( const auto & [ key, status ] : statuses ) {
      for ( const auto port : status->unprogrammed() ) {
        EXPECT_TRUE( !status->programmedHas( port ) || status->forceReprogramHas( port ) );
        unprogrammed.insert( key );
      }
      for ( const auto port : status->forceReprogram() ) {
        EXPECT_TRUE( status->programmedHas( port ) );
      }
      for ( const auto port : status->programmed() ) {
        programmed.insert( { key.intfId, port, key.vlanId } );
      }
    }
    EXPECT_EQ( programmed, inHardware );
    std::set< Kez::IntfVlanKey > waiting;
    for ( const auto key : parked ) {
      if ( key.intfId != Wire::IntfId() ) { // else a VLAN's own
        waiting.insert( key );
      }
    }
    EXPECT_EQ( waiting, unprogrammed );
    EXPECT_TRUE( parked.size() == 0 || sm.reviewUnprogrammed()->isScheduled() );
  }

  const Wire::IntfId eth1{ "Ethernet1" };
  const Wire::IntfId eth2{ "Ethernet2" };
  const Wire::IntfId eth3{ "Ethernet3" };
  const Wire::IntfId lag1{ "Port-Channel1" };
  const Wire::IntfId lag2{ "Port-Channel2" };
  Vex::Ptr< Kez::EvpnLagMemberInfo > lagInfo = Kez::evpnLagMemberInfoFactory();
  Vex::Ptr< Evpn::EvpnStatus > evpnStatus = Vex::makePtr< Evpn::EvpnStatus >();
  Vex::Ptr< Agent::SimulatedSwitch > hardware = Vex::makePtr< Agent::SimulatedSwitch >();
  Vex::Ptr< Agent::SwitchFloodingHelper > helper =
      Vex::makePtr< Agent::SwitchFloodingHelper >( "floodingHelper", hardware );
};
