// The whole road of flood-set destinations, filter, counting, hardware tunnel ids, FECs and
// destination programming, with hardware that answers at once, against one fused loop that makes
// the same outputs and indexes in std::unordered_maps; the way back, when each destination leaves
// its flood set; and a tunnel whose hardware id becomes another one. Times are per destination.
#include "Ratio.h"
#include "Resident.h"

#include "KezEvpn/KezEvpnFloodSetFecSm.h"
#include "KezEvpn/KezEvpnHwTunnelIdSm.h"
#include "KezEvpn/KezEvpnRemoteInfoFinderSm.h"
#include "KezEvpn/KezEvpnVlanFloodSetFilterSm.h"
#include "KezEvpn/KezEvpnVlanFloodSetSm.h"

#include <memory>
#include <unordered_map>
#include <unordered_set>

namespace {

using Bridging::MacVlanPair;
using Kez::HwProgrammingStatus;
using Kez::MplsDestConfig;
using Kez::MplsFloodSetVia;
using Kez::VlanMacDest;
using L2Rib::Dest;
using Tunnel::TunnelTable::TunnelId;

constexpr uint32_t tunnels = 512;
constexpr uint32_t destsOfAVlan = 256;
constexpr uint32_t label = 100;
constexpr uint64_t mac = 0xffffffffffff;

class PlainHelper : public KezHelper::EvpnHwTunnelIdSmHelper {
public:
  using EvpnHwTunnelIdSmHelper::EvpnHwTunnelIdSmHelper;
  Kez::HwTunnelId getHwTunnelId( Kez::HwTunnelIdType type ) override { return { type, ++number_ }; }

private:
  uint32_t number_ = 0;
};

// Answers every request and takes every configuration, within the write.
class Hardware : public Vex::Entity, public Vex::ReactorOwner {
public:
  class VexRequest : public Vex::ReactorOf< Hardware, Kez::FecIdToHwFecIdRequest > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override {
      if ( id == Kez::FecIdToHwFecIdRequest::hwFecIdRequestAttr ) {
        const auto fecId = Kez::FecIdToHwFecIdRequest::fecAttr.key( key );
        if ( notifier()->hwFecIdRequestHas( fecId ) ) {
          sm()->response->hwFecIdResponseIs( fecId, { fecId.value(), "Vlan1" } );
        } else {
          sm()->response->hwFecIdResponseDel( fecId );
        }
      }
    }
  };
  class VexConfig : public Vex::MemberReactor< Hardware, Kez::VlanFloodSetConfig > {
  public:
    using MemberReactor::MemberReactor;

  private:
    void onAttribute( Vex::AttrId, const void * key ) override {
      const auto & config = Kez::VlanFloodSetConfig::mplsDestConfigAttr.key( key );
      const auto status = sm()->status->statusIs( fwkKey() );
      if ( notifier()->mplsDestConfigHas( config ) ) {
        status->mplsDestStatusIs( config, HwProgrammingStatus::programmed );
      } else {
        status->mplsDestStatusDel( config );
      }
    }
  };

  VEX_ENTITY( Hardware, "Bench::Hardware" )
  VEX_REACTORS( 1, floodSetConfig, VexConfig )
  VEX_ATTRIBUTES( floodSetConfig )

  Hardware( const Vex::Ptr< Kez::FecIdToHwFecIdRequest > & request,
            const Vex::Ptr< Kez::EvpnVlanFloodSetHwConfig > & config ) {
    request_.notifierIs( request );
    config_.notifierIs( config );
  }

  Vex::Ptr< Kez::FecIdToHwFecIdResponse > response = Kez::fecIdToHwFecIdResponseFactory();
  Vex::Ptr< Kez::EvpnVlanFloodSetHwStatus > status = Kez::evpnVlanFloodSetHwStatusFactory();

private:
  VexRequest request_{ *this };
  Vex::MirrorReactor< Kez::EvpnVlanFloodSetHwConfig::configEntities, floodSetConfigReactors >
      config_{ *this };
};

// Every machine on the same input, and the memory that each took when it started.
struct Machines {
  static constexpr const char * names[] = { "filter", "counts", "tunnelIds", "fecs", "dests" };

