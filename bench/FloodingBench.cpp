// The flooding machines, which program every port of an interface and VLAN, each against a plain
// loop that makes the same helper calls and keeps the same per-port status in std::unordered_maps.
// Times are per port.
#include "Ratio.h"
#include "Settle.h"

#include "KezEvpn/KezEvpnFloodFilterSm.h"
#include "KezEvpn/KezEvpnFloodingDot1qSm.h"
#include "KezEvpn/KezEvpnFloodingEsiSm.h"

#include <malloc.h>

#include <algorithm>
#include <memory>
#include <unordered_map>
#include <unordered_set>

namespace {

using Kez::HwProgrammingStatus;
using Word = uint64_t;

// Takes everything while it is up, and counts.
class CountingHelper : public KezHelper::EvpnFloodingSmHelper {
public:
  using EvpnFloodingSmHelper::EvpnFloodingSmHelper;

  HwProgrammingStatus answer() {
    ++creations;
    return up ? HwProgrammingStatus::programmed : HwProgrammingStatus::notProgrammed;
  }
  HwProgrammingStatus createVlan( Bridging::VlanId, Bridging::VlanIdOrNone ) override {
    return HwProgrammingStatus::programmed;
  }
  HwProgrammingStatus createNonDfPort( Wire::IntfId, Wire::IntfId, Bridging::VlanId ) override {
    return answer();
  }
  void deleteNonDfPort( Wire::IntfId, Wire::IntfId, Bridging::VlanId ) override { ++deletions; }
  HwProgrammingStatus createVlanToDot1qMapping( Wire::IntfId, Wire::IntfId, Bridging::VlanId,
                                                Bridging::VlanIdOrNone ) override {
    return answer();
  }
  void deleteVlanToDot1qMapping( Wire::IntfId, Wire::IntfId, Bridging::VlanId,
                                 Bridging::VlanIdOrNone ) override {
    ++deletions;
  }
  HwProgrammingStatus createEsiData( Wire::IntfId, Wire::IntfId, Bridging::VlanId,
                                     const Tunnel::TunnelTable::TunnelId &, const Kez::HwTunnelId &,
                                     Wire::MplsLabel, Wire::MplsLabel ) override {
    return answer();
  }
  void deleteEsiData( Wire::IntfId, Wire::IntfId, Bridging::VlanId,
                      const Tunnel::TunnelTable::TunnelId &, const Kez::HwTunnelId & ) override {
    ++deletions;
  }

  bool up = true;
  uint64_t creations = 0;
  uint64_t deletions = 0;
};

// Interfaces of which every second one is a LAG of four ports.
struct Interfaces {
  explicit Interfaces( uint32_t count ) {
    for ( uint32_t i = 1; i <= count; ++i ) {
      if ( i % 2 ) {
        add( "Ethernet" + std::to_string( i ), {} );
      } else {
        std::vector< Wire::IntfId > ports;
        for ( const auto lane : { "/1", "/2", "/3", "/4" } ) {
          ports.emplace_back( "Ethernet" + std::to_string( i ) + lane );
        }
        add( "Port-Channel" + std::to_string( i ), ports );
      }
    }
  }
  void add( const std::string & name, const std::vector< Wire::IntfId > & ports ) {
    const Wire::IntfId intf( name );
    intfs.push_back( intf );
    Kez::KezPortList list;
    for ( const auto port : ports ) {
      list.portIs( port, true );
      plainLags[ intf.vexWord() ].push_back( port );
    }
    if ( !ports.empty() ) {
      lagInfo->lagToPortIs( intf, list );
    }
    portCount += std::max< size_t >( ports.size(), 1 );
  }

  std::vector< Wire::IntfId > intfs;
  std::unordered_map< Word, std::vector< Wire::IntfId > > plainLags;
  Vex::Ptr< Kez::EvpnLagMemberInfo > lagInfo = Kez::evpnLagMemberInfoFactory();
  size_t portCount = 0; // of one VLAN
};

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

struct Dot1qInputs {
  Dot1qInputs( uint16_t vlans, const Interfaces & interfaces ) {
    for ( uint16_t vlan = 1; vlan <= vlans; ++vlan ) {
      evpnStatus->vlanToDot1qIs( vlan, vlan );
      const auto info = evpnVlanStatus->vlanStatusIs( vlan );
      for ( const auto intf : interfaces.intfs ) {
        info->memberIs( intf );
      }
    }
  }
  auto machine( const Vex::Ptr< KezHelper::EvpnFloodingSmHelper > & helper,
                const Interfaces & interfaces ) const {
    Vex::Clock::virtualIs( 0 );
    const auto scheduler = Vex::makePtr< Loom::TaskScheduler >();
    auto sm = Kez::evpnFloodingDot1qSmFactory( helper, scheduler, interfaces.lagInfo,
                                               evpnVlanStatus, evpnStatus, nullptr );
    sm->handleInitialized();
    Bench::settle( *scheduler );
    return sm;
  }

