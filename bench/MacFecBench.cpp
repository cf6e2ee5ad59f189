// The FECs of hosts, with hardware that answers at once and takes every MAC entry, against one
// fused loop that makes the same outputs and indexes in std::unordered_maps. Times are per host.
#include "Ratio.h"
#include "Resident.h"

#include "KezEvpn/KezMacAddrFecRequestSm.h"

#include <memory>
#include <unordered_map>
#include <unordered_set>

namespace {

using Bridging::MacVlanPair;
using L2Rib::Dest;
using L2Rib::ObjectId;
using Rook::Fib::FecId;
using Tunnel::TunnelTable::TunnelId;

constexpr uint32_t chains = 10'000;
constexpr uint32_t tunnels = 512;
constexpr uint64_t firstDest = 1'000'000;

MacVlanPair hostOf( uint32_t i ) {
  return { 0x020000000000 + uint64_t( i ), static_cast< uint16_t >( i % 4000 + 1 ) };
}
ObjectId chainOf( uint32_t i ) {
  return i % chains + 1;
}

// Answers every request and takes every host, within the write.
class Hardware : public Vex::Entity, public Vex::ReactorOwner {
public:
  class VexRequest : public Vex::ReactorOf< Hardware, Kez::FecIdToHwFecIdRequest > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId, const void * key ) override {
      const auto fecId = Kez::FecIdToHwFecIdRequest::fecAttr.key( key );
      if ( notifier()->fecHas( fecId ) && notifier()->hwFecIdRequestHas( fecId ) ) {
        ++sm()->requests;
        sm()->response->hwFecIdResponseIs( fecId, { fecId.value(), "Vlan1" } );
      }
    }
  };
  class VexStatus : public Vex::ReactorOf< Hardware, Kez::MacAddrFecStatus > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId, const void * key ) override {
      const auto & host = Kez::MacAddrFecStatus::hostAttr.key( key );
      ++sm()->hostWrites;
      sm()->status->programmedIs( host, notifier()->host( host ).fecId );
    }
  };

  VEX_ENTITY( Hardware, "Bench::Hardware" )
  VEX_ATTRIBUTES()

  Hardware( const Vex::Ptr< Kez::FecIdToHwFecIdRequest > & request,
            const Vex::Ptr< Kez::MacAddrFecStatus > & status ) {
    request_.notifierIs( request );
    status_.notifierIs( status );
  }

  uint64_t requests = 0;
  uint64_t hostWrites = 0;
  Vex::Ptr< Kez::FecIdToHwFecIdResponse > response = Kez::fecIdToHwFecIdResponseFactory();
  Vex::Ptr< Kez::MacAddrHwStatus > status = Kez::macAddrHwStatusFactory();

private:
  VexRequest request_{ *this };
  VexStatus status_{ *this };
};

struct Input {
  explicit Input( uint32_t hosts ) {
    for ( uint64_t tunnel = 1; tunnel <= tunnels; ++tunnel ) {
      mapping->tunnelIdToHwTunnelIdIs(
          { tunnel, { Kez::hwTunnelIdTypeDefault, static_cast< uint32_t >( tunnel ) } } );
      output->destIs( firstDest + tunnel, Dest::ofTunnel( tunnel ) );
    }
    for ( uint32_t i = 0; i < chains; ++i ) {
      output->labelIs( chainOf( i ), { 100 + i, firstDest + i % tunnels + 1 } );
    }
    for ( uint32_t i = 0; i < hosts; ++i ) {
      output->hostIs( hostOf( i ), chainOf( i ) );
    }
  }

  Vex::Ptr< L2Rib::HostOutput > output = Vex::makePtr< L2Rib::HostOutput >();
  Vex::Ptr< Kez::TunnelIdToHwTunnelIdMapping > mapping =
      Kez::tunnelIdToHwTunnelIdMappingFactory( "mapping" );
};

struct Machine {
  explicit Machine( const Input & input )
      : sm( Kez::kezMacAddrFecRequestSmFactory(
            input.output, input.mapping, Vex::makePtr< Kez::FeatureToggles >(), request,
            hardware->response, status, hardware->status, scheduler ) ) {
    sm->handleInitialized();
    settle();
  }
  void settle() {
    while ( sm->chainQueues() + sm->hostQueues() > 0 ) {
      sm->doReview();
    }
  }