  explicit Machines( const Vex::Ptr< L2Rib::FloodSetOutput > & input ) {
    double before = Bench::residentBytes();
    const auto started = [ & ]( size_t machine ) {
      const double now = Bench::residentBytes();
      bytes[ machine ] = now - before;
      before = now;
    };
    filter = Kez::vlanFloodSetFilterSmFactory( L2Rib::destTypeMpls_, input, mplsOnly );
    filter->handleInitialized();
    started( 0 );
    counts = Kez::evpnRemoteInfoFinderSmFactory( mplsOnly, remoteInfo );
    started( 1 );
    tunnelIds = Kez::evpnHwTunnelIdSmFactory(
        Vex::makePtr< PlainHelper >( "helper" ), Vex::makePtr< Loom::TaskScheduler >(),
        Vex::makePtr< Kez::KezCommonSmData >(), Vex::makePtr< Evpn::EvpnStatus >(), remoteInfo,
        mapping );
    tunnelIds->handleInitialized();
    started( 2 );
    fecs = Kez::evpnFloodSetFecSmFactory( mplsOnly, mapping, hardware->status, request,
                                          hardware->response, hwInfo,
                                          Vex::makePtr< Loom::TimerWheel >() );
    fecs->handleInitialized();
    started( 3 );
    dests = Kez::evpnVlanFloodSetSmFactory( mplsOnly, mapping, hwInfo, config, hardware->status );
    dests->handleInitialized();
    started( 4 );
  }

  // Of the outputs, what is left.
  size_t standing() const {
    return mplsOnly->vlanFloodSets() + remoteInfo->remoteTunnelIds() + request->fecs() +
           request->hwFecIdRequests() + hwInfo->mappings() + config->configs();
  }

  double bytes[ 5 ];
  Vex::Ptr< L2Rib::FloodSetOutput > mplsOnly = Vex::makePtr< L2Rib::FloodSetOutput >();
  Vex::Ptr< Kez::EvpnRemoteInfo > remoteInfo = Kez::evpnRemoteInfoFactory();
  Vex::Ptr< Kez::TunnelIdToHwTunnelIdMapping > mapping =
      Kez::tunnelIdToHwTunnelIdMappingFactory( "mapping" );
  Vex::Ptr< Kez::HwInfoMapping > hwInfo = Kez::hwInfoMappingFactory();
  Vex::Ptr< Kez::EvpnVlanFloodSetHwConfig > config = Kez::evpnVlanFloodSetHwConfigFactory();
  Vex::Ptr< Kez::FecIdToHwFecIdRequest > request = Kez::fecIdToHwFecIdRequestFactory();
  Vex::Ptr< Hardware > hardware = Vex::makePtr< Hardware >( request, config );
  Vex::Ptr< Kez::VlanFloodSetFilterSm > filter;
  Vex::Ptr< Kez::EvpnRemoteInfoFinderSm > counts;
  Vex::Ptr< Kez::EvpnHwTunnelIdSm > tunnelIds;
  Vex::Ptr< Kez::EvpnFloodSetFecSm > fecs;
  Vex::Ptr< Kez::EvpnVlanFloodSetSm > dests;
};

struct Hash {
  size_t operator()( const auto & value ) const { return Vex::foldHash( 0, value ); }
};
template< class Key, class Value > using Map = std::unordered_map< Key, Value, Hash >;
template< class Key > using Set = std::unordered_set< Key, Hash >;

using PlainInput = Map< uint16_t, Map< uint64_t, Set< Dest > > >;

