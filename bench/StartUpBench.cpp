// The start-up walks of the LAG and VLAN membership machines, each against a plain loop over
// std::unordered_maps that fills the same outputs. Times are per pair.
#include "Ratio.h"

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
  constexpr uint32_t members = 4;
  const auto dir = Vex::makePtr< Kez::LagCreatorConfigDir >();
  Dict< Dict< int > > plainDir;
  for ( uint32_t lag = 1; lag <= lags; ++lag ) {
    const auto lagIntfId = Wire::PortChannelIntfId::intfId( lag );
    const auto config = dir->lagConfigIs( lagIntfId );
    for ( uint32_t member = 0; member < members; ++member ) {
      const Wire::IntfId port( "Ethernet" + std::to_string( lag ) + "/" +
                               std::to_string( member + 1 ) );
      config->memberIs( port, Hardware::Lag::PortProgType() );
      plainDir[ lagIntfId.vexWord() ][ port.vexWord() ] = 0;
    }
  }
  struct Result {
    Vex::Ptr< Kez::EvpnLagMemberInfo > info;
    Vex::Ptr< Kez::EvpnLagSm > sm;
  };
  Bench::compare(
      state, double( lags ) * members,
      [ & ] {
        Result result{ Kez::evpnLagMemberInfoFactory(), nullptr };
        result.sm = Kez::evpnLagSmFactory( nullptr, dir, result.info );
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
  constexpr uint32_t intfs = 200;
  const auto config = Vex::makePtr< Bridging::Config >();
  const auto statusDir = Vex::makePtr< Bridging::VlanStatusDir >();
  const auto evpnStatus = Vex::makePtr< Evpn::EvpnStatus >();
  Dict< Dict< int > > plainConfig;
  Dict< Dict< int > > plainStatus;
  Keys plainFilter;
  std::vector< Wire::IntfId > ports;
  for ( uint32_t intf = 1; intf <= intfs; ++intf ) {
    ports.emplace_back( "Ethernet" + std::to_string( intf ) );
    if ( intf % 4 == 0 ) {
      evpnStatus->encapBumFilterIs( ports.back() );
      plainFilter.insert( ports.back().vexWord() );
    }
  }
  for ( uint16_t vlan = 1; vlan <= vlans; ++vlan ) {
    const auto vlanConfig = config->vlanConfigIs( vlan );
    const auto vlanStatus = statusDir->vlanStatusIs( vlan );
    for ( const auto port : ports ) {
      vlanConfig->intfIs( port, Bridging::VlanPortConfig() );
      vlanStatus->vlanPortStatusIs( port, Bridging::VlanPortStatus() );
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
      state, double( vlans ) * intfs,
      [ & ] {
        Result result{ Kez::evpnVlanStatusFactory(), nullptr };
        result.sm =
            Kez::kezEvpnVlanMembershipSmFactory( config, statusDir, evpnStatus, result.status );
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
