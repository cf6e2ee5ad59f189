// What machines and their outputs keep in memory, per item: "bytes", beside "flat", the keys and
// values of their tables without anything else, and "ratio", the one to the other.
#include "FloodingInputs.h"
#include "Resident.h"
#include "StartUpInputs.h"

#include "KezEvpn/KezEvpnEsiFilteringDecapSm.h"
#include "KezEvpn/KezEvpnLagSm.h"
#include "KezEvpn/KezEvpnVlanMembershipSm.h"
#include "KezHelper/EsiFilteringDecapHelperStub.h"
#include "Vex/Descriptor.h"

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Bridging::VlanId;
using Kez::IntfVlanKey;
using Mpls::RouteKey;
using Tunnel::TunnelTable::TunnelId;
using Wire::IntfId;

// The keys and values of a table's entry.
template< class... Each > constexpr double flat = double( ( sizeof( Each ) + ... ) );

struct Made {
  std::vector< Vex::Ptr< Vex::Entity > > entities;
  size_t items;
};

// `prepare` returns what makes all, of which the memory counts. In a process that ends with it, so
// that none of the memory has been given back before.
template< class Prepare >
void measure( benchmark::State & state, double items, double flatBytes, const Prepare & prepare ) {
  for ( auto _ : state ) {
    int ends[ 2 ];
    if ( pipe( ends ) != 0 ) {
      Vex::throwSystemError( "a pipe" );
    }
    const Vex::Descriptor out( ends[ 0 ] );
    const pid_t process = fork();
    if ( process == 0 ) {
      const auto make = prepare();
      malloc_trim( 0 );
      const double before = Bench::residentBytes();
      const Made made = make();
      const double measured[] = { Bench::residentBytes() - before, double( made.items ) };
      const bool told = write( ends[ 1 ], measured, sizeof( measured ) ) == sizeof( measured );
      _exit( told ? 0 : 1 );
    }
    const Vex::Descriptor in( ends[ 1 ] );
    int status = -1;
    double measured[ 2 ] = {};
    if ( process < 0 || waitpid( process, &status, 0 ) != process || status != 0 ||
         read( out.number(), measured, sizeof( measured ) ) != sizeof( measured ) ||
         measured[ 1 ] != items ) {
      state.SkipWithError( "other items than expected" );
      return;
    }
    state.counters[ "bytes" ] = measured[ 0 ] / items;
    state.counters[ "flat" ] = flatBytes / items;
    state.counters[ "ratio" ] = measured[ 0 ] / flatBytes;
  }
}

void bytesADot1qMapping( benchmark::State & state ) {
  const auto vlans = static_cast< uint16_t >( state.range( 0 ) );
  const Bench::Interfaces interfaces( 64 );
  const double pairs = double( vlans ) * double( interfaces.intfs.size() );
  const double mappings = double( vlans ) * double( interfaces.portCount );
  constexpr double ofPair = flat< VlanId, IntfId > +                      // the index
                            flat< IntfVlanKey, Bridging::VlanIdOrNone > + // intfVlanDot1q
                            flat< IntfVlanKey >;                          // dot1qStatus
  measure( state, mappings, pairs * ofPair + mappings * flat< IntfId >, [ & ] {
    return [ &, inputs = Bench::MappingInputs( vlans, interfaces ) ] {
      const auto helper = Vex::makePtr< Bench::CountingHelper >( "helper" );
      const auto sm = inputs.machine( helper, interfaces );
      return Made{ { sm }, helper->creations };
    };
  } );
}
BENCHMARK( bytesADot1qMapping )->Arg( 4000 )->Iterations( 1 );

