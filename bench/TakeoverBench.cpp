// A hitless restart of the whole agent over the simulated switch, against a cold start of it over
// an empty one; and what stands between a machine and its chip once a takeover has ended, against
// the chip alone. Times are per entry of hardware.
#include "Dot1qInputs.h"
#include "Ratio.h"
#include "Settle.h"

#include "Bridging/VlanConfig.h"
#include "KezEvpn/KezEvpnFloodingDot1qSm.h"
#include "KezHelper/EvpnFloodingSmHelperTakeover.h"
#include "L2Rib/FloodSet.h"
#include "Mpls/LfibStatus.h"
#include "agent/Wiring.h"
#include "switch/SwitchFloodingHelper.h"

#include <memory>

namespace {

constexpr uint32_t tunnels = 512;
constexpr uint32_t destsOfAVlan = 256;
constexpr uint32_t portsOfAVlan = 160;
constexpr uint32_t routesOfAVlan = 25;
constexpr double entriesOfAVlan = destsOfAVlan + portsOfAVlan + routesOfAVlan;

// An agent whose switch has for each VLAN a flood set, ports that are mapped to its tag, and ESI
// port maps.
class Restarts {
public:
  explicit Restarts( uint16_t vlans ) : vlans_( vlans ) {
    Vex::Clock::virtualIs( 0 );
    addPorts( agent_.roots );
    addFloodSets( agent_.roots );
    addRoutes( agent_.roots );
  }

  // A start of the next agent, once the last one has ended; `wrong` says what is wrong after it.
  auto cold( std::string & wrong ) {
    return [ &, ground = groundOf( Agent::Hardware::empties ) ] {
      start( ground );
      if ( !isProgrammed() ) {
        wrong = "a cold start has not programmed what it should";
      }
    };
  }
  auto hitless( std::string & wrong ) {
    return [ &, ground = groundOf( Agent::Hardware::stays ) ] {
      const auto before = calls( *ground.hardware );
      start( ground );
      const auto & takeover = *ground.takeover;
      if ( !takeover.hasEnded() || takeover.kept() != takeover.inherited() || !isProgrammed() ) {
        wrong = "a takeover has not ended with what it began with";
      } else if ( calls( *ground.hardware ) != before ) {
        wrong = "a takeover has called hardware";
      }
    };
  }

private:
  template< class T, class... Arguments >
  static Vex::Ptr< T > input( Agent::Roots & roots, const char * name,
                              const Arguments &... arguments ) {
    return roots.rootIs( Agent::Role::input, name, Vex::makePtr< T >( arguments... ) );
  }
  void addPorts( Agent::Roots & roots ) const {
    const auto evpnStatus = input< Evpn::EvpnStatus >( roots, "evpnStatus" );
    const auto vlanStatusDir = input< Bridging::VlanStatusDir >( roots, "vlanStatusDir" );
    for ( uint16_t vlan = 1; vlan <= vlans_; ++vlan ) {
      evpnStatus->vlanToDot1qIs( vlan, uint32_t( vlan ) );
      const auto vlanStatus = vlanStatusDir->vlanStatusIs( vlan );
      for ( uint32_t port = 1; port <= portsOfAVlan; ++port ) {
        vlanStatus->vlanPortStatusIs( Wire::IntfId( "Ethernet" + std::to_string( port ) ), {} );
      }
    }
  }
  void addFloodSets( Agent::Roots & roots ) const {
    const auto output = input< L2Rib::FloodSetOutput >( roots, "floodSetOutput" );
    for ( uint16_t vlan = 1; vlan <= vlans_; ++vlan ) {
      const auto floodSet = output->vlanFloodSetIs( vlan )->floodSetIs( 0xffffffffffff );
      for ( uint64_t i = 0; i < destsOfAVlan; ++i ) {
        const auto tunnelId = ( i + vlan * 37u ) % tunnels + 1;
        floodSet->destSetIs( L2Rib::Dest::ofMpls( { {}, 100, tunnelId } ) );
      }
    }
  }
  void addRoutes( Agent::Roots & roots ) const {
    const auto lfib = input< Mpls::LfibStatus >( roots, "lfibStatus", "lfibStatus" );
    for ( uint32_t number = 0; number < vlans_ * routesOfAVlan; ++number ) {
      const Mpls::LfibViaKey viaKey( Mpls::LfibViaType::evpnEthernetSegmentFilter, number );
      const Wire::IntfId intfId( "Ethernet" + std::to_string( number / 64 + 1 ) + "/" +
                                 std::to_string( number % 64 + 1 ) );
      lfib->routeIs( { Mpls::RouteKey( number ), number } );
      lfib->viaSetIs( { number, { viaKey } } );
      lfib->evpnEthernetSegmentFilterViaIs( { viaKey, number, intfId } );
    }
  }

