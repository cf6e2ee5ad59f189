// A round of an audit over dot1q mappings, against the start that programmed them, both over the
// simulated switch. Times are per mapping.
#include "Dot1qInputs.h"
#include "Ratio.h"
#include "Settle.h"

#include "KezEvpn/KezEvpnFloodingDot1qSm.h"
#include "KezHelper/Audit.h"
#include "switch/SwitchFloodingHelper.h"

#include <memory>

namespace {

struct Agent {
  explicit Agent( const Bench::Dot1qInputs & inputs ) {
    Vex::Clock::virtualIs( 0 );
    sm = Kez::evpnFloodingDot1qSmFactory( helper, scheduler, inputs.lags, inputs.evpnVlanStatus,
                                          inputs.evpnStatus, nullptr );
    sm->handleInitialized();
    Bench::settle( *scheduler );
  }

  Vex::Ptr< Loom::TaskScheduler > scheduler = Vex::makePtr< Loom::TaskScheduler >();
  Vex::Ptr< Switch::SimulatedSwitch > hardware = Vex::makePtr< Switch::SimulatedSwitch >();
  Vex::Ptr< Switch::SwitchFloodingHelper > helper =
      Vex::makePtr< Switch::SwitchFloodingHelper >( "helper", hardware );
  Vex::Ptr< Kez::EvpnFloodingDot1qSm > sm;
};

void auditRound( benchmark::State & state ) {
  const Bench::Dot1qInputs inputs( 4000, static_cast< uint32_t >( state.range( 0 ) ) );
  const Agent agent( inputs );
  const auto audit = Vex::makePtr< KezHelper::Audit >( agent.scheduler, nullptr );
  KezHelper::AuditParts parts;
  agent.sm->addAuditParts( parts );
  audit->partsAre( agent.sm, std::move( parts ) );
  double longestTurn = 0;
  Bench::compare(
      state, double( inputs.mappings ),
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