void bytesAnEsiPort( benchmark::State & state ) {
  const auto vlans = static_cast< uint16_t >( state.range( 0 ) );
  const auto interfaces = Bench::Interfaces::lags( 128 );
  const double pairs = double( vlans ) * double( interfaces.intfs.size() );
  const double ports = double( vlans ) * double( interfaces.portCount );
  constexpr double ofPair = flat< VlanId, IntfId > +                          // the index
                            flat< IntfVlanKey, TunnelId > +                   // intfVlanTunnel
                            flat< IntfVlanKey > +                             // tunnelIntfVlanSet
                            flat< VlanId > +                                  // intfTunnelVlanSet
                            flat< Kez::IntfVlanTunnelKey, Wire::MplsLabel > + // its label
                            flat< IntfVlanKey >;                              // esiStatus
  constexpr double ofPort = flat< IntfId > + flat< IntfId, Kez::EsiIds >;
  measure( state, ports, pairs * ofPair + ports * ofPort, [ & ] {
    return [ &, inputs = Bench::EsiInputs( vlans, interfaces ) ] {
      const auto helper = Vex::makePtr< Bench::CountingHelper >( "helper" );
      const auto sm = inputs.machine( helper, interfaces );
      return Made{ { sm }, helper->creations };
    };
  } );
}
BENCHMARK( bytesAnEsiPort )->Arg( 4000 )->Iterations( 1 );

void bytesAPortMap( benchmark::State & state ) {
  const auto routes = static_cast< uint32_t >( state.range( 0 ) );
  using Via = Mpls::LfibEvpnEthernetSegmentFilterVia;
  constexpr double ofRoute = flat< RouteKey, Via > + flat< IntfId, RouteKey >;
  measure( state, routes, routes * ofRoute, [ & ] {
    Vex::Clock::virtualIs( 0 );
    const auto lfib = Vex::makePtr< Mpls::LfibStatus >( "lfibStatus" );
    for ( uint32_t number = 0; number < routes; ++number ) {
      const Mpls::LfibViaKey viaKey( Mpls::LfibViaType::evpnEthernetSegmentFilter, number );
      lfib->routeIs( { RouteKey( number ), number } );
      lfib->viaSetIs( { number, { viaKey } } );
      lfib->evpnEthernetSegmentFilterViaIs(
          { viaKey, number, IntfId( "Ethernet" + std::to_string( number + 1 ) ) } );
    }
    return [ lfib ] {
      const auto helper = KezHelper::esiFilteringDecapHelperStubFactory( "stub" );
      const auto scheduler = Vex::makePtr< Loom::TaskScheduler >();
      const auto hwStatus = Vex::makePtr< Mpls::LfibHwStatus >( "hwStatus" );
      const auto sm = Kez::esiFilteringDecapSmFactory(
          helper, lfib, scheduler, Vex::makePtr< Mpls::LfibTrackingStatus >(), hwStatus );
      Bench::settle( *scheduler );
      return Made{ { sm }, helper->createEsiPortMapCount() };
    };
  } );
}
BENCHMARK( bytesAPortMap )->Arg( 100'000 )->Iterations( 1 );

void bytesALagMember( benchmark::State & state ) {
  const auto lags = static_cast< uint32_t >( state.range( 0 ) );
  constexpr auto members = Bench::LagInputs::members;
  measure( state, double( lags ) * members, lags * flat< IntfId, Kez::KezPortList >, [ & ] {
    return [ inputs = Bench::LagInputs( lags ) ] {
      const auto info = Kez::evpnLagMemberInfoFactory();
      const auto sm = Kez::evpnLagSmFactory( nullptr, inputs.dir, info );
      size_t items = 0;
      for ( const auto & [ lag, ports ] : info->lagToPort() ) {
        items += ports.ports();
      }
      return Made{ { sm }, items };
    };
  } );
}
BENCHMARK( bytesALagMember )->Arg( 100'000 )->Iterations( 1 );

void bytesAMembership( benchmark::State & state ) {
  const auto vlans = static_cast< uint16_t >( state.range( 0 ) );
  const double memberships = double( vlans ) * Bench::MembershipInputs::intfs;
  constexpr double ofOne = flat< IntfId > + // the published member
                           flat< VlanId >;  // intfVlanConfigSet
  measure( state, memberships, memberships * ofOne, [ & ] {
    return [ inputs = Bench::MembershipInputs( vlans ) ] {
      const auto status = Kez::evpnVlanStatusFactory();
      const auto sm = Kez::kezEvpnVlanMembershipSmFactory( inputs.config, inputs.statusDir,
                                                           inputs.evpnStatus, status );
      size_t items = 0;
      for ( const auto & [ vlanId, info ] : status->vlanStatus() ) {
        items += info->members();
      }
      return Made{ { sm }, items };
    };
  } );
}
BENCHMARK( bytesAMembership )->Arg( 4000 )->Iterations( 1 );

} // namespace