  Agent::Wiring groundOf( Agent::Hardware hardware ) {
    auto ground = Agent::unwired( agent_, hardware );
    agent_ = {};
    return ground;
  }
  void start( const Agent::Wiring & ground ) {
    agent_ = Agent::wire( ground );
    if ( ground.takeover ) {
      ground.takeover->inputsAreComplete();
    }
    Bench::settle( *agent_.scheduler );
  }
  bool isProgrammed() const {
    const auto & hardware = *agent_.hardware;
    return hardware.floodSetDests() == vlans_ * destsOfAVlan &&
           hardware.dot1qMappings() == vlans_ * portsOfAVlan &&
           hardware.esiPortMaps() == vlans_ * routesOfAVlan;
  }
  static uint64_t calls( const Switch::SimulatedSwitch & hardware ) {
    uint64_t all = 0;
    for ( const auto & [ operation, count ] : hardware.callCount() ) {
      all += count;
    }
    return all;
  }

  const uint32_t vlans_;
  Agent::Wiring agent_ = Agent::unwired();
};

void hitlessRestart( benchmark::State & state ) {
  const auto vlans = static_cast< uint16_t >( state.range( 0 ) );
  Restarts restarts( vlans );
  std::string wrong;
  Bench::compareWith(
      state, vlans * entriesOfAVlan, { "ratio" }, [ & ] { return restarts.hitless( wrong ); },
      [ & ] { return restarts.cold( wrong ); } );
  if ( !wrong.empty() ) {
    state.SkipWithError( wrong.c_str() );
  }
}
BENCHMARK( hitlessRestart )
    ->Arg( 400 )
    ->Arg( 4000 )
    ->Iterations( 7 )
    ->UseManualTime()
    ->Unit( benchmark::kMillisecond );

// A machine over an empty switch, through a takeover that has ended or not.
struct Dot1q {
  Dot1q( const Bench::Dot1qInputs & inputs, bool throughTakeover ) : inputs( inputs ) {
    inputs.tag();
    helper = Vex::makePtr< Switch::SwitchFloodingHelper >( "chip", hardware );
    if ( throughTakeover ) {
      const auto takeover = Vex::makePtr< KezHelper::Takeover >( scheduler );
      helper =
          Vex::makePtr< KezHelper::EvpnFloodingSmHelperTakeover >( "helper", takeover, helper );
      takeover->inputsAreComplete();
      Bench::settle( *scheduler );
    }
  }
  // Programs every mapping, and removes it.
  bool startAndWithdraw() {
    sm = Kez::evpnFloodingDot1qSmFactory( helper, scheduler, inputs.lags, inputs.evpnVlanStatus,
                                          inputs.evpnStatus, nullptr );
    sm->handleInitialized();
    Bench::settle( *scheduler );
    const auto programmed = hardware->dot1qMappings();
    inputs.untag();
    Bench::settle( *scheduler );
    return programmed == inputs.mappings && hardware->dot1qMappings() == 0;
  }

  const Bench::Dot1qInputs & inputs;
  Vex::Ptr< Loom::TaskScheduler > scheduler = Vex::makePtr< Loom::TaskScheduler >();
  Vex::Ptr< Switch::SimulatedSwitch > hardware = Vex::makePtr< Switch::SimulatedSwitch >();
  Vex::Ptr< KezHelper::EvpnFloodingSmHelper > helper;
  Vex::Ptr< Kez::EvpnFloodingDot1qSm > sm;
};

void steadyState( benchmark::State & state ) {
  Vex::Clock::virtualIs( 0 );
  const Bench::Dot1qInputs inputs( 400, static_cast< uint32_t >( state.range( 0 ) ) );
  bool worked = true;
  const auto contender = [ & ]( bool throughTakeover ) {
    return [ &, throughTakeover ] {
      return [ &worked, dot1q = std::make_shared< Dot1q >( inputs, throughTakeover ) ] {
        worked = dot1q->startAndWithdraw() && worked;
      };
    };
  };
  Bench::compareWith( state, double( inputs.mappings ), { "ratio" }, contender( true ),
                      contender( false ) );
  if ( !worked ) {
    state.SkipWithError( "mappings were not programmed, or not removed" );
  }
}
BENCHMARK( steadyState )->Arg( 16 )->Arg( 160 )->UseManualTime()->Unit( benchmark::kMillisecond );

} // namespace
