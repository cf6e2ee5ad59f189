#include "switch/ForwardingPlane.h"

namespace Switch {

using Wire::IntfId;
using Wire::MplsLabel;

ForwardingPlane::ForwardingPlane( const Vex::Ptr< const SimulatedSwitch > & hardware,
                                  const Vex::Ptr< const ForwardingInput > & forwardingInput,
                                  const Vex::Ptr< const Kez::LagCreatorConfigDir > & lagConfigDir,
                                  const Vex::Ptr< const Evpn::EvpnStatus > & evpnStatus )
    : simulatedSwitch_( hardware ), forwardingInput_( forwardingInput ),
      lagConfigDir_( lagConfigDir ), evpnStatus_( evpnStatus ), simulatedSwitchReactor_( *this ),
      lagConfigDirReactor_( *this ), evpnStatusReactor_( *this ) {
  simulatedSwitchReactor_.notifierIs( hardware );
  lagConfigDirReactor_.notifierIs( lagConfigDir );
  evpnStatusReactor_.notifierIs( evpnStatus );
}

// Counters and faults are no tables; hosts are looked up for each frame.
void ForwardingPlane::VexSimulatedSwitch::onAttribute( Vex::AttrId id, const void * key ) {
  using S = SimulatedSwitch;
  switch ( id ) {
  case S::vlanAttr.id:
  case S::dot1qMappingAttr.id:
  case S::nonDfPortAttr.id:
  case S::esiDataAttr.id:
  case S::esiPortMapAttr.id:
  case S::fecAttr.id:
  case S::floodSetDestAttr.id:
    sm()->listsDel();
    break;
  default:
    MirrorReactor::onAttribute( id, key );
  }
}

void ForwardingPlane::VexEvpnStatus::onAttribute( Vex::AttrId id, const void * ) {
  if ( id == Evpn::EvpnStatus::localEsiLabelAttr.id ) {
    sm()->listsDel();
  }
}

const ForwardingLists & ForwardingPlane::lists() {
  if ( !lists_ ) {
    lists_ = std::make_unique< const ForwardingLists >( *simulatedSwitch(), *lagConfigDir(),
                                                        *evpnStatus() );
  }
  return *lists_;
}

namespace {

Stop stopAt( StopReason reason, const VlanLists::Outlet & outlet, const Stop::EntryKey & key ) {
  return { reason, outlet.intfId, {}, key };
}

// To the interfaces of the VLAN but the one that it came from, which is none from a tunnel, and
// that of the segment that it came from by its ESI label.
void floodToPorts( const VlanLists & vlan, const PortVlanKey & from, MplsLabel esiLabel,
                   uint32_t hash, Forwarded & out ) {
  for ( const auto & outlet : vlan.outlets ) {
    if ( outlet.intfId == from.parentIntfId ) [[unlikely]] {
      out.stopped.push_back( stopAt( StopReason::cameFromThere, outlet, from ) );
    } else if ( esiLabel != MplsLabel() && outlet.esiLabel == esiLabel ) [[unlikely]] {
      out.stopped.push_back( stopAt( StopReason::esiPortMap, outlet, outlet.intfId ) );
    } else if ( outlet.count == 0 ) [[unlikely]] {
      out.stopped.push_back( stopAt( StopReason::noSendingMember, outlet, outlet.intfId ) );
    } else if ( const auto & port = vlan.port( outlet, hash ); !port.barrier ) [[likely]] {
      out.copies.push_back( port.copy );
    } else {
      const PortVlanKey key( outlet.intfId, port.copy.port, from.vlanId );
      out.stopped.push_back( stopAt( *port.barrier, outlet, key ) );
    }
  }
}

void floodToTunnels( const VlanLists::Dests & dests, const std::optional< EsiData > & esiData,
                     Forwarded & out ) {
  for ( const auto & dest : dests ) {
    if ( dest.stop ) [[unlikely]] {
      out.stopped.push_back( *dest.stop );
      continue;
    }
    auto & copy = out.copies.emplace_back( dest.copy );
    if ( esiData && dest.hwTunnelId == esiData->hwTunnelId ) {
      copy.labels.push( esiData->dfEsiLabel );
    }
  }
}

} // namespace

void ForwardingPlane::forward( const Crossing & in, const Frame & frame, Forwarded & out ) {
  out.vlanId = {};
  out.flooded = false;
  out.copies.clear();
  out.stopped.clear();
  if ( in.isOverTunnel() ) {
    forwardFromTunnel( in, frame, out );
  } else {
    forwardFromPort( in, frame, out );
  }
}

void ForwardingPlane::forwardFromPort( const Crossing & in, const Frame & frame, Forwarded & out ) {
  const auto & lists = this->lists();
  const auto * const entrance = lists.entrance( in.port, in.tag );
  if ( !entrance ) {
    out.stopped.push_back( { StopReason::noVlanForTag, {}, {}, {} } );
    return;
  }
  const auto & from = entrance->key;
  out.vlanId = from.vlanId;
  const auto * const vlan = lists.vlan( from.vlanId );
  if ( !vlan ) {
    out.stopped.push_back( { StopReason::noVlan, {}, {}, from.vlanId } );
  } else if ( !entrance->receives ) {
    out.stopped.push_back( { StopReason::memberDoesNotReceive,
                             {},
                             {},
                             LagMemberKey{ from.parentIntfId, from.memberIntfId } } );
  } else if ( !toHost( *vlan, from, frame, out ) ) {
    out.flooded = true;
    floodToPorts( *vlan, from, {}, frame.hash(), out );
    if ( const auto * const dests = vlan->dests( frame.to ) ) {
      floodToTunnels( *dests, entrance->esiData, out );
    }
  }
}

void ForwardingPlane::forwardFromTunnel( const Crossing & in, const Frame & frame,
                                         Forwarded & out ) {
  const auto label = in.labels.top();
  if ( !forwardingInput()->serviceLabelHas( label ) ) {
    out.stopped.push_back( { StopReason::unknownLabel, {}, {}, label } );
    return;
  }
  const auto [ vlanId, use ] = forwardingInput()->serviceLabel( label );
  const PortVlanKey from( {}, {}, vlanId );
  out.vlanId = vlanId;
  const auto & lists = this->lists();
  const auto * const vlan = lists.vlan( vlanId );
  if ( !vlan ) {
    out.stopped.push_back( { StopReason::noVlan, {}, {}, vlanId } );
  } else if ( use == LabelUse::unicast ) {
    if ( !toHost( *vlan, from, frame, out ) ) {
      out.stopped.push_back(
          { StopReason::unknownHost, {}, {}, Bridging::MacVlanPair( frame.to, vlanId ) } );
    }
  } else if ( in.labels.isFull() && !lists.isOwnEsiLabel( in.labels.second() ) ) {
    out.stopped.push_back( { StopReason::foreignEsiLabel, {}, {}, {} } );
  } else {
    out.flooded = true;
    floodToPorts( *vlan, from, in.labels.second(), frame.hash(), out );
  }
}

bool ForwardingPlane::toHost( const VlanLists & vlan, const PortVlanKey & from, const Frame & frame,
                              Forwarded & out ) const {
  if ( frame.isForGroup() ) {
    return false;
  }
  const Bridging::MacVlanPair host( frame.to, from.vlanId );
  if ( forwardingInput()->localHostHas( host ) ) {
    toLocalHost( vlan, from, forwardingInput()->localHost( host ), frame, out );
  } else if ( !simulatedSwitch()->macEntryHas( host ) ) {
    return false;
  } else if ( from.parentIntfId == IntfId() ) {
    out.stopped.push_back( { StopReason::fromTunnelToTunnel, {}, {}, host } );
  } else {
    toRemoteHost( simulatedSwitch()->macEntry( host ), frame, out );
  }
  return true;
}

void ForwardingPlane::toLocalHost( const VlanLists & vlan, const PortVlanKey & from, IntfId intfId,
                                   const Frame & frame, Forwarded & out ) const {
  const auto * const outlet = vlan.outlet( intfId );
  if ( !outlet ) {
    const PortVlanKey key( intfId, intfId, from.vlanId );
    out.stopped.push_back( { StopReason::notMapped, intfId, {}, key } );
  } else if ( intfId == from.parentIntfId ) {
    out.stopped.push_back( stopAt( StopReason::cameFromThere, *outlet, from ) );
  } else if ( outlet->count == 0 ) {
    out.stopped.push_back( stopAt( StopReason::noSendingMember, *outlet, intfId ) );
  } else if ( const auto & port = vlan.port( *outlet, frame.hash() );
              port.barrier == StopReason::notMapped ) {
    const PortVlanKey key( intfId, port.copy.port, from.vlanId );
    out.stopped.push_back( stopAt( StopReason::notMapped, *outlet, key ) );
  } else {
    out.copies.push_back( port.copy );
  }
}

void ForwardingPlane::toRemoteHost( uint64_t hwFecId, const Frame & frame, Forwarded & out ) const {
  const auto fec = simulatedSwitch()->fec( hwFecId );
  if ( fec.via.empty() ) {
    out.stopped.push_back( { StopReason::noFec, {}, {}, hwFecId } );
    return;
  }
  // The upper half of the hash, so that the choice of a switch and that of its LAG's port differ.
  const auto result =
      overVia( *simulatedSwitch(), hwFecId, fec, ( frame.hash() >> 4 ) % fec.via.size() );
  if ( result.stop ) {
    out.stopped.push_back( *result.stop );
  } else {
    out.copies.push_back( result.copy );
  }
}

} // namespace Switch
