// Runs PortFilterSm on virtual time over the simulated switch, which refuses its first two calls.
// A filter is a port of VLAN 1 that is not its designated forwarder. Given the path of a socket, it
// then serves whoever asks there what the machine and its input are at, until the first has left.
#include "PortFilterSm.h"
#include "Vex/Clock.h"
#include "shell/Door.h"
#include "switch/SwitchFloodingHelper.h"

#include <iostream>
#include <poll.h>

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

class Daemon : public KezShell::Host {
public:
  Daemon( const Vex::Ptr< Example::PortFilterSm > & sm,
          const Vex::Ptr< Evpn::EvpnStatus > & evpnStatus ) {
    roots_.rootIs( KezShell::Role::input, "evpnStatus", evpnStatus );
    roots_.rootIs( KezShell::Role::machine, "portFilterSm", sm );
  }
  const KezShell::Roots & roots() const override { return roots_; }

private:
  KezShell::Roots roots_;
};

void serve( KezShell::Shell & shell, const char * path ) {
  KezShell::Door door( shell );
  door.socketIs( path, KezShell::Rights::change, 0600 );
  for ( size_t before = 0; door.peers() >= before; ) {
    before = door.peers();
    pollfd watched{ door.descriptor(), POLLIN, 0 };
    poll( &watched, 1, -1 );
    door.serve();
  }
}

} // namespace

int main( int arguments, char ** argument ) {
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
  Daemon daemon( sm, evpnStatus );
  KezShell::Shell shell( daemon );
  KezShell::Session console( shell, KezShell::Rights::console, std::cout, std::cerr );
  console.execute( "expect evpnStatus.encapBumFilter count 2", "main" );
  if ( arguments > 1 ) {
    serve( shell, argument[ 1 ] );
  }
  evpnStatus->encapBumFilterDelAll();
  std::cout << programmed << " programmed, of which " << hardware->nonDfPorts() << " are left\n";
  return programmed == 2 && console.failures() == 0 && hardware->nonDfPorts() == 0 &&
                 hardware->lastRefusal().empty()
             ? 0
             : 1;
}
