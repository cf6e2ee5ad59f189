// What figures cost: the road of flood-set destinations and mappings through the whole agent, whose
// switch counts its calls and how long their answers take, with that counting done once more for
// each call and all figures written out at the end, against the road alone. Times are per entry of
// hardware.
#include "Ratio.h"
#include "Settle.h"

#include "Bridging/VlanConfig.h"
#include "Evpn/EvpnStatus.h"
#include "L2Rib/FloodSet.h"
#include "agent/Shell.h"

#include <memory>
#include <sstream>

namespace {

constexpr uint32_t tunnels = 512;
constexpr uint32_t destsOfAVlan = 256;
constexpr uint32_t portsOfAVlan = 160;

template< class T > T & input( const Agent::Wiring & wiring, const char * name ) {
  return dynamic_cast< T & >( *wiring.roots.root( name )->entity );
}

struct Host {
  explicit Host( uint16_t vlans ) : vlans( vlans ) {}

  void road() {
    auto & evpnStatus = input< Evpn::EvpnStatus >( wiring, "evpnStatus" );
    auto & vlanStatusDir = input< Bridging::VlanStatusDir >( wiring, "vlanStatusDir" );
    auto & floodSets = input< L2Rib::FloodSetOutput >( wiring, "floodSetOutput" );
    for ( uint16_t vlan = 1; vlan <= vlans; ++vlan ) {
      evpnStatus.vlanToDot1qIs( vlan, uint32_t( vlan ) );
      const auto vlanStatus = vlanStatusDir.vlanStatusIs( vlan );
      for ( uint32_t port = 1; port <= portsOfAVlan; ++port ) {
        vlanStatus->vlanPortStatusIs( Wire::IntfId( "Ethernet" + std::to_string( port ) ), {} );
      }
      const auto floodSet = floodSets.vlanFloodSetIs( vlan )->floodSetIs( 0xffffffffffff );
      for ( uint64_t i = 0; i < destsOfAVlan; ++i ) {
        const auto tunnelId = ( i + vlan * 37u ) % tunnels + 1;
        floodSet->destSetIs( L2Rib::Dest::ofMpls( { {}, 100, tunnelId } ) );
      }
    }
    Bench::settle( *wiring.scheduler );
  }
  void countAgain() {
    std::array< Vex::DurationHistogram, Switch::operationTypes.size() > latencies;
    double latency = 0;
    for ( const auto & [ operation, count ] : wiring.hardware->callCount() ) {
      for ( uint64_t i = 0; i < count; ++i ) {
        benchmark::DoNotOptimize( latency );
        latencies[ static_cast< size_t >( operation ) ].add( std::exchange( latency, 0 ) );
        benchmark::DoNotOptimize( latencies );
      }
    }
    std::ostringstream text;
    shell.metrics().write( text, KezShell::MetricForm::plainText );
    benchmark::DoNotOptimize( text );
  }

  const uint16_t vlans;
  Agent::Wiring wiring = Agent::wire();
  std::ostringstream out;
  Agent::Shell shell{ wiring, out, out };
};

void figures( benchmark::State & state ) {
  Vex::Clock::virtualIs( 0 );
  const auto vlans = static_cast< uint16_t >( state.range( 0 ) );
  const auto contender = [ & ]( bool counts ) {
    return [ &, counts ] {
      return [ counts, agent = std::make_shared< Host >( vlans ) ] {
        agent->road();
        if ( counts ) {
          agent->countAgain();
        }
      };
    };
  };
  Bench::compareWith( state, double( vlans ) * ( destsOfAVlan + portsOfAVlan ), { "ratio" },
                      contender( true ), contender( false ) );
}
BENCHMARK( figures )->Arg( 100 )->Arg( 400 )->Iterations( 15 )->UseManualTime()->Unit(
    benchmark::kMillisecond );

// One reading alone, over as much.
void reading( benchmark::State & state ) {
  Vex::Clock::virtualIs( 0 );
  Host agent( static_cast< uint16_t >( state.range( 0 ) ) );
  agent.road();
  for ( auto _ : state ) {
    std::ostringstream text;
    agent.shell.metrics().write( text, KezShell::MetricForm::plainText );
    benchmark::DoNotOptimize( text );
  }
}
BENCHMARK( reading )->Arg( 1 )->Arg( 1000 )->Unit( benchmark::kMicrosecond );

} // namespace
