#include "KezEvpn/KezEvpnRemoteInfoFinderSm.h"

#include "KezEvpn/frame/Explain.h"
#include "KezEvpn/frame/Room.h"
#include "Ringlog/Trace.h"

namespace Kez {

static Ringlog::Handle traceHandle( "KezEvpnRemoteInfoFinderSm" );

using Tunnel::TunnelTable::TunnelId;

// The tunnel that an MPLS destination's data names, also where its interface is an SR-TE policy's;
// none for any other destination.
static TunnelId tunnelOf( const L2Rib::Dest & dest ) {
  return dest.destType() == L2Rib::destTypeMpls_ ? dest.mpls().tunnelId() : TunnelId::invalid();
}

// How many tunnels to make room for: one a destination, while these are few.
static size_t tunnelsExpected( const L2Rib::FloodSetOutput & output ) {
  constexpr size_t most = 16384;
  size_t dests = 0;
  for ( const auto & [ vlanId, vlanFloodSet ] : output.vlanFloodSet() ) {
    for ( const auto & [ mac, floodSet ] : vlanFloodSet->floodSet() ) {
      dests += floodSet->destSets();
    }
    if ( dests >= most ) {
      return most;
    }
  }
  return dests;
}

EvpnRemoteInfoFinderSm::EvpnRemoteInfoFinderSm( In< L2Rib::FloodSetOutput > floodSetOutput,
                                                Out< EvpnRemoteInfo > remoteInfo )
    : StateMachine( traceHandle ), floodSetOutput_( floodSetOutput ), remoteInfo_( remoteInfo ),
      floodSetOutputReactor_( *this ) {
  if ( floodSetOutput ) {
    makeRoom( *remoteInfo, tunnelsExpected( *floodSetOutput ) );
  }
  floodSetOutputReactor_.notifierIs( floodSetOutput );
}

Vex::Ptr< EvpnRemoteInfoFinderSm >
evpnRemoteInfoFinderSmFactory( In< L2Rib::FloodSetOutput > floodSetOutput,
                               Out< EvpnRemoteInfo > remoteInfo ) {
  return Vex::makePtr< EvpnRemoteInfoFinderSm >( floodSetOutput, remoteInfo );
}

void EvpnRemoteInfoFinderSm::VexFloodSet::handleFloodSet() {
  TRACE( 8, "EvpnRemoteInfoFinderSm::VexVlanFloodSet::VexFloodSet::handleFloodSet vlan: ", vlanId(),
         " mac: ", mac() );
  // A zombie mark changes no set: what leaves is told of destination by destination.
  if ( std::exchange( counted_, true ) ) {
    return;
  }
  const auto sm = this->sm();
  const auto vlan = vlanId();
  const auto floodSet = notifier();
  // What the walk meets stands in the input.
  for ( const auto & dest : floodSet->destSet() ) {
    sm->countMplsDest( vlan, floodSet->mac(), dest, [] { return true; } );
  }
}

void EvpnRemoteInfoFinderSm::VexFloodSet::handleDestSet( const L2Rib::Dest & dest ) {
  TRACE( 8, "EvpnRemoteInfoFinderSm::VexVlanFloodSet::handleDestSet vlan: ", vlanId(),
         " mac: ", mac(), " dest: ", dest );
  sm()->processMplsDest( vlanId(), mac(), dest );
}

void EvpnRemoteInfoFinderSm::processMplsDest( Bridging::VlanId vlanId, const Wire::EthAddr & mac,
                                              const L2Rib::Dest & dest ) {
  countMplsDest( vlanId, mac, dest,
                 [ & ] { return hasDest( *floodSetOutput(), vlanId, mac, dest ); } );
}

template< class Stands >
void EvpnRemoteInfoFinderSm::countMplsDest( Bridging::VlanId vlanId, Wire::EthAddr mac,
                                            const L2Rib::Dest & dest, Stands && stands ) {
  TRACE( 8, " processMplsDest  vlan: ", vlanId, " mac: ", mac, " dest: ", dest );
  if ( dest.destType() != L2Rib::destTypeMpls_ ) {
    return;
  }
  const auto tunnelId = tunnelOf( dest );
  if ( tunnelId == TunnelId::invalid() ) {
    TRACE( 1, "  Invalid tunnelId not supported ", tunnelId );
    return;
  }
  uint32_t count = 0;
  if ( stands() ) {
    count = remoteInfo()->remoteTunnelIdInc( tunnelId, 1 );
    TRACE( 5, " Incrementing remoteTunnelId reference to ", count );
  } else {
    VEX_ASSERT( remoteInfo()->remoteTunnelId( tunnelId ) > 0 );
    count = remoteInfo()->remoteTunnelIdDec( tunnelId, 1 );
    TRACE( 5, " Decrementing remoteTunnelId reference to ", count );
    if ( count == 0 ) {
      remoteInfo()->remoteTunnelIdDel( tunnelId );
    }
  }
  TRACE( 8, "New refcount of tunnel ", tunnelId, " is ", count );
}

void EvpnRemoteInfoFinderSm::countDests( Counts & counts ) const {
  forEachDest( *floodSetOutput(),
               [ & ]( Bridging::VlanId, Wire::EthAddr, const L2Rib::Dest & dest ) {
                 if ( const auto tunnelId = tunnelOf( dest ); tunnelId != TunnelId::invalid() ) {
                   ++*counts.findOrAdd( tunnelId, [] { return 0u; } ).first;
                 }
               } );
}

// A tunnel that has come into use passes through 1, which is what tells of its first destination.
void EvpnRemoteInfoFinderSm::makeUpForZombieMark() {
  Counts counts;
  countDests( counts );
  for ( const auto [ tunnelId, count ] : remoteInfo()->remoteTunnelId() ) {
    if ( !counts.has( tunnelId ) ) {
      remoteInfo()->remoteTunnelIdDel( tunnelId );
    }
  }
  for ( const auto [ tunnelId, count ] : counts.range() ) {
    if ( !remoteInfo()->remoteTunnelIdHas( tunnelId ) ) {
      remoteInfo()->remoteTunnelIdInc( tunnelId, 1 );
    }
    remoteInfo()->remoteTunnelIdIs( tunnelId, count );
  }
}

} // namespace Kez
