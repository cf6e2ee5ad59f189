#include "KezEvpn/KezEvpnRemoteInfoFinderSm.h"

#include "KezEvpn/Explain.h"
#include "Ringlog/Trace.h"

namespace Kez {

static Ringlog::Handle traceHandle( "KezEvpnRemoteInfoFinderSm" );

using Tunnel::TunnelTable::TunnelId;

EvpnRemoteInfoFinderSm::EvpnRemoteInfoFinderSm(
    const Vex::Ptr< const L2Rib::FloodSetOutput > & floodSetOutput,
    const Vex::Ptr< EvpnRemoteInfo > & remoteInfo )
    : floodSetOutput_( floodSetOutput ), remoteInfo_( remoteInfo ),
      floodSetOutputReactor_( *this ) {
  floodSetOutputReactor_.notifierIs( floodSetOutput );
}

Vex::Ptr< EvpnRemoteInfoFinderSm > EvpnRemoteInfoFinderSm::EvpnRemoteInfoFinderSmIs(
    const Vex::Ptr< const L2Rib::FloodSetOutput > & floodSetOutput,
    const Vex::Ptr< EvpnRemoteInfo > & remoteInfo ) {
  return Vex::makePtr< EvpnRemoteInfoFinderSm >( floodSetOutput, remoteInfo );
}

Vex::Ptr< EvpnRemoteInfoFinderSm >
evpnRemoteInfoFinderSmFactory( const Vex::Ptr< const L2Rib::FloodSetOutput > & floodSetOutput,
                               const Vex::Ptr< EvpnRemoteInfo > & remoteInfo ) {
  return EvpnRemoteInfoFinderSm::EvpnRemoteInfoFinderSmIs( floodSetOutput, remoteInfo );
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
  for ( const auto & dest : floodSet->destSet() ) {
    sm->processMplsDest( vlan, floodSet->mac(), dest );
  }
}

void EvpnRemoteInfoFinderSm::VexFloodSet::handleDestSet( const L2Rib::Dest & dest ) {
  TRACE( 8, "EvpnRemoteInfoFinderSm::VexVlanFloodSet::handleDestSet vlan: ", vlanId(),
         " mac: ", mac(), " dest: ", dest );
  sm()->processMplsDest( vlanId(), mac(), dest );
}

void EvpnRemoteInfoFinderSm::processMplsDest( Bridging::VlanId vlanId, const Wire::EthAddr & mac,
                                              const L2Rib::Dest & dest ) {
  TRACE( 8, " processMplsDest  vlan: ", vlanId, " mac: ", mac, " dest: ", dest );
  if ( dest.destType() != L2Rib::destTypeMpls_ ) {
    return;
  }
  // The tunnel that the data names, also where the interface is an SR-TE policy's.
  const auto tunnelId = dest.mpls().tunnelId();
  if ( tunnelId == TunnelId::invalid() ) {
    TRACE( 1, "  Invalid tunnelId not supported ", tunnelId );
    return;
  }
  uint32_t count = 0;
  if ( hasDest( *floodSetOutput(), vlanId, mac, dest ) ) {
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

void EvpnRemoteInfoFinderSm::explain( const Subject & subject, Explanation & out ) const {
  const auto * const tunnelId = subject.get< TunnelId >();
  if ( tunnelId && remoteInfo()->remoteTunnelIdHas( *tunnelId ) ) {
    out.say( "used by ",
             Count{ remoteInfo()->remoteTunnelId( *tunnelId ), "flood-set destination" } );
  }
}

} // namespace Kez
