// What the flooding machines start from, and a helper that takes what they program.
#pragma once

#include "Settle.h"

#include "KezEvpn/KezEvpnFloodingDot1qSm.h"
#include "KezEvpn/KezEvpnFloodingEsiSm.h"

#include <unordered_map>

namespace Bench {

using Kez::HwProgrammingStatus;

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

// Interfaces of which every second one is a LAG of four ports; or such LAGs alone.
struct Interfaces {
  explicit Interfaces( uint32_t count ) {
    for ( uint32_t i = 1; i <= count; ++i ) {
      if ( i % 2 ) {
        add( "Ethernet" + std::to_string( i ), {} );
      } else {
        addLag( i );
      }
    }
  }
  static Interfaces lags( uint32_t count ) {
    Interfaces all( 0 );
    for ( uint32_t i = 1; i <= count; ++i ) {
      all.addLag( i );
    }
    return all;
  }
  void addLag( uint32_t number ) {
    std::vector< Wire::IntfId > ports;
    for ( const auto lane : { "/1", "/2", "/3", "/4" } ) {
      ports.emplace_back( "Ethernet" + std::to_string( number ) + lane );
    }
    add( "Port-Channel" + std::to_string( number ), ports );
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
  std::unordered_map< uint64_t, std::vector< Wire::IntfId > > plainLags;
  Vex::Ptr< Kez::EvpnLagMemberInfo > lagInfo = Kez::evpnLagMemberInfoFactory();
  size_t portCount = 0; // of one VLAN
};

struct MappingInputs {
  MappingInputs( uint16_t vlans, const Interfaces & interfaces ) {
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
    settle( *scheduler );
    return sm;
  }

  Vex::Ptr< Evpn::EvpnStatus > evpnStatus = Vex::makePtr< Evpn::EvpnStatus >();
  Vex::Ptr< Kez::EvpnVlanStatus > evpnVlanStatus = Kez::evpnVlanStatusFactory();
};

// Of the segments' VLANs.
constexpr uint16_t tunnels = 16;

inline Wire::TepIntfId tepOf( uint16_t vlan ) {
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
  auto machine( const Vex::Ptr< KezHelper::EvpnFloodingSmHelper > & helper,
                const Interfaces & interfaces ) const {
    auto sm = Kez::evpnFloodingEsiSmFactory( helper, Vex::makePtr< Loom::TaskScheduler >(),
                                             interfaces.lagInfo, evpnStatus, mapping );
    sm->handleInitialized();
    return sm;
  }

  Vex::Ptr< Evpn::EvpnStatus > evpnStatus = Vex::makePtr< Evpn::EvpnStatus >();
  Vex::Ptr< Kez::TunnelIdToHwTunnelIdMapping > mapping =
      Kez::tunnelIdToHwTunnelIdMappingFactory( "mapping" );
};

} // namespace Bench
