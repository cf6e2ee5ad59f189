// The flooding machines, which program every port of an interface and VLAN, each against a plain
// loop that makes the same helper calls and keeps the same per-port status in std::unordered_maps.
// Times are per port.
#include "FloodingInputs.h"
#include "Ratio.h"

#include "KezEvpn/KezEvpnFloodFilterSm.h"

#include <algorithm>
#include <memory>
#include <unordered_set>

namespace {

using Bench::CountingHelper;
using Bench::EsiInputs;
using Bench::HwProgrammingStatus;
using Bench::Interfaces;
using Bench::MappingInputs;
using Bench::tepOf;
using Bench::tunnels;
using Word = uint64_t;

constexpr uint64_t pairOf( Wire::IntfId intf, Bridging::VlanId vlan ) {
  return intf.vexWord() << 12 | vlan.value(); // enough of the word to tell these interfaces apart
}

struct PlainStatus {
  std::unordered_set< Word > programmed;
  std::unordered_set< Word > unprogrammed;
};
using PlainStatuses = std::unordered_map< Word, PlainStatus >;

template< class Create >
void programPlainly( PlainStatuses & statuses, const Interfaces & interfaces, Wire::IntfId intf,
                     Bridging::VlanId vlan, const Create & create ) {
  auto & status = statuses[ pairOf( intf, vlan ) ];
  const auto one = [ & ]( Wire::IntfId port ) {
    auto & set =
        create( port ) == HwProgrammingStatus::programmed ? status.programmed : status.unprogrammed;
    set.insert( port.vexWord() );
  };
  const auto lag = interfaces.plainLags.find( intf.vexWord() );
  if ( lag == interfaces.plainLags.end() ) {
    one( intf );
  } else {
    for ( const auto port : lag->second ) {
      one( port );
    }
  }
}

// What the plain loop keeps: the tag of each pair and its ports' status.
struct PlainDot1q {
  std::unordered_map< Word, uint16_t > tags;
  PlainStatuses statuses;
};

std::unique_ptr< PlainDot1q > programDot1qPlainly( uint16_t vlans, const Interfaces & interfaces,
                                                   CountingHelper & helper ) {
  auto plain = std::make_unique< PlainDot1q >();
  for ( uint16_t vlan = 1; vlan <= vlans; ++vlan ) {
    helper.createVlan( vlan, uint32_t( vlan ) );
    for ( const auto intf : interfaces.intfs ) {
      plain->tags[ pairOf( intf, vlan ) ] = vlan;
      programPlainly( plain->statuses, interfaces, intf, vlan, [ & ]( Wire::IntfId port ) {
        return helper.createVlanToDot1qMapping( intf, port, vlan, uint32_t( vlan ) );
      } );
    }
  }
  return plain;
}

void dot1qStartUp( benchmark::State & state ) {
  const auto vlans = static_cast< uint16_t >( state.range( 0 ) );
  const Interfaces interfaces( 64 );
  const MappingInputs inputs( vlans, interfaces );
  const auto helper = Vex::makePtr< CountingHelper >( "helper" );
  Bench::compare(
      state, double( vlans ) * double( interfaces.portCount ),
      [ & ] { return inputs.machine( helper, interfaces ); },
      [ & ] { return programDot1qPlainly( vlans, interfaces, *helper ); } );
}
BENCHMARK( dot1qStartUp )
    ->Arg( 400 )
    ->Arg( 4000 )
    ->UseManualTime()
    ->Unit( benchmark::kMillisecond );

void filterStartUp( benchmark::State & state ) {
  const auto vlans = static_cast< uint16_t >( state.range( 0 ) );
  const Interfaces interfaces( 64 );
  const auto evpnStatus = Vex::makePtr< Evpn::EvpnStatus >();
  for ( uint16_t vlan = 1; vlan <= vlans; ++vlan ) {
    const auto floodStatus = evpnStatus->evpnVlanFloodStatusIs( vlan );
    for ( const auto intf : interfaces.intfs ) {
      floodStatus->floodFilterIs( intf );
    }
  }
  const auto helper = Vex::makePtr< CountingHelper >( "helper" );
  const auto scheduler = Vex::makePtr< Loom::TaskScheduler >();
  Bench::compare(
      state, double( vlans ) * double( interfaces.portCount ),
      [ & ] {
        auto sm =
            Kez::kezEvpnFloodFilterSmFactory( helper, scheduler, interfaces.lagInfo, evpnStatus );
        sm->handleInitialized();
        return sm;
      },
      [ & ] {
        auto statuses = std::make_unique< PlainStatuses >();
        for ( uint16_t vlan = 1; vlan <= vlans; ++vlan ) {
          for ( const auto intf : interfaces.intfs ) {
            programPlainly( *statuses, interfaces, intf, vlan, [ & ]( Wire::IntfId port ) {
              return helper->createNonDfPort( intf, port, vlan );
            } );
          }
        }
        return statuses;
      } );
}
BENCHMARK( filterStartUp )->Arg( 4000 )->UseManualTime()->Unit( benchmark::kMillisecond );

// What the plain loop keeps: the indexes of the machine, and the ports' status.
struct PlainEsi {
  using Sets = std::unordered_map< Word, std::unordered_set< Word > >;
  Sets intfVlans, vlanIntfs, tunnelPairs, intfTunnelVlans;
  std::unordered_map< Word, Word > tunnels, labels;
  PlainStatuses statuses;
};

void esiStartUp( benchmark::State & state ) {
  const auto vlans = static_cast< uint16_t >( state.range( 0 ) );
  const auto interfaces = Interfaces::lags( 128 );
  const EsiInputs inputs( vlans, interfaces );
  const auto helper = Vex::makePtr< CountingHelper >( "helper" );
  Bench::compare(
      state, double( vlans ) * double( interfaces.portCount ),
      [ & ] { return inputs.machine( helper, interfaces ); },
      [ & ] {
        auto plain = std::make_unique< PlainEsi >();
        for ( const auto intf : interfaces.intfs ) {
          for ( uint16_t vlan = 1; vlan <= vlans; ++vlan ) {
            const auto tunnel = tepOf( vlan ).tunnelId();
            const auto pair = pairOf( intf, vlan );
            plain->intfVlans[ intf.vexWord() ].insert( vlan );
            plain->vlanIntfs[ vlan ].insert( intf.vexWord() );
            plain->tunnels[ pair ] = tunnel.value();
            plain->tunnelPairs[ tunnel.value() ].insert( pair );
            plain->intfTunnelVlans[ intf.vexWord() << 8 | vlan % tunnels ].insert( vlan );
            plain->labels[ pair << 4 | vlan % tunnels ] = 100;
            const auto hwId = inputs.mapping->tunnelIdToHwTunnelId( tunnel )->hwTunnelId;
            programPlainly( plain->statuses, interfaces, intf, vlan, [ & ]( Wire::IntfId port ) {
              return helper->createEsiData( intf, port, vlan, tunnel, hwId, 100, 50 );
            } );
          }
        }
        return plain;
      } );
}
BENCHMARK( esiStartUp )->Arg( 400 )->Arg( 4000 )->UseManualTime()->Unit( benchmark::kMillisecond );

// One LAG loses a port and gets it back in 4,000 VLANs, among 64 LAGs: "ratio" is to a plain loop
// over that port's entries, "among_few" to the same among 16 LAGs. Helper calls beyond those
// entries' are an error. Times are per entry.
void lagMemberChange( benchmark::State & state ) {
  constexpr uint16_t vlans = 4000;
  struct Side {
    explicit Side( uint32_t count )
        : interfaces( count ), inputs( vlans, interfaces ),
          sm( inputs.machine( helper, interfaces ) ) {}
    void change() {
      const auto lag = interfaces.intfs.at( 1 );
      const Kez::KezPortList all = interfaces.lagInfo->lagToPort( lag );
      Kez::KezPortList some = all;
      some.portDel( *all.begin() );
      for ( const auto & ports : { some, all } ) {
        interfaces.lagInfo->lagToPortIs( lag, ports );
        Bench::settle( *sm->scheduler() );
      }
    }
    Interfaces interfaces;
    MappingInputs inputs;
    Vex::Ptr< CountingHelper > helper = Vex::makePtr< CountingHelper >( "helper" );
    Vex::Ptr< Kez::EvpnFloodingDot1qSm > sm;
  };
  Side many( 128 );
  Side few( 32 );
  const auto lag = many.interfaces.intfs.at( 1 );
  const auto port = *many.interfaces.lagInfo->lagToPort( lag ).begin();
  const auto plain = programDot1qPlainly( vlans, many.interfaces, *many.helper );
  const auto changePlainly = [ & ] {
    for ( uint16_t vlan = 1; vlan <= vlans; ++vlan ) {
      plain->statuses.at( pairOf( lag, vlan ) ).programmed.erase( port.vexWord() );
      many.helper->deleteVlanToDot1qMapping( lag, port, vlan, uint32_t( vlan ) );
    }
    for ( uint16_t vlan = 1; vlan <= vlans; ++vlan ) {
      const auto pair = pairOf( lag, vlan );
      auto & status = plain->statuses.at( pair );
      const bool programmed = many.helper->createVlanToDot1qMapping(
                                  lag, port, vlan, uint32_t( plain->tags.at( pair ) ) ) ==
                              HwProgrammingStatus::programmed;
      ( programmed ? status.programmed : status.unprogrammed ).insert( port.vexWord() );
    }
  };
  const auto calls = [ & ] { return many.helper->creations + many.helper->deletions; };
  const auto before = calls();
  many.change();
  changePlainly();
  if ( calls() != before + 4 * vlans ) {
    state.SkipWithError( "other calls than those for the port" );
    return;
  }
  const auto changeAmongMany = [ & ] { many.change(); };
  const auto changeAmongFew = [ & ] { few.change(); };
  Bench::compareWith( state, 2.0 * vlans, { "ratio", "among_few" },
                      Bench::unprepared( changeAmongMany ), Bench::unprepared( changePlainly ),
                      Bench::unprepared( changeAmongFew ) );
}
BENCHMARK( lagMemberChange )->UseManualTime()->Unit( benchmark::kMillisecond );

// The longest turn of a review over 100,000 parked pairs, on the steady clock: "ratio" is to the
// scheduler's time slice.
void parkedReview( benchmark::State & state ) {
  const Interfaces interfaces( 64 );
  const MappingInputs inputs( 1563, interfaces );
  const auto helper = Vex::makePtr< CountingHelper >( "helper" );
  helper->up = false;
  Vex::Clock::virtualIs( 0 );
  const auto scheduler = Vex::makePtr< Loom::TaskScheduler >();
  const auto sm = Kez::evpnFloodingDot1qSmFactory(
      helper, scheduler, interfaces.lagInfo, inputs.evpnVlanStatus, inputs.evpnStatus, nullptr );
  sm->handleInitialized();
  while ( sm->intfVlanQueues() > 0 ) {
    Vex::Clock::advanceTo( std::max( *scheduler->nextDeadline(), Vex::Clock::now() ) );
    scheduler->runReady();
  }
  Vex::Clock::steadyIs();
  scheduler->workBudgetIs( UINT64_MAX );
  std::vector< double > turns;
  for ( auto _ : state ) {
    sm->maybeScheduleUnprogrammedReview( true );
    const double turn = Bench::seconds( [ & ] { scheduler->runReady(); } );
    state.SetIterationTime( turn );
    turns.push_back( turn );
  }
  state.counters[ "parked" ] = double( sm->unprogrammedDot1qs() );
  state.counters[ "median" ] = Bench::median( turns ) / scheduler->timeSlice();
  state.counters[ "ratio" ] = *std::ranges::max_element( turns ) / scheduler->timeSlice();
}
BENCHMARK( parkedReview )->UseManualTime()->Unit( benchmark::kMillisecond );

} // namespace