  Vex::Ptr< Evpn::EvpnStatus > evpnStatus = Vex::makePtr< Evpn::EvpnStatus >();
  Vex::Ptr< Kez::EvpnVlanStatus > evpnVlanStatus = Kez::evpnVlanStatusFactory();
};

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
  const Dot1qInputs inputs( vlans, interfaces );
  const auto helper = Vex::makePtr< CountingHelper >( "helper" );
  const double ports = double( vlans ) * double( interfaces.portCount );
  Bench::compare(
      state, ports, [ & ] { return inputs.machine( helper, interfaces ); },
      [ & ] { return programDot1qPlainly( vlans, interfaces, *helper ); } );
  const auto bytesOf = [ & ]( const auto & make ) {
    const auto before = mallinfo2();
    const auto made = make();
    const auto after = mallinfo2();
    return double( after.uordblks + after.hblkhd - before.uordblks - before.hblkhd ) / ports;
  };
  state.counters[ "bytes" ] = bytesOf( [ & ] { return inputs.machine( helper, interfaces ); } );
  state.counters[ "floor_bytes" ] =
      bytesOf( [ & ] { return programDot1qPlainly( vlans, interfaces, *helper ); } );
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

constexpr uint64_t tunnels = 16;

Wire::TepIntfId tepOf( uint16_t vlan ) {
  return Wire::DynamicTunnelIntfId::intfId( vlan % tunnels + 1 );
}

struct EsiInputs {
  EsiInputs( uint16_t vlans, const Interfaces & interfaces ) {
    for ( const auto intf : interfaces.intfs ) {
      const auto status = evpnStatus->ethernetSegmentStatusIs( intf );
      evpnStatus->localEsiLabelIs( intf, { 2, 50 } );
      for ( uint16_t vlan = 1; vlan <= vlans; ++vlan ) {
        status->designatedForwarderTepIs( vlan, tepOf( vlan ) );
        status->remoteEsiLabelIs( tepOf( vlan ), { 2, 100 } );
      }
    }
    for ( uint16_t number = 0; number < tunnels; ++number ) {
      mapping->tunnelIdToHwTunnelIdIs(
          { tepOf( number ).tunnelId(), { Kez::hwTunnelIdTypeDefault, number + 1u } } );
    }
  }

  Vex::Ptr< Evpn::EvpnStatus > evpnStatus = Vex::makePtr< Evpn::EvpnStatus >();
  Vex::Ptr< Kez::TunnelIdToHwTunnelIdMapping > mapping =
      Kez::tunnelIdToHwTunnelIdMappingFactory( "mapping" );
};

// What the plain loop keeps: the indexes of the machine, and the ports' status.
struct PlainEsi {
  using Sets = std::unordered_map< Word, std::unordered_set< Word > >;
  Sets intfVlans, vlanIntfs, tunnelPairs, intfTunnelVlans;
  std::unordered_map< Word, Word > tunnels, labels;
  PlainStatuses statuses;
};

void esiStartUp( benchmark::State & state ) {
  const auto vlans = static_cast< uint16_t >( state.range( 0 ) );
  Interfaces interfaces( 0 );
  for ( uint32_t i = 1; i <= 128; ++i ) {
    const auto port = "Ethernet" + std::to_string( i );
    interfaces.add( "Port-Channel" + std::to_string( i ),
                    { port + "/1", port + "/2", port + "/3", port + "/4" } );
  }
  const EsiInputs inputs( vlans, interfaces );
  const auto helper = Vex::makePtr< CountingHelper >( "helper" );
  const auto scheduler = Vex::makePtr< Loom::TaskScheduler >();
  Bench::compare(
      state, double( vlans ) * double( interfaces.portCount ),
      [ & ] {
        auto sm = Kez::evpnFloodingEsiSmFactory( helper, scheduler, interfaces.lagInfo,
                                                 inputs.evpnStatus, inputs.mapping );
        sm->handleInitialized();
        return sm;
      },
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

// One LAG loses a port and gets it back in 4,000 VLANs, among 64 LAGs and among 16:
// "ratio" is the one to the other. Helper calls beyond that port's are an error.
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
    Dot1qInputs inputs;
    Vex::Ptr< CountingHelper > helper = Vex::makePtr< CountingHelper >( "helper" );
    Vex::Ptr< Kez::EvpnFloodingDot1qSm > sm;
  };
  Side many( 128 );
  Side some( 32 );
  const auto calls = many.helper->creations + many.helper->deletions;
  many.change();
  if ( many.helper->creations + many.helper->deletions != calls + 2 * vlans ) {
    state.SkipWithError( "calls for other ports" );
    return;
  }
  Bench::compare(
      state, vlans, [ & ] { many.change(); }, [ & ] { some.change(); } );
}
BENCHMARK( lagMemberChange )->UseManualTime()->Unit( benchmark::kMillisecond );

// The longest turn of a review over 100,000 parked pairs, on the steady clock: "ratio" is to the
// scheduler's time slice.
void parkedReview( benchmark::State & state ) {
  const Interfaces interfaces( 64 );
  const Dot1qInputs inputs( 1563, interfaces );
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
