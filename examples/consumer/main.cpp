// Runs PortFilterSm over a chip that refuses its first two calls, on virtual time.
#include "PortFilterSm.h"
#include "Vex/Clock.h"

#include <iostream>

namespace {

class Chip : public Example::PortFilterHelper {
public:
  using PortFilterHelper::PortFilterHelper;

  Kez::HwProgrammingStatus createFilter( Wire::IntfId intfId ) override {
    const bool refused = ++calls <= 2;
    std::cout << Vex::Clock::now() << " s: create " << intfId
              << ( refused ? ": refused" : ": done" ) << "\n";
    return refused ? Kez::HwProgrammingStatus::notProgrammed : Kez::HwProgrammingStatus::programmed;
  }
  void deleteFilter( Wire::IntfId intfId ) override {
    std::cout << Vex::Clock::now() << " s: delete " << intfId << "\n";
  }

private:
  int calls = 0;
};

} // namespace

int main() {
  Vex::Clock::virtualIs( 0 );
  const auto scheduler = Vex::makePtr< Loom::TaskScheduler >();
  const auto evpnStatus = Vex::makePtr< Evpn::EvpnStatus >();
  evpnStatus->encapBumFilterIs( Wire::IntfId( "Ethernet1" ) );
  const auto sm = Vex::makePtr< Example::PortFilterSm >( Vex::makePtr< Chip >( "chip" ), scheduler,
                                                         evpnStatus );
  sm->handleInitialized();
  evpnStatus->encapBumFilterIs( Wire::IntfId( "Ethernet2" ) );
  while ( const auto deadline = scheduler->nextDeadline() ) {
    Vex::Clock::advanceTo( *deadline );
    scheduler->runReady();
  }
  evpnStatus->encapBumFilterDelAll();
  std::cout << sm->programmeds() << " programmed, " << sm->unprogrammeds() << " refused\n";
  return sm->programmeds() == 0 && sm->unprogrammeds() == 0 ? 0 : 1;
}
