#include "DataPlane.h"

#include <algorithm>

namespace LinuxPe {

using Bridging::VlanIdOrNone;
using Switch::Crossing;

DataPlane::DataPlane( Tables & tables, std::vector< AttachedPort > ports, const CorePort & core,
                      FrameCounts & counts, LearnedHosts & hosts, Tell tell )
    : tables_( tables ), ports_( std::move( ports ) ), core_( core ), counts_( counts ),
      hosts_( hosts ), tell_( std::move( tell ) ) {}

void DataPlane::fromPort( size_t number, Bytes bytes, double now ) {
  counts_.inc( FrameCount::fromPorts );
  const auto & port = ports_[ number ];
  const auto frame = parseEthernet( bytes );
  if ( !frame ) {
    counts_.inc( FrameCount::malformed );
    return;
  }
  const bool isAccess = port.accessTag != VlanIdOrNone();
  if ( isAccess && frame->tag != VlanIdOrNone() ) {
    counts_.inc( FrameCount::wrongTag );
    return;
  }
  tables_.plane->forward( Crossing::onPort( port.intfId, isAccess ? port.accessTag : frame->tag ),
                          frame->addresses, forwarded_ );
  learn( port.intfId, frame->addresses, now );
  send( *frame );
}

void DataPlane::fromCore( Bytes bytes ) {
  counts_.inc( FrameCount::fromCore );
  const auto outer = parseEthernet( bytes );
  if ( outer && outer->addresses.to != core_.address ) {
    counts_.inc( FrameCount::forOthers );
    return;
  }
  const auto packet = outer && isMpls( *outer ) ? parseMpls( *outer ) : std::nullopt;
  const auto frame = packet ? parseEthernet( packet->payload ) : std::nullopt;
  if ( !frame ) {
    counts_.inc( FrameCount::malformed );
    return;
  }
  if ( packet->ttl == 0 ) {
    counts_.inc( FrameCount::expired );
    return;
  }
  const auto tunnelId = tables_.tunnelTo( outer->addresses.from );
  if ( tunnelId.value() == 0 ) {
    counts_.inc( FrameCount::unknownPeer );
    return;
  }
  tables_.plane->forward( Crossing::overTunnel( tunnelId, packet->labels ), frame->addresses,
                          forwarded_ );
  send( *frame );
}

// Where a frame came in to no VLAN nothing is learned.
void DataPlane::learn( Wire::IntfId port, const Switch::Frame & frame, double now ) {
  const bool isHosts = !( frame.from.value() >> 40 & 1 ) && frame.from != Wire::EthAddr();
  const auto hasReason = [ this ]( Switch::StopReason reason ) {
    return std::ranges::any_of( forwarded_.stopped,
                                [ reason ]( const auto & stop ) { return stop.reason == reason; } );
  };
  if ( !isHosts || forwarded_.vlanId == VlanIdOrNone() || hasReason( Switch::StopReason::noVlan ) ||
       hasReason( Switch::StopReason::memberDoesNotReceive ) ) {
    return;
  }
  const Bridging::MacVlanPair host( frame.from, forwarded_.vlanId.value() );
  const auto intfId = tables_.interfaceOf( port );
  if ( hosts_.seen( host, intfId, now ) ) {
    tell_( { host, intfId, true } );
  }
}

void DataPlane::age( double now ) {
  for ( const auto & event : hosts_.aged( now ) ) {
    tell_( event );
  }
}

void DataPlane::send( const EthernetFrame & frame ) {
  if ( forwarded_.copies.empty() ) {
    counts_.inc( FrameCount::notForwarded );
  }
  for ( const auto & copy : forwarded_.copies ) {
    if ( copy.isOverTunnel() ) {
      sendOverTunnel( frame, copy );
    } else {
      sendOnPort( frame, copy );
    }
  }
}

void DataPlane::sendOnPort( const EthernetFrame & frame, const Crossing & out ) {
  const auto at = std::ranges::find( ports_, out.port, &AttachedPort::intfId );
  if ( at == ports_.end() ) {
    counts_.inc( FrameCount::notSent ); // a port that the tables know and no wire is attached to
    return;
  }
  const bool isAccess = at->accessTag != VlanIdOrNone();
  if ( isAccess && out.tag != at->accessTag ) {
    counts_.inc( FrameCount::wrongTag );
    return;
  }
  const auto tag = isAccess ? VlanIdOrNone() : out.tag;
  counts_.inc( at->port->send( Head::onPort( frame, tag ), frame.rest ) ? FrameCount::toPorts
                                                                        : FrameCount::notSent );
}

void DataPlane::sendOverTunnel( const EthernetFrame & frame, const Crossing & out ) {
  if ( !core_.port || !tables_.core->nextHopHas( out.tunnelId ) ) {
    counts_.inc( FrameCount::noNextHop );
    return;
  }
  const auto head =
      Head::overTunnel( frame, tables_.core->nextHop( out.tunnelId ), core_.address, out.labels );
  counts_.inc( core_.port->send( head, frame.rest ) ? FrameCount::toCore : FrameCount::notSent );
}

} // namespace LinuxPe