  Vex::Ptr< Loom::TaskScheduler > scheduler = Vex::makePtr< Loom::TaskScheduler >();
  Vex::Ptr< Kez::FecIdToHwFecIdRequest > request = Kez::fecIdToHwFecIdRequestFactory();
  Vex::Ptr< Kez::MacAddrFecStatus > status = Kez::macAddrFecStatusFactory();
  Vex::Ptr< Hardware > hardware = Vex::makePtr< Hardware >( request, status );
  Vex::Ptr< Kez::KezMacAddrFecRequestSm > sm;
};

struct Hash {
  size_t operator()( const auto & value ) const { return Vex::foldHash( 0, value ); }
};
template< class Key, class Value > using Map = std::unordered_map< Key, Value, Hash >;
template< class Key > using Set = std::unordered_set< Key, Hash >;

struct PlainInput {
  explicit PlainInput( const Input & input ) {
    for ( const auto & [ host, first ] : input.output->host() ) {
      hosts[ host ] = first;
    }
    for ( const auto & [ id, label ] : input.output->label() ) {
      labels[ id ] = label;
    }
    for ( const auto & [ id, dest ] : input.output->dest() ) {
      dests[ id ] = dest;
    }
    for ( const auto & record : input.mapping->tunnelIdToHwTunnelId() ) {
      hwTunnelIds[ record.key ] = record.hwTunnelId;
    }
  }

  Map< MacVlanPair, ObjectId > hosts;
  Map< ObjectId, L2Rib::LabelObject > labels;
  Map< ObjectId, Dest > dests;
  Map< TunnelId, Kez::HwTunnelId > hwTunnelIds;
};

// The same outputs and indexes.
struct Fused {
  struct Chain {
    Set< MacVlanPair > hosts;
    FecId fecId;
    Set< ObjectId > objects;
    Set< TunnelId > tunnelIds;
  };

  explicit Fused( const PlainInput & input ) : input( input ) {
    for ( const auto & [ host, first ] : input.hosts ) {
      hostIs( host, first );
    }
  }
  void hostIs( const MacVlanPair & host, ObjectId first ) {
    auto & chain = chainOfFirst[ first ];
    if ( chain.fecId == FecId() ) {
      request( first, chain );
    }
    chain.hosts.insert( host );
    auto & before = hostChain[ host ];
    if ( before != ObjectId() ) {
      auto & left = chainOfFirst[ before ];
      left.hosts.erase( host );
      --fecHosts[ left.fecId ];
      --hwFecHosts[ left.fecId ];
    }
    before = first;
    const auto & response = responses[ chain.fecId ];
    status[ host ] = { chain.fecId, response.hwFecId, response.l2IntfId };
    ++fecHosts[ chain.fecId ];
    hwHost[ host ] = chain.fecId;
    ++hwFecHosts[ chain.fecId ];
  }
  void request( ObjectId first, Chain & chain ) {
    const auto fecId = chain.fecId = FecId( Rook::Fib::FecKind::macPath, fecChain.size() );
    const auto & label = input.labels.at( first );
    const auto tunnelId = input.dests.at( label.next ).tunnelId();
    fecChain[ fecId ] = first;
    chain.objects = { first, label.next };
    chain.tunnelIds = { tunnelId };
    objectChains[ first ].insert( first );
    objectChains[ label.next ].insert( first );
    tunnelChains[ tunnelId ].insert( first );
    fecs[ fecId ] = { fecId, { { tunnelId.intfId(), label.label } } };
    requests[ fecId ] = { fecId, input.hwTunnelIds.at( tunnelId ) };
    responses[ fecId ] = { fecId.value(), vlan1 };
  }

  const PlainInput & input;
  const Wire::IntfId vlan1{ "Vlan1" };
  Map< ObjectId, Chain > chainOfFirst;
  Map< ObjectId, Set< ObjectId > > objectChains;
  Map< TunnelId, Set< ObjectId > > tunnelChains;
  Map< FecId, ObjectId > fecChain;
  Map< FecId, uint64_t > fecHosts, hwFecHosts;
  Map< FecId, Rook::Fib::Fec > fecs;
  Map< FecId, Kez::HwFecIdRequest > requests;
  Map< FecId, Kez::HwFecIdResponse > responses;
  Map< MacVlanPair, ObjectId > hostChain;
  Map< MacVlanPair, Kez::MacFec > status;
  Map< MacVlanPair, FecId > hwHost;
};