// The same outputs and indexes.
struct Fused {
  explicit Fused( const PlainInput & input ) {
    for ( const auto & [ vlan, floodSets ] : input ) {
      for ( const auto & [ macAddr, dests ] : floodSets ) {
        const MacVlanPair pair( macAddr, vlan );
        auto & out = mplsOnly[ vlan ][ macAddr ];
        auto & configs = config[ pair ];
        auto & statuses = status[ pair ];
        for ( const auto & dest : dests ) {
          if ( dest.destType() == L2Rib::destTypeMpls_ ) {
            out.insert( dest );
            add( { vlan, macAddr, dest }, pair, configs, statuses );
          }
        }
      }
    }
  }
  void add( const VlanMacDest & dest, const MacVlanPair & pair, Set< MplsDestConfig > & configs,
            Map< MplsDestConfig, HwProgrammingStatus > & statuses ) {
    const auto via = Kez::mplsFloodSetVia( dest );
    if ( ++counts[ via.tunnelId ] == 1 ) {
      hwTunnelIds[ via.tunnelId ] = { Kez::hwTunnelIdTypeDefault, uint32_t( counts.size() ) };
    }
    const auto hwTunnelId = hwTunnelIds[ via.tunnelId ];
    pathEntries[ via ].insert( dest );
    const auto [ fec, added ] = fecIds.try_emplace( via, 0x0B00000000000000 + fecIds.size() );
    if ( added ) {
      const auto fecId = fec->second;
      paths[ fecId ] = via;
      tunnelPaths[ via.tunnelId ].insert( via );
      fecs[ fecId ] = { fecId,
                        { { Wire::DynamicTunnelIntfId::intfId( via.tunnelId ), via.label } } };
      requests[ fecId ] = { fecId, hwTunnelId };
      responses[ fecId ] = { fecId.value(), vlan1 };
      hwInfo[ via ] = { fecId.value(), vlan1 };
    }
    tunnelDests[ via.tunnelId ].insert( dest );
    pathDests[ via ].insert( dest );
    const auto & info = hwInfo[ via ];
    const MplsDestConfig one( via.tunnelId, via.label, hwTunnelId, info.hwIdForTunnelProgramming,
                              info.l2IntfId );
    records[ dest ] = one;
    configs.insert( one );
    statuses[ one ] = HwProgrammingStatus::programmed;
    programmed.insert( { pair, one } );
    pathStatuses[ via ].insert( pair );
  }
  // Another one, for all that the tunnel's destinations made.
  void hwTunnelIdIs( TunnelId tunnelId, const Kez::HwTunnelId & hwTunnelId ) {
    hwTunnelIds[ tunnelId ] = hwTunnelId;
    for ( const auto & via : tunnelPaths[ tunnelId ] ) {
      const auto fecId = fecIds[ via ];
      requests[ fecId ] = { fecId, hwTunnelId };
      responses[ fecId ] = { fecId.value(), vlan1 };
    }
    for ( const auto & dest : tunnelDests[ tunnelId ] ) {
      const auto pair = dest.macVlanPair();
      auto & configs = config[ pair ];
      auto & statuses = status[ pair ];
      auto & one = records[ dest ];
      configs.erase( one );
      statuses.erase( one );
      programmed.erase( { pair, one } );
      one.hwTunnelId = hwTunnelId;
      configs.insert( one );
      statuses[ one ] = HwProgrammingStatus::programmed;
      programmed.insert( { pair, one } );
    }
  }
  // Of one flood set, from which it takes them too; hardware tunnel ids stay.
  void withdraw( uint16_t vlan, uint64_t macAddr, Set< Dest > & dests ) {
    const MacVlanPair pair( macAddr, vlan );
    auto & out = mplsOnly[ vlan ][ macAddr ];
    auto & configs = config[ pair ];
    auto & statuses = status[ pair ];
    while ( !dests.empty() ) {
      const auto dest = *dests.begin();
      dests.erase( dests.begin() );
      if ( out.erase( dest ) ) {
        remove( { vlan, macAddr, dest }, pair, configs, statuses );
      }
    }
    mplsOnly[ vlan ].erase( macAddr );
    if ( mplsOnly[ vlan ].empty() ) {
      mplsOnly.erase( vlan );
    }
    config.erase( pair );
    status.erase( pair );
  }
  void remove( const VlanMacDest & dest, const MacVlanPair & pair, Set< MplsDestConfig > & configs,
               Map< MplsDestConfig, HwProgrammingStatus > & statuses ) {
    const auto via = Kez::mplsFloodSetVia( dest );
    if ( --counts[ via.tunnelId ] == 0 ) {
      counts.erase( via.tunnelId );
    }
    const auto record = records.find( dest );
    const MplsDestConfig one = record->second;
    records.erase( record );
    configs.erase( one );
    statuses.erase( one );
    programmed.erase( { pair, one } );
    removeFrom( pathStatuses, via, pair );
    removeFrom( tunnelDests, via.tunnelId, dest );
    removeFrom( pathDests, via, dest );
    if ( removeFrom( pathEntries, via, dest ) ) {
      const auto fec = fecIds.find( via );
      const auto fecId = fec->second;
      fecIds.erase( fec );
      paths.erase( fecId );
      removeFrom( tunnelPaths, via.tunnelId, via );
      fecs.erase( fecId );
      requests.erase( fecId );
      responses.erase( fecId );
      hwInfo.erase( via );
    }
  }
  // Whether it was the last under `key`.
  template< class Key, class Member >
  static bool removeFrom( Map< Key, Set< Member > > & sets, const Key & key,
                          const Member & member ) {
    const auto at = sets.find( key );
    at->second.erase( member );
    const bool last = at->second.empty();
    if ( last ) {
      sets.erase( at );
    }
    return last;
  }
  size_t standing() const {
    return mplsOnly.size() + counts.size() + pathEntries.size() + fecIds.size() + paths.size() +
           tunnelPaths.size() + fecs.size() + requests.size() + responses.size() + hwInfo.size() +
           tunnelDests.size() + pathDests.size() + records.size() + config.size() + status.size() +
           programmed.size() + pathStatuses.size();
  }

