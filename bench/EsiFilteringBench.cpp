// A backlog of routes with filter vias, each on an interface of its own, against a plain loop over
// std::unordered_maps that makes the same helper calls. Routes, via sets and vias are numbered and
// told of in order, or all in orders of their own. `ratio` is to a loop whose tables of routes are
// dictionaries too, `shared_ratio` to one that reads the tables that the machine reads. Times are
// per route.
#include "Ratio.h"

#include "KezEvpn/KezEvpnEsiFilteringDecapSm.h"
#include "KezHelper/EsiFilteringDecapHelperStub.h"

#include <algorithm>
#include <climits>
#include <memory>
#include <numeric>
#include <optional>
#include <random>
#include <unordered_map>
#include <unordered_set>

#include <malloc.h>

namespace {

// What a round frees stays with the process: else it is chance which rounds meet fresh pages.
[[maybe_unused]] const bool memoryStays =
    mallopt( M_MMAP_THRESHOLD, 32 << 20 ) && mallopt( M_TRIM_THRESHOLD, INT_MAX );

using Rc = Mpls::LfibHwProgrammingReturnCode;
template< class Value > using Dict = std::unordered_map< uint64_t, Value >;

Wire::IntfId intfOf( uint32_t number ) {
  return "Ethernet" + std::to_string( number / 64 + 1 ) + "/" + std::to_string( number % 64 + 1 );
}

struct Via {
  uint64_t intf;
  uint32_t label;
  Wire::IntfId intfId;
};

// The routes' tables as plain dictionaries.
struct PlainLfib {
  std::optional< Via > viaOf( uint64_t route ) const {
    const auto at = routes.find( route );
    if ( at == routes.end() ) {
      return std::nullopt;
    }
    const auto viaSet = viaSets.find( at->second );
    if ( viaSet == viaSets.end() || viaSet->second.empty() ) {
      return std::nullopt;
    }
    const auto via = vias.find( viaSet->second.front() );
    return via == vias.end() ? std::nullopt : std::optional( via->second );
  }

  Dict< uint32_t > routes;
  Dict< std::vector< uint64_t > > viaSets;
  Dict< Via > vias;
};

// The tables that the machine reads.
struct SharedLfib {
  std::optional< Via > viaOf( uint64_t number ) const {
    const auto route = lfib.route( Mpls::RouteKey( static_cast< uint32_t >( number ) ) );
    const auto viaSet = route ? lfib.viaSet( route->viaSetId ) : std::nullopt;
    if ( !viaSet || viaSet->viaKeys.size() == 0 ) {
      return std::nullopt;
    }
    const auto via = lfib.evpnEthernetSegmentFilterVia( *viaSet->viaKeys.begin() );
    return via ? std::optional( Via{ via->intfId.vexWord(), via->label.value(), via->intfId } )
               : std::nullopt;
  }

  const Mpls::LfibStatus & lfib;
};

struct Plain {
  std::unordered_set< uint64_t > backlog;
  Dict< Via > routeVia;
  Dict< uint64_t > intfRoute;
  Dict< Rc > unprogrammed;