// Against the flat keys and values of what is known of a host: its published FEC, its chain, the
// chain's host, and what hardware has. First of all, while no memory has been given back.
void bytesAHost( benchmark::State & state ) {
  const auto hosts = static_cast< uint32_t >( state.range( 0 ) );
  constexpr auto flat =
      4 * sizeof( MacVlanPair ) + sizeof( Kez::MacFec ) + sizeof( ObjectId ) + sizeof( FecId );
  const Input input( hosts );
  for ( auto _ : state ) {
    const double before = Bench::residentBytes();
    const Machine machine( input );
    const double bytes = ( Bench::residentBytes() - before ) / hosts;
    state.counters[ "bytes" ] = bytes;
    state.counters[ "ratio" ] = bytes / flat;
  }
}
BENCHMARK( bytesAHost )->Arg( 1'000'000 )->Iterations( 1 )->Unit( benchmark::kMillisecond );

void hostsStart( benchmark::State & state ) {
  const auto hosts = static_cast< uint32_t >( state.range( 0 ) );
  const Input input( hosts );
  const PlainInput plainInput( input );
  Bench::compare(
      state, hosts, [ & ] { return std::make_unique< Machine >( input ); },
      [ & ] { return std::make_unique< Fused >( plainInput ); } );
}
BENCHMARK( hostsStart )
    ->Arg( 10'000 )
    ->Arg( 1'000'000 )
    ->UseManualTime()
    ->Unit( benchmark::kMillisecond );

// All hosts move to the next chain.
void hostsMove( benchmark::State & state ) {
  const auto hosts = static_cast< uint32_t >( state.range( 0 ) );
  const Input input( hosts );
  const PlainInput plainInput( input );
  Machine machine( input );
  Fused fused( plainInput );
  uint32_t round = 0;
  uint32_t fusedRound = 0;
  Bench::compare(
      state, hosts,
      [ & ] {
        ++round;
        for ( uint32_t i = 0; i < hosts; ++i ) {
          input.output->hostIs( hostOf( i ), chainOf( i + round ) );
        }
        machine.settle();
      },
      [ & ] {
        ++fusedRound;
        for ( uint32_t i = 0; i < hosts; ++i ) {
          fused.hostIs( hostOf( i ), chainOf( i + fusedRound ) );
        }
      } );
}
BENCHMARK( hostsMove )->Arg( 100'000 )->UseManualTime()->Unit( benchmark::kMillisecond );

// A load-balance set under all hosts loses a member, and has it again.
void memberLost( benchmark::State & state ) {
  const auto hosts = static_cast< uint32_t >( state.range( 0 ) );
  const Input input( 0 );
  input.output->loadBalanceIs( 1, {} );
  input.output->labelDel( 1 );
  for ( uint32_t i = 0; i < hosts; ++i ) {
    input.output->hostIs( hostOf( i ), 1 );
  }
  input.output->loadBalanceIs( 1, { firstDest + 1, firstDest + 2 } );
  Machine machine( input );
  const auto requests = machine.hardware->requests;
  const auto hostWrites = machine.hardware->hostWrites;
  bool lost = false;
  for ( auto _ : state ) {
    lost = !lost;
    state.SetIterationTime( Bench::seconds( [ & ] {
      input.output->loadBalanceIs( 1, lost ? L2Rib::ObjectIds{ firstDest + 1 }
                                           : L2Rib::ObjectIds{ firstDest + 1, firstDest + 2 } );
      machine.settle();
    } ) );
  }
  const auto changes = double( state.iterations() );
  state.counters[ "requests" ] = double( machine.hardware->requests - requests ) / changes;
  state.counters[ "host_writes" ] = double( machine.hardware->hostWrites - hostWrites ) / changes;
}
BENCHMARK( memberLost )
    ->Arg( 1'000 )
    ->Arg( 100'000 )
    ->UseManualTime()
    ->Unit( benchmark::kMicrosecond );

} // namespace
