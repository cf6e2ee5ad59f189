#include "KezEvpn/frame/MplsFloodSetSm.h"

namespace Kez {

MplsFloodSetSm::MplsFloodSetSm( Ringlog::Handle & traceHandle,
                                In< L2Rib::FloodSetOutput > floodSetOutput,
                                In< TunnelIdToHwTunnelIdMapping > hwTunnelIdMapping,
                                In< EvpnVlanFloodSetHwStatus > vlanFloodSetHwStatus )
    : InitializedSm( traceHandle ), floodSetOutput_( floodSetOutput ),
      hwTunnelIdMapping_( hwTunnelIdMapping ), vlanFloodSetHwStatus_( vlanFloodSetHwStatus ),
      floodSetOutputReactor_( *this ), hwTunnelIdMappingReactor_( *this ),
      vlanFloodSetHwStatusReactor_( *this ) {}

void MplsFloodSetSm::watchInputs() {
  floodSetOutputReactor_.notifierIs( floodSetOutput() );
  hwTunnelIdMappingReactor_.notifierIs( hwTunnelIdMapping() );
  vlanFloodSetHwStatusReactor_.notifierIs( vlanFloodSetHwStatus() );
}

void MplsFloodSetSm::VexHwTunnelIdMapping::onAttribute( Vex::AttrId id, const void * key ) {
  const auto sm = this->sm();
  if ( id == TunnelIdToHwTunnelIdMapping::tunnelIdToHwTunnelIdAttr && sm->initialized() ) {
    sm->handleHwTunnelIdMapping( TunnelIdToHwTunnelIdMapping::tunnelIdToHwTunnelIdAttr.key( key ) );
  }
}

void MplsFloodSetSm::VexVlanFloodSetStatus::onAttribute( Vex::AttrId id, const void * key ) {
  if ( id == VlanFloodSetStatus::mplsDestStatusAttr ) {
    handleMplsDestStatus( VlanFloodSetStatus::mplsDestStatusAttr.key( key ) );
  }
}

void MplsFloodSetSm::VexVlanFloodSetStatus::handleNotifier() {
  sm()->vex_handleVlanFloodSetStatus( *this );
}

void MplsFloodSetSm::processEveryMplsDest() {
  forEachDest( *floodSetOutput(),
               [ this ]( Bridging::VlanId vlanId, Wire::EthAddr mac, const L2Rib::Dest & dest ) {
                 processMplsDest( vlanId, mac, dest );
               } );
}

void MplsFloodSetSm::handleEveryVlanFloodSetStatus() {
  for ( const auto & [ macVlanPair, reactor ] : vlanFloodSetStatus() ) {
    reactor->handleVlanFloodSetStatus();
  }
}

void MplsFloodSetSm::processDestsThatLeft( const MplsFloodSetViaToVlanMacDestSet & entry ) {
  for ( const auto & vmd : entry.vlanMacDestSet() ) {
    if ( !isDestInFloodSet( vmd.vlanId, vmd.macAddr, vmd.dest ) ) {
      processMplsDest( vmd.vlanId, vmd.macAddr, vmd.dest );
    }
  }
}

void MplsFloodSetSm::VexFloodSet::handleFloodSet() {
  const auto sm = this->sm();
  if ( !sm->initialized() ) {
    return;
  }
  const auto & traceHandle = sm->handle();
  const auto vlan = vlanId();
  const auto floodSet = notifier();
  TRACE( 8, "handleFloodSet vlan: ", vlan, " mac: ", floodSet->mac() );
  for ( const auto & dest : floodSet->destSet() ) {
    sm->processMplsDest( vlan, floodSet->mac(), dest );
  }
}

void MplsFloodSetSm::VexFloodSet::handleDestSet( const L2Rib::Dest & dest ) {
  const auto sm = this->sm();
  if ( sm->initialized() ) {
    const auto & traceHandle = sm->handle();
    TRACE( 8, "handleDestSet vlan: ", vlanId(), " mac: ", mac(), " dest: ", dest );
    sm->processMplsDest( vlanId(), mac(), dest );
  }
}

void MplsFloodSetSm::VexVlanFloodSetStatus::handleVlanFloodSetStatus() {
  const auto sm = this->sm();
  if ( !sm->initialized() ) {
    sm->handleVlanFloodSetStatusNotInitialized();
    return;
  }
  const auto & traceHandle = sm->handle();
  TRACE( 8, "handleVlanFloodSetStatus vlan: ", macVlanPair().vlanId,
         " mac: ", macVlanPair().macAddr );
  const auto status = notifier();
  for ( const auto & [ config, hwProgrammingStatus ] : status->mplsDestStatus() ) {
    handleMplsDestStatus( config );
  }
}

void MplsFloodSetSm::VexVlanFloodSetStatus::handleMplsDestStatus( const MplsDestConfig & config ) {
  const auto sm = this->sm();
  if ( sm->initialized() ) {
    const auto & traceHandle = sm->handle();
    TRACE( 8, "handleMplsDestStatus vlan: ", macVlanPair().vlanId, " mac: ", macVlanPair().macAddr,
           " tunnelId: ", config.tunnelId, " label: ", config.label );
    sm->handleMplsDestStatus( macVlanPair(), config );
  }
}

bool MplsFloodSetSm::isDestInFloodSet( Bridging::VlanId vlanId, const Wire::EthAddr & mac,
                                       const L2Rib::Dest & dest ) const {
  return hasDest( *floodSetOutput(), vlanId, mac, dest );
}

bool MplsFloodSetSm::isMplsDestConfigProgrammed( const Bridging::MacVlanPair & macVlanPair,
                                                 const MplsDestConfig & config ) const {
  const auto status = vlanFloodSetHwStatus()->status( macVlanPair );
  return status && status->mplsDestStatusHas( config ) &&
         status->mplsDestStatus( config ) == HwProgrammingStatus::programmed;
}

HwTunnelId MplsFloodSetSm::hwTunnelId( Tunnel::TunnelTable::TunnelId tunnelId ) const {
  try {
    const auto record = hwTunnelIdMapping()->tunnelIdToHwTunnelId( tunnelId );
    return record ? record->hwTunnelId : HwTunnelId();
  } catch ( const Rook::Corruption & corruption ) {
    const auto & traceHandle = handle();
    TRACE( 1, corruption.what() );
    hwTunnelIdMapping()->tunnelIdToHwTunnelIdTable().handleCorruption( corruption );
    return HwTunnelId();
  }
}

} // namespace Kez
