// What the tests of the machines that program ports through the flooding helper have in common:
// their inputs, and the simulated switch below them.
#pragma once

#include "TraceCapture.h"
#include "VirtualTime.h"

#include "KezEvpn/frame/PortProgrammingSm.h"
#include "KezHelper/EvpnFloodingSmHelperStub.h"
#include "switch/SwitchFloodingHelper.h"

#include <gmock/gmock.h>

#include <map>
#include <set>

using Switch::FallibleOperation;
using Switch::Operation;

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

  const Wire::IntfId eth1{ "Ethernet1" };
  const Wire::IntfId eth2{ "Ethernet2" };
  const Wire::IntfId eth3{ "Ethernet3" };
  const Wire::IntfId lag1{ "Port-Channel1" };
  const Wire::IntfId lag2{ "Port-Channel2" };
  Vex::Ptr< Kez::EvpnLagMemberInfo > lagInfo = Kez::evpnLagMemberInfoFactory();
  Vex::Ptr< Evpn::EvpnStatus > evpnStatus = Vex::makePtr< Evpn::EvpnStatus >();
  Vex::Ptr< Switch::SimulatedSwitch > hardware = Vex::makePtr< Switch::SimulatedSwitch >();
  Vex::Ptr< Switch::SwitchFloodingHelper > helper =
      Vex::makePtr< Switch::SwitchFloodingHelper >( "floodingHelper", hardware );
};
