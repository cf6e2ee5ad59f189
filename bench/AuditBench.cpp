// A round of an audit over dot1q mappings, against the start that programmed them, both over the
// simulated switch. Times are per mapping.
#include "Ratio.h"

#include "KezEvpn/KezEvpnFloodingDot1qSm.h"
#include "KezHelper/Audit.h"
#include "switch/SwitchFloodingHelper.h"

#include <memory>

namespace {

constexpr uint16_t vlans = 4000;

void settle( Loom::TaskScheduler & scheduler ) {
  while ( const auto deadline = scheduler.nextDeadline() ) {
    Vex::Clock::advanceTo( std::max( *deadline, Vex::Clock::now() ) );
    scheduler.runReady();
  }
}

// Every interface is a member of each VLAN.
struct Inputs {
  explicit Inputs( uint32_t intfs ) {
    for ( uint16_t vlan = 1; vlan <= vlans; ++vlan ) {
      evpnStatus->vlanToDot1qIs( vlan, uint32_t( vlan ) );
      const auto members = evpnVlanStatus->vlanStatusIs( vlan );
      for ( uint32_t i = 1; i <= intfs; ++i ) {
        members->memberIs( Wire::IntfId( "Ethernet" + std::to_string( i ) ) );
      }
    }
  }

  Vex::Ptr< Evpn::EvpnStatus > evpnStatus = Vex::makePtr< Evpn::EvpnStatus >();
  Vex::Ptr< Kez::EvpnVlanStatus > evpnVlanStatus = Kez::evpnVlanStatusFactory();
  Vex::Ptr< Kez::EvpnLagMemberInfo > lags = Kez::evpnLagMemberInfoFactory();
};

struct Agent {
  explicit Agent( const Inputs & inputs ) {
    Vex::Clock::virtualIs( 0 );
    sm = Kez::evpnFloodingDot1qSmFactory( helper, scheduler, inputs.lags, inputs.evpnVlanStatus,
                                          inputs.evpnStatus, nullptr );
    sm->handleInitialized();
    settle( *scheduler );
  }

  Vex::Ptr< Loom::TaskScheduler > scheduler = Vex::makePtr< Loom::TaskScheduler >();
  Vex::Ptr< Switch::SimulatedSwitch > hardware = Vex::makePtr< Switch::SimulatedSwitch >();
  Vex::Ptr< Switch::SwitchFloodingHelper > helper =
      Vex::makePtr< Switch::SwitchFloodingHelper >( "helper", hardware );
  Vex::Ptr< Kez::EvpnFloodingDot1qSm > sm;
};

void auditRound( benchmark::State & state ) {
  const auto intfs = static_cast< uint32_t >( state.range( 0 ) );
  const Inputs inputs( intfs );
  const Agent agent( inputs );
  const auto audit = Vex::makePtr< KezHelper::Audit >( agent.scheduler, nullptr );
  KezHelper::AuditParts parts;
  agent.sm->addAuditParts( parts );
  audit->partsAre( agent.sm, std::move( parts ) );
  double longestTurn = 0;
  Bench::compare(
      state, double( vlans ) * intfs,
      [ & ] {
        audit->begin( false );
        while ( audit->isUnderWay() ) {
          longestTurn =
              std::max( longestTurn, Bench::seconds( [ & ] { agent.scheduler->runReady(); } ) );
        }
      },
      [ & ] { return std::make_unique< Agent >( inputs ); } );
  state.counters[ "longest_run_s" ] = longestTurn;
  state.counters[ "compared" ] = double( audit->compared() );
  state.counters[ "differences" ] = double( audit->differences() );
}
BENCHMARK( auditRound )->Arg( 16 )->Arg( 160 )->UseManualTime()->Unit( benchmark::kMillisecond );

} // namespace
