#include "switch/ForwardingLists.h"

#include <algorithm>

namespace Switch {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Hardware::Lag::PortProgType;
using Wire::EthAddr;
using Wire::IntfId;

namespace {

// The flood set of all frames whose address has none of its own.
constexpr EthAddr allFrames = 0xffff'ffff'ffff;

} // namespace

CopyOrStop overVia( const SimulatedSwitch & hardware, uint64_t hwFecId, const HwFec & fec,
                    size_t index ) {
  const auto & via = fec.via[ index ];
  const auto hwTunnelId =
      index < fec.hwTunnelId.size() ? fec.hwTunnelId.begin()[ index ] : Kez::HwTunnelId();
  const bool isTunnel = Wire::DynamicTunnelIntfId::isDynamicTunnelIntfId( via.intfId );
  Tunnel::TunnelTable::TunnelId tunnelId = isTunnel ? via.intfId.number() : 0;
  if ( hwTunnelId.valid() ) {
    const auto pool = hardware.hwTunnelIdPool( hwTunnelId.hwTunnelIdType() );
    if ( !pool || !pool->inUseHas( hwTunnelId ) ) {
      return { {}, Stop{ StopReason::noHwTunnelId, {}, tunnelId, hwTunnelId } };
    }
    const auto gotFor = pool->inUse( hwTunnelId );
    tunnelId = gotFor.value() != 0 ? gotFor : tunnelId;
  }
  if ( tunnelId.value() == 0 ) {
    return { {}, Stop{ StopReason::noTunnel, {}, {}, hwFecId } };
  }
  return { Crossing::overTunnel( tunnelId, { via.mplsLabel } ), {} };
}

// --- A VLAN's

const VlanLists::Outlet * VlanLists::outlet( IntfId intfId ) const {
  const auto at = std::ranges::lower_bound( outlets, intfId, {}, &Outlet::intfId );
  return at == outlets.end() || at->intfId != intfId ? nullptr : &*at;
}

const VlanLists::Dests * VlanLists::dests( EthAddr group ) const {
  auto at = floodSets.find( group );
  if ( at == floodSets.end() ) {
    at = floodSets.find( allFrames );
  }
  return at == floodSets.end() ? nullptr : &at->second;
}

// --- All

ForwardingLists::ForwardingLists( const SimulatedSwitch & hardware,
                                  const Kez::LagCreatorConfigDir & lagConfigDir,
                                  const Evpn::EvpnStatus & evpnStatus ) {
  for ( const auto & [ intfId, label ] : evpnStatus.localEsiLabel() ) {
    ownEsiLabels_.insert( label.mplsLabel() );
  }
  for ( const auto & [ vlanId, tag ] : hardware.vlan() ) {
    vlans_.findOrAdd( vlanId, [] { return VlanLists(); } );
  }
  readLags( lagConfigDir );
  readMappings( hardware );
  readFloodSets( hardware );
}

const ForwardingLists::Entrance * ForwardingLists::entrance( IntfId port, VlanIdOrNone tag ) const {
  return entrances_.find( { port, tag } );
}

void ForwardingLists::readLags( const Kez::LagCreatorConfigDir & lagConfigDir ) {
  for ( const auto & [ lag, lagInfo ] : lagConfigDir.lagConfig() ) {
    for ( const auto & [ port, progType ] : lagInfo->member() ) {
      lagPorts_[ lag ][ port ] = progType;
      allLagPorts_.insert( port );
    }
  }
}

void ForwardingLists::readMappings( const SimulatedSwitch & hardware ) {
  std::map< VlanId, std::set< IntfId > > intfsOfVlan;
  for ( const auto & [ key, tag ] : hardware.dot1qMapping() ) {
    if ( !holds( key ) ) {
      continue;
    }
    intfsOfVlan[ key.vlanId ].insert( key.parentIntfId );
    const auto [ entrance, added ] =
        entrances_.findOrAdd( { key.memberIntfId, tag }, [] { return Entrance(); } );
    const auto order = []( const PortVlanKey & each ) {
      return std::tie( each.vlanId, each.parentIntfId );
    };
    if ( added || order( key ) < order( entrance->key ) ) {
      entrance->key = key;
      entrance->receives = receives( key );
      entrance->esiData.reset();
      if ( hardware.esiDataHas( key ) ) {
        entrance->esiData = hardware.esiData( key );
      }
    }
  }
  for ( const auto & [ vlanId, intfs ] : intfsOfVlan ) {
    if ( auto * const vlan = vlans_.find( vlanId ) ) {
      for ( const auto intfId : intfs ) {
        addOutlet( hardware, vlanId, *vlan, intfId );
      }
    }
  }
}

bool ForwardingLists::holds( const PortVlanKey & key ) const {
  if ( Wire::isLag( key.parentIntfId ) ) {
    const auto lag = lagPorts_.find( key.parentIntfId );
    return lag != lagPorts_.end() && lag->second.contains( key.memberIntfId );
  }
  return key.parentIntfId == key.memberIntfId && !allLagPorts_.contains( key.memberIntfId );
}

bool ForwardingLists::receives( const PortVlanKey & key ) const {
  if ( !Wire::isLag( key.parentIntfId ) ) {
    return true;
  }
  const auto progType = lagPorts_.at( key.parentIntfId ).at( key.memberIntfId );
  return progType == PortProgType::portProgRxTx || progType == PortProgType::portProgRx;
}

std::vector< IntfId > ForwardingLists::sendingPorts( IntfId intfId ) const {
  if ( !Wire::isLag( intfId ) ) {
    return { intfId };
  }
  std::vector< IntfId > ports;
  for ( const auto & [ port, progType ] : lagPorts_.at( intfId ) ) {
    if ( progType == PortProgType::portProgRxTx || progType == PortProgType::portProgTx ) {
      ports.push_back( port );
    }
  }
  return ports;
}

void ForwardingLists::addOutlet( const SimulatedSwitch & hardware, VlanId vlanId, VlanLists & vlan,
                                 IntfId intfId ) const {
  const auto ports = sendingPorts( intfId );
  vlan.outlets.push_back( { intfId, static_cast< uint32_t >( vlan.ports.size() ),
                            static_cast< uint32_t >( ports.size() ),
                            hardware.esiPortMap( intfId ) } );
  for ( const auto port : ports ) {
    const PortVlanKey key( intfId, port, vlanId );
    const bool mapped = hardware.dot1qMappingHas( key );
    auto & added = vlan.ports.emplace_back(
        VlanLists::Port{ Crossing::onPort( port, hardware.dot1qMapping( key ) ), {} } );
    if ( !mapped ) {
      added.barrier = StopReason::notMapped;
    } else if ( hardware.nonDfPort( key ) ) {
      added.barrier = StopReason::nonDfPort;
    }
  }
}

void ForwardingLists::readFloodSets( const SimulatedSwitch & hardware ) {
  std::set< Kez::FloodSetMplsDestConfig > inOrder;
  for ( const auto & dest : hardware.floodSetDest() ) {
    inOrder.insert( dest );
  }
  for ( const auto & [ macVlanPair, config ] : inOrder ) {
    auto * const vlan = vlans_.find( macVlanPair.vlanId );
    if ( !vlan ) {
      continue;
    }
    const auto hwFecId = config.hwIdForTunnelProgramming;
    const auto & fec = hardware.fec( hwFecId );
    VlanLists::Dest dest{
      fec.via.empty() ? CopyOrStop{ {}, Stop{ StopReason::noFec, {}, config.tunnelId, hwFecId } }
                      : overVia( hardware, hwFecId, fec, 0 ),
      config.hwTunnelId
    };
    vlan->floodSets[ macVlanPair.macAddr ].push_back( dest );
  }
}

} // namespace Switch