  template< class Lfib >
  void run( const Lfib & lfib, KezHelper::EsiFilteringDecapHelper & helper ) {
    while ( !backlog.empty() ) {
      const uint64_t route = *backlog.begin();
      remove( helper, route );
      if ( const auto via = lfib.viaOf( route ) ) {
        create( helper, route, *via );
      }
      backlog.erase( route );
    }
  }
  void create( KezHelper::EsiFilteringDecapHelper & helper, uint64_t route, const Via & via ) {
    if ( intfRoute.contains( via.intf ) ) {
      unprogrammed[ route ] = Rc::conflict;
      return;
    }
    const auto rc = helper.createEsiPortMap( via.label, via.intfId );
    if ( rc == Rc::success ) {
      routeVia[ route ] = via;
      intfRoute[ via.intf ] = route;
      unprogrammed.erase( route );
    } else {
      unprogrammed[ route ] = rc;
    }
  }
  void remove( KezHelper::EsiFilteringDecapHelper & helper, uint64_t route ) {
    const auto via = routeVia.find( route );
    if ( via == routeVia.end() ) {
      unprogrammed.erase( route );
      return;
    }
    helper.deleteEsiPortMap( via->second.label, via->second.intfId );
    intfRoute.erase( via->second.intf );
    routeVia.erase( via );
  }
};

std::vector< uint32_t > numbers( uint32_t count, bool inOrder, uint32_t seed ) {
  std::vector< uint32_t > all( count );
  std::iota( all.begin(), all.end(), 0u );
  if ( !inOrder ) {
    std::shuffle( all.begin(), all.end(), std::mt19937( seed ) );
  }
  return all;
}

// `again`: every route stands already and is programmed over.
void backlog( benchmark::State & state, bool inOrder, bool again ) {
  const auto routes = static_cast< uint32_t >( state.range( 0 ) );
  const auto viaSetIds = numbers( routes, inOrder, 1 );
  const auto viaNumbers = numbers( routes, inOrder, 2 );
  const auto intfNumbers = numbers( routes, inOrder, 3 );
  const auto told = numbers( routes, inOrder, 4 );
  const auto lfib = Vex::makePtr< Mpls::LfibStatus >( "lfibStatus" );
  PlainLfib plainLfib;
  for ( uint32_t number = 0; number < routes; ++number ) {
    const Mpls::LfibViaKey viaKey( Mpls::LfibViaType::evpnEthernetSegmentFilter,
                                   viaNumbers[ number ] );
    const uint32_t viaSetId = viaSetIds[ number ];
    const auto intfId = intfOf( intfNumbers[ number ] );
    lfib->routeIs( { Mpls::RouteKey( number ), viaSetId } );
    lfib->viaSetIs( { viaSetId, { viaKey } } );
    lfib->evpnEthernetSegmentFilterViaIs( { viaKey, number, intfId } );
    plainLfib.routes[ number ] = viaSetId;
    plainLfib.viaSets[ viaSetId ] = { viaKey.vexWord() };
    plainLfib.vias[ viaKey.vexWord() ] = { intfId.vexWord(), number, intfId };
  }
  const auto helper = KezHelper::esiFilteringDecapHelperStubFactory( "stub" );

  struct Machine {
    Vex::Ptr< Loom::TaskScheduler > scheduler = Vex::makePtr< Loom::TaskScheduler >();
    Vex::Ptr< Mpls::LfibTrackingStatus > tracking = Vex::makePtr< Mpls::LfibTrackingStatus >();
    Vex::Ptr< Mpls::LfibHwStatus > hwStatus = Vex::makePtr< Mpls::LfibHwStatus >( "hwStatus" );
    Vex::Ptr< Kez::EsiFilteringDecapSm > sm;
  };
  double longest = 0;
  const auto fill = [ & ]( const Machine & machine ) {
    for ( const uint32_t number : told ) {
      machine.tracking->routeKeyBacklogIs( Mpls::RouteKey( number ) );
    }
  };
  const auto drain = [ & ]( const Machine & machine ) {
    while ( machine.tracking->routeKeyBacklogs() > 0 ) {
      longest = std::max( longest, Bench::seconds( [ & ] { machine.scheduler->runReady(); } ) );
    }
  };
  const auto fillPlain = [ & ]( Plain & plain ) {
    for ( const uint32_t number : told ) {
      plain.backlog.insert( number );
    }
  };
  const auto plainLoop = [ & ]( const auto & tables ) {
    return [ & ] {
      auto plain = std::make_unique< Plain >();
      fillPlain( *plain );
      if ( again ) {
        plain->run( tables, *helper );
        fillPlain( *plain );
      }
      return [ &tables, &helper, plain = std::move( plain ) ] { plain->run( tables, *helper ); };
    };
  };
  const SharedLfib sharedLfib{ *lfib };
  Bench::compareWith(
      state, routes, { "ratio", "shared_ratio" },
      [ & ] {
        auto machine = std::make_unique< Machine >();
        machine->sm = Kez::esiFilteringDecapSmFactory( helper, lfib, machine->scheduler,
                                                       machine->tracking, machine->hwStatus );
        for ( const uint32_t number : told ) { // which its start has put there in another order
          machine->tracking->routeKeyBacklogDel( Mpls::RouteKey( number ) );
        }
        fill( *machine );
        if ( again ) {
          drain( *machine );
          fill( *machine );
        }
        return [ &drain, machine = std::move( machine ) ] { drain( *machine ); };
      },
      plainLoop( plainLfib ), plainLoop( sharedLfib ) );
  state.counters[ "longest_run_s" ] = longest;
}

void sizes( benchmark::internal::Benchmark * bench ) {
  bench->Arg( 1000 )->Arg( 10000 )->Arg( 100000 )->UseManualTime()->Unit( benchmark::kMillisecond );
}
BENCHMARK_CAPTURE( backlog, first, false, false )->Apply( sizes );
BENCHMARK_CAPTURE( backlog, firstInOrder, true, false )->Apply( sizes );
BENCHMARK_CAPTURE( backlog, again, false, true )->Apply( sizes );
BENCHMARK_CAPTURE( backlog, againInOrder, true, true )->Apply( sizes );

} // namespace
