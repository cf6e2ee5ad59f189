// The start-up walks of the LAG and VLAN membership machines, each against a plain loop over
// std::unordered_maps that fills the same outputs. Times are per pair.
#include "Ratio.h"
#include "StartUpInputs.h"

#include "KezEvpn/KezEvpnLagSm.h"
#include "KezEvpn/KezEvpnVlanMembershipSm.h"

#include <memory>
#include <unordered_map>
#include <unordered_set>

namespace {

using Word = uint64_t;
template< class Value > using Dict = std::unordered_map< Word, Value >;
using Keys = std::unordered_set< Word >;

void lagStartUp( benchmark::State & state ) {
  const auto lags = static_cast< uint32_t >( state.range( 0 ) );
  const Bench::LagInputs inputs( lags );
  Dict< Dict< int > > plainDir;
  for ( const auto & [ lagIntfId, config ] : inputs.dir->lagConfig() ) {
    for ( const auto & [ port, type ] : config->member() ) {
      plainDir[ lagIntfId.vexWord() ][ port.vexWord() ] = 0;
    }
  }
  struct Result {
    Vex::Ptr< Kez::EvpnLagMemberInfo > info;
    Vex::Ptr< Kez::EvpnLagSm > sm;
  };
  Bench::compare(
      state, double( lags ) * inputs.members,
      [ & ] {
        Result result{ Kez::evpnLagMemberInfoFactory(), nullptr };
        result.sm = Kez::evpnLagSmFactory( nullptr, inputs.dir, result.info );
        return result;
      },
      [ & ] {
        auto out = std::make_unique< Dict< std::vector< Word > > >();
        for ( const auto & [ lag, ports ] : plainDir ) {
          std::vector< Word > list;
          for ( const auto & [ port, type ] : ports ) {
            list.insert( std::lower_bound( list.begin(), list.end(), port ), port );
          }
          if ( !list.empty() ) {
            out->emplace( lag, std::move( list ) );
          }
        }
        return out;
      } );
}
BENCHMARK( lagStartUp )
    ->Arg( 10000 )
    ->Arg( 100000 )
    ->UseManualTime()
    ->Unit( benchmark::kMillisecond );

void membershipStartUp( benchmark::State & state ) {
  const auto vlans = static_cast< uint16_t >( state.range( 0 ) );
  const Bench::MembershipInputs inputs( vlans );
  Dict< Dict< int > > plainConfig;
  Dict< Dict< int > > plainStatus;
  Keys plainFilter;
  for ( const auto port : inputs.evpnStatus->encapBumFilter() ) {
    plainFilter.insert( port.vexWord() );
  }
  for ( uint16_t vlan = 1; vlan <= vlans; ++vlan ) {
    for ( const auto port : inputs.ports ) {
      plainConfig[ vlan ][ port.vexWord() ] = 0;
      plainStatus[ vlan ][ port.vexWord() ] = 0;
    }
  }
  struct Result {
    Vex::Ptr< Kez::EvpnVlanStatus > status;
    Vex::Ptr< Kez::KezEvpnVlanMembershipSm > sm;
  };
  struct PlainResult {
    Dict< Keys > members;
    Dict< Keys > configured;
  };
  Bench::compare(
      state, double( vlans ) * inputs.intfs,
      [ & ] {
        Result result{ Kez::evpnVlanStatusFactory(), nullptr };
        result.sm = Kez::kezEvpnVlanMembershipSmFactory( inputs.config, inputs.statusDir,
                                                         inputs.evpnStatus, result.status );
        return result;
      },
      [ & ] {
        auto out = std::make_unique< PlainResult >();
        for ( const auto & [ vlan, ports ] : plainConfig ) {
          const auto status = plainStatus.find( vlan );
          for ( const auto & [ intf, value ] : ports ) {
            if ( plainFilter.contains( intf ) ||
                 ( status != plainStatus.end() && status->second.contains( intf ) ) ) {
              out->members[ vlan ].insert( intf );
            }
            out->configured[ intf ].insert( vlan );
          }
        }
        for ( const auto & [ vlan, ports ] : plainStatus ) {
          for ( const auto & [ intf, value ] : ports ) {
            if ( !plainFilter.contains( intf ) ) {
              out->members[ vlan ].insert( intf );
            }
          }
        }
        return out;
      } );
}
BENCHMARK( membershipStartUp )
    ->Arg( 400 )
    ->Arg( 4000 )
    ->UseManualTime()
    ->Unit( benchmark::kMillisecond );

} // namespace