  const Wire::IntfId vlan1{ "Vlan1" };
  PlainInput mplsOnly;
  Map< TunnelId, uint32_t > counts;
  Map< TunnelId, Kez::HwTunnelId > hwTunnelIds;
  Map< MplsFloodSetVia, Set< VlanMacDest > > pathEntries;
  Map< MplsFloodSetVia, Rook::Fib::FecId > fecIds;
  Map< Rook::Fib::FecId, MplsFloodSetVia > paths;
  Map< TunnelId, Set< MplsFloodSetVia > > tunnelPaths;
  Map< Rook::Fib::FecId, Rook::Fib::Fec > fecs;
  Map< Rook::Fib::FecId, Kez::HwFecIdRequest > requests;
  Map< Rook::Fib::FecId, Kez::HwFecIdResponse > responses;
  Map< MplsFloodSetVia, Kez::MplsDestHwInfo > hwInfo;
  Map< TunnelId, Set< VlanMacDest > > tunnelDests;
  Map< MplsFloodSetVia, Set< VlanMacDest > > pathDests;
  Map< VlanMacDest, MplsDestConfig > records;
  Map< MacVlanPair, Set< MplsDestConfig > > config;
  Map< MacVlanPair, Map< MplsDestConfig, HwProgrammingStatus > > status;
  Set< Kez::FloodSetMplsDestConfig > programmed;
  Map< MplsFloodSetVia, Set< MacVlanPair > > pathStatuses;
};

// Over the first so many tunnels; few of them have several labels.
struct Dests {
  template< class Add > void forEach( Add && add ) const {
    for ( uint32_t i = 0; i < count; ++i ) {
      const auto vlan = static_cast< uint16_t >( i / destsOfAVlan + 1 );
      const uint64_t tunnel = ( i + vlan * 37u ) % overTunnels + 1;
      add( vlan, Dest::ofMpls( { {}, label + i % destsOfAVlan / overTunnels, tunnel } ) );
    }
  }
  Vex::Ptr< L2Rib::FloodSetOutput > input() const {
    const auto input = Vex::makePtr< L2Rib::FloodSetOutput >();
    forEach( [ & ]( uint16_t vlan, const Dest & dest ) {
      input->vlanFloodSetIs( vlan )->floodSetIs( mac )->destSetIs( dest );
    } );
    return input;
  }
  PlainInput plainInput() const {
    PlainInput input;
    forEach( [ & ]( uint16_t vlan, const Dest & dest ) { input[ vlan ][ mac ].insert( dest ); } );
    return input;
  }

  uint32_t count;
  uint32_t overTunnels = tunnels;
};

// Per destination and machine, and of them all. First of all, while no memory has been given back.
void bytesADest( benchmark::State & state ) {
  const auto count = static_cast< uint32_t >( state.range( 0 ) );
  const auto input = Dests{ count }.input();
  for ( auto _ : state ) {
    const Machines machines( input );
    double all = 0;
    for ( size_t i = 0; i < std::size( Machines::names ); ++i ) {
      state.counters[ Machines::names[ i ] ] = machines.bytes[ i ] / count;
      all += machines.bytes[ i ];
    }
    state.counters[ "bytes" ] = all / count;
  }
}
BENCHMARK( bytesADest )->Arg( 1'024'000 )->Iterations( 1 )->Unit( benchmark::kMillisecond );

