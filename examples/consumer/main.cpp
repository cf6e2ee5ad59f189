// Runs PortFilterSm on virtual time over the simulated switch, which refuses its first two calls.
// A filter is a port of VLAN 1 that is not its designated forwarder.
#include "PortFilterSm.h"
#include "Vex/Clock.h"
#include "switch/SwitchFloodingHelper.h"

#include <iostream>

namespace {

class Chip : public Example::PortFilterHelper {
public:
  explicit Chip( const Vex::Ptr< Switch::SimulatedSwitch > & hardware )
      : PortFilterHelper( "chip" ), ports_( "ports", hardware ) {}

  Kez::HwProgrammingStatus createFilter( Wire::IntfId intfId ) override {
    const auto status = ports_.createNonDfPort( intfId, intfId, vlanId );
    std::cout << Vex::Clock::now() << " s: create " << intfId << ": " << status << "\n";
    return status;
  }
  void deleteFilter( Wire::IntfId intfId ) override {
    ports_.deleteNonDfPort( intfId, intfId, vlanId );
    std::cout << Vex::Clock::now() << " s: delete " << intfId << "\n";
  }

private:
  static constexpr Bridging::VlanId vlanId = 1;
  Switch::SwitchFloodingHelper ports_;
};

} // namespace

int main() {
  Vex::Clock::virtualIs( 0 );
  const auto scheduler = Vex::makePtr< Loom::TaskScheduler >();
  const auto hardware = Vex::makePtr< Switch::SimulatedSwitch >();
  hardware->faultIs( Switch::Operation::createNonDfPort )->nextCallsIs( 2 );
  const auto evpnStatus = Vex::makePtr< Evpn::EvpnStatus >();
  evpnStatus->encapBumFilterIs( Wire::IntfId( "Ethernet1" ) );
  const auto sm = Vex::makePtr< Example::PortFilterSm >( Vex::makePtr< Chip >( hardware ),
                                                         scheduler, evpnStatus );
  sm->handleInitialized();
  evpnStatus->encapBumFilterIs( Wire::IntfId( "Ethernet2" ) );
  while ( const auto deadline = scheduler->nextDeadline() ) {
    Vex::Clock::advanceTo( *deadline );
    scheduler->runReady();
  }
  const auto programmed = hardware->nonDfPorts();
  evpnStatus->encapBumFilterDelAll();
  std::cout << programmed << " programmed, of which " << hardware->nonDfPorts() << " are left\n";
  return programmed == 2 && hardware->nonDfPorts() == 0 && hardware->lastRefusal().empty() ? 0 : 1;
}
