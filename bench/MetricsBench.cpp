// What figures cost: the road of flood-set destinations and mappings through the whole agent, whose
// switch counts its calls and how long their answers take, with that counting done once more for
// each call and all figures written out at the end, against the road alone. Times are per entry of
// hardware.
#include "AgentRoad.h"
#include "Ratio.h"

#include <memory>
#include <sstream>

namespace {

constexpr uint32_t portsOfAVlan = 160;

void countAgain( const Bench::AgentRoad & agent ) {
  std::array< Vex::DurationHistogram, Switch::operationTypes.size() > latencies;
  double latency = 0;
  for ( const auto & [ operation, count ] : agent.wiring.hardware->callCount() ) {
    for ( uint64_t i = 0; i < count; ++i ) {
      benchmark::DoNotOptimize( latency );
      latencies[ static_cast< size_t >( operation ) ].add( std::exchange( latency, 0 ) );
      benchmark::DoNotOptimize( latencies );
    }
  }
  std::ostringstream text;
  agent.shell.metrics().write( text, KezShell::MetricForm::plainText );
  benchmark::DoNotOptimize( text );
}

void figures( benchmark::State & state ) {
  Vex::Clock::virtualIs( 0 );
  const auto vlans = static_cast< uint16_t >( state.range( 0 ) );
  const auto contender = [ & ]( bool counts ) {
    return [ &, counts ] {
      return [ counts, agent = std::make_shared< Bench::AgentRoad >( vlans, portsOfAVlan ) ] {
        agent->run();
        if ( counts ) {
          countAgain( *agent );
        }
      };
    };
  };
  Bench::compareWith( state, double( vlans ) * ( Bench::AgentRoad::destsOfAVlan + portsOfAVlan ),
                      { "ratio" }, contender( true ), contender( false ) );
}
BENCHMARK( figures )->Arg( 100 )->Arg( 400 )->Iterations( 15 )->UseManualTime()->Unit(
    benchmark::kMillisecond );

// One reading alone, over as much.
void reading( benchmark::State & state ) {
  Vex::Clock::virtualIs( 0 );
  Bench::AgentRoad agent( static_cast< uint16_t >( state.range( 0 ) ), portsOfAVlan );
  agent.run();
  for ( auto _ : state ) {
    std::ostringstream text;
    agent.shell.metrics().write( text, KezShell::MetricForm::plainText );
    benchmark::DoNotOptimize( text );
  }
}
BENCHMARK( reading )->Arg( 1 )->Arg( 1000 )->Unit( benchmark::kMicrosecond );

} // namespace