void destsToHardware( benchmark::State & state ) {
  const auto count = static_cast< uint32_t >( state.range( 0 ) );
  const auto input = Dests{ count }.input();
  const auto plainInput = Dests{ count }.plainInput();
  Bench::compare(
      state, count, [ & ] { return std::make_unique< Machines >( input ); },
      [ & ] { return std::make_unique< Fused >( plainInput ); } );
}
BENCHMARK( destsToHardware )
    ->Arg( 10'240 )
    ->Arg( 102'400 )
    ->Arg( 1'024'000 )
    ->UseManualTime()
    ->Unit( benchmark::kMillisecond );

// Every destination leaves its flood set, and an empty flood set its VLAN.
void destsFromHardware( benchmark::State & state ) {
  const auto count = static_cast< uint32_t >( state.range( 0 ) );
  const Dests dests{ count };
  const auto plainInput = dests.plainInput();
  const auto allGone = [ & ]( const auto & tables ) {
    if ( tables.standing() != 0 ) {
      state.SkipWithError( "destinations are left" );
    }
  };
  Bench::compareWith(
      state, count, { "ratio" },
      [ & ] {
        const auto input = dests.input();
        return [ &, input, machines = std::make_shared< Machines >( input ) ] {
          for ( const auto & [ vlan, vlanFloodSet ] : input->vlanFloodSet() ) {
            const auto floodSet = vlanFloodSet->floodSet( mac );
            for ( const auto & dest : floodSet->destSet() ) {
              floodSet->destSetDel( dest );
            }
            input->vlanFloodSetDel( vlan );
          }
          allGone( *machines );
        };
      },
      [ & ] {
        return
            [ &, input = plainInput, fused = std::make_shared< Fused >( plainInput ) ]() mutable {
              while ( !input.empty() ) {
                auto & [ vlan, floodSets ] = *input.begin();
                fused->withdraw( vlan, mac, floodSets[ mac ] );
                input.erase( input.begin() );
              }
              allGone( *fused );
            };
      } );
}
BENCHMARK( destsFromHardware )
    ->Arg( 10'240 )
    ->Arg( 102'400 )
    ->Arg( 1'024'000 )
    ->UseManualTime()
    ->Unit( benchmark::kMillisecond );

// One tunnel's new hardware id, against the fused loop over that tunnel's entries alone.
void newHwTunnelId( benchmark::State & state ) {
  const Dests dests{ static_cast< uint32_t >( state.range( 0 ) ),
                     static_cast< uint32_t >( state.range( 1 ) ) };
  Machines machines( dests.input() );
  Fused fused( dests.plainInput() );
  const TunnelId tunnelId = 1;
  const auto idOf = []( uint32_t number ) {
    return Kez::HwTunnelId( Kez::hwTunnelIdTypeDefault, number );
  };
  uint32_t number = 0;
  const auto subject = [ & ] {
    machines.mapping->tunnelIdToHwTunnelIdIs( { tunnelId, idOf( ++number ) } );
  };
  uint32_t plainNumber = 0;
  const auto floor = [ & ] { fused.hwTunnelIdIs( tunnelId, idOf( ++plainNumber ) ); };
  const auto ofTunnel = double( fused.tunnelDests[ tunnelId ].size() );
  Bench::compare( state, ofTunnel, subject, floor );
  size_t moved = 0;
  for ( const auto & [ pair, config ] : machines.config->config() ) {
    for ( const auto & one : config->mplsDestConfig() ) {
      moved += one.tunnelId == tunnelId && one.hwTunnelId == idOf( number );
    }
  }
  if ( double( moved ) != ofTunnel ) {
    state.SkipWithError( "destinations have not moved" );
  }
  state.counters[ "dests" ] = ofTunnel;
}
// Destinations, and tunnels that they go over.
BENCHMARK( newHwTunnelId )
    ->Args( { 102'400, 512 } )
    ->Args( { 1'024'000, 512 } )
    ->Args( { 102'400, 1 } )
    ->UseManualTime()
    ->Unit( benchmark::kMicrosecond );

} // namespace
