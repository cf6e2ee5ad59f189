#include "KezEvpn/KezEvpnFloodSetFecSm.h"

#include "KezEvpn/frame/Explain.h"
#include "Ringlog/Trace.h"

namespace Kez {

static Ringlog::Handle traceHandle( "KezEvpnFloodSetFecSm" );

using Ringlog::either;
using Rook::Fib::FecId;

FecId indexToFecId( int64_t index ) {
  VEX_ASSERT( index >= 0 );
  return { Rook::Fib::FecKind::floodSetPath, static_cast< uint64_t >( index ) };
}

EvpnFloodSetFecSm::EvpnFloodSetFecSm( In< L2Rib::FloodSetOutput > floodSetOutput,
                                      In< TunnelIdToHwTunnelIdMapping > hwTunnelIdMapping,
                                      In< EvpnVlanFloodSetHwStatus > vlanFloodSetHwStatus,
                                      Out< FecIdToHwFecIdRequest > mplsFloodSetFecRequest,
                                      In< FecIdToHwFecIdResponse > mplsFloodSetFecResponse,
                                      Out< HwInfoMapping > hwInfoMapping,
                                      Out< Loom::TimerWheel > timerWheel )
    : FecRequestSm( timerWheel, traceHandle, floodSetOutput, hwTunnelIdMapping,
                    vlanFloodSetHwStatus ),
      mplsFloodSetFecRequest_( mplsFloodSetFecRequest ),
      mplsFloodSetFecResponse_( mplsFloodSetFecResponse ), hwInfoMapping_( hwInfoMapping ) {
  watchInputs();
  watchFecResponse( mplsFloodSetFecResponse );
}

Vex::Ptr< EvpnFloodSetFecSm >
evpnFloodSetFecSmFactory( In< L2Rib::FloodSetOutput > floodSetOutput,
                          In< TunnelIdToHwTunnelIdMapping > hwTunnelIdMapping,
                          In< EvpnVlanFloodSetHwStatus > vlanFloodSetHwStatus,
                          Out< FecIdToHwFecIdRequest > mplsFloodSetFecRequest,
                          In< FecIdToHwFecIdResponse > mplsFloodSetFecResponse,
                          Out< HwInfoMapping > hwInfoMapping, Out< Loom::TimerWheel > timerWheel ) {
  return Vex::makePtr< EvpnFloodSetFecSm >( floodSetOutput, hwTunnelIdMapping, vlanFloodSetHwStatus,
                                            mplsFloodSetFecRequest, mplsFloodSetFecResponse,
                                            hwInfoMapping, timerWheel );
}

void EvpnFloodSetFecSm::handleInitialized() {
  TRACE( 8, "handleInitialized" );
  clearOutputs();
  clearCaches();
  makeNumAllocator();
  initializedIs( true );
  // What hardware still uses is known before the first path can go.
  handleEveryVlanFloodSetStatus();
  processEveryMplsDest();
}

void EvpnFloodSetFecSm::clearOutputs() {
  rememberEarlierFecIds();
  hwInfoMapping()->mappingDelAll();
  withdrawEveryFec();
}

// Their numbers are not those of the allocator to come.
void EvpnFloodSetFecSm::clearCaches() {
  fecIdCacheDelAll();
  mplsFloodSetViaCacheDelAll();
  floodSetEntryCacheDelAll();
  floodSetStatusCacheDelAll();
  tunnelInfoCacheDelAll();
}

void EvpnFloodSetFecSm::makeUpForZombieMark() {
  for ( const auto & [ via, entry ] : floodSetStatusCache() ) {
    for ( const auto & [ macVlanPair, config ] : entry->programmed() ) {
      if ( !isMplsDestConfigProgrammed( macVlanPair, config ) ) {
        handleMplsDestStatus( macVlanPair, config );
      }
    }
  }
  for ( const auto & [ via, entry ] : floodSetEntryCache() ) {
    processDestsThatLeft( *entry );
  }
  for ( const auto & [ fecId, via ] : fecIdCache() ) {
    handleFecResponse( fecId );
  }
  // An answer that went unheard may have left its path free to go first.
  for ( const auto & [ via, hwInfo ] : hwInfoMapping()->mapping() ) {
    if ( !mplsFloodSetViaCacheHas( via ) ) {
      hwInfoMapping()->mappingDel( via );
    }
  }
}

void EvpnFloodSetFecSm::handleVlanFloodSetStatusNotInitialized() {
  TRACE( 8, "handleVlanFloodSetStatus Not initialized!" );
}

void EvpnFloodSetFecSm::handleHwTunnelIdMapping( Tunnel::TunnelTable::TunnelId tunnelId ) {
  TRACE( 8, "handleHwTunnelIdMapping ", tunnelId );
  const auto tunnelInfo = tunnelInfoCache( tunnelId );
  if ( !tunnelInfo ) {
    TRACE( 1, " no fecRequest associated with this tunnel " );
    return;
  }
  for ( const auto & via : tunnelInfo->mplsFloodSetViaSet() ) {
    processFecRequest( via );
  }
}

void EvpnFloodSetFecSm::processMplsDest( Bridging::VlanId vlanId, const Wire::EthAddr & mac,
                                         const L2Rib::Dest & dest ) {
  TRACE( 8, "processMplsDest vlan: ", vlanId, " mac: ", mac, " dest: ", dest );
  VEX_ASSERT( dest.destType() == L2Rib::destTypeMpls_ );
  VEX_ASSERT( initialized() );
  const VlanMacDest vmd( vlanId, mac, dest );
  const auto tunnelId = destMplsTunnelId( dest );
  if ( tunnelId == Tunnel::TunnelTable::TunnelId::invalid() ) {
    TRACE( 1, "  Invalid tunnelId not supported " );
    return;
  }
  const auto via = mplsFloodSetVia( tunnelId, dest.mpls().label(), vlanId );
  if ( isDestInFloodSet( vlanId, mac, dest ) ) {
    floodSetEntryCacheIs( via )->vlanMacDestSetIs( vmd, true );
  } else {
    floodSetEntryCacheMemberDel( via, vmd );
  }
  processFecRequest( via );
}

EvpnFloodSetFecSm::Use EvpnFloodSetFecSm::useOf( const MplsFloodSetVia & via ) const {
  return floodSetEntryCacheHas( via )    ? Use::destinations
         : floodSetStatusCacheHas( via ) ? Use::hardware
                                         : Use::none;
}

void EvpnFloodSetFecSm::processFecRequest( const MplsFloodSetVia & via ) {
  TRACE( 8, "processFecRequest (tunnelId: ", via.tunnelId, " label: ", via.label,
         " vlanId: ", via.vlanId );
  switch ( useOf( via ) ) {
  case Use::destinations:
    createOrUpdateFecRequest( via );
    break;
  case Use::hardware:
    TRACE( 1, "    wait for hardware to unprogram the floodSet" );
    break;
  case Use::none:
    removeFecRequest( via );
    break;
  }
}

void EvpnFloodSetFecSm::createOrUpdateFecRequest( const MplsFloodSetVia & via ) {
  TRACE( 8, "createOrUpdateFecRequest tunnelId: ", via.tunnelId, " label: ", via.label,
         " vlanId: ", via.vlanId );
  VEX_ASSERT( initialized() );
  const auto hwTunnelId = this->hwTunnelId( via.tunnelId );
  auto fecId = mplsFloodSetViaCache( via );
  // Of what stands already only the hardware tunnel id may be another.
  if ( !isFecRequestedWith( fecId, hwTunnelId ) ) {
    // What cannot be sent over raises its error before a number is taken for it.
    auto fec = buildFec( FecId(), via );
    fecId = fec.fecId = getOrAllocateFecId( via );
    updateCachesForFecId( fecId, via, false );
    updateTunnelInfoCache( via, false );
    requestFec( fec, hwTunnelId );
  }
  TRACE( 2, "     mplsFloodSetFecRequest created or updated: (tunnelId: ", via.tunnelId,
         " label: ", via.label, " hwTunnelId:", hwTunnelId, " fecId: ", fecId );
}

void EvpnFloodSetFecSm::removeFecRequest( const MplsFloodSetVia & via ) {
  TRACE( 8, "removeFecRequest tunnelId: ", via.tunnelId, " label: ", via.label,
         " vlanId: ", via.vlanId );
  VEX_ASSERT( initialized() );
  if ( !mplsFloodSetViaCacheHas( via ) ) {
    TRACE( 2, "     fecId not found, fecRequest already removed" );
    return;
  }
  const auto fecId = mplsFloodSetViaCache( via );
  updateTunnelInfoCache( via, true ); // first: hardware may answer, and the path be requested again
  withdrawFec( fecId );
  TRACE( 2, "     mplsFloodSetFecRequest removed: (tunnelId: ", via.tunnelId, " label: ", via.label,
         " fecId: ", fecId );
  maybeDeleteFecId( fecId );
}

FecId EvpnFloodSetFecSm::getOrAllocateFecId( const MplsFloodSetVia & via ) {
  VEX_ASSERT( initialized() );
  return mplsFloodSetViaCacheHas( via ) ? mplsFloodSetViaCache( via )
                                        : allocateFecId( indexToFecId );
}

Rook::Fib::Fec EvpnFloodSetFecSm::buildFec( FecId fecId, const MplsFloodSetVia & via ) const {
  return { fecId, { { via.tunnelId.intfId(), via.label } } };
}

void EvpnFloodSetFecSm::updateCachesForFecId( FecId fecId, const MplsFloodSetVia & via,
                                              bool deleted ) {
  if ( deleted ) {
    fecIdCacheDel( fecId );
    mplsFloodSetViaCacheDel( via );
  } else {
    fecIdCacheIs( fecId, via );
    mplsFloodSetViaCacheIs( via, fecId );
  }
}

void EvpnFloodSetFecSm::updateTunnelInfoCache( const MplsFloodSetVia & via, bool deleted ) {
  if ( !deleted ) {
    tunnelInfoCacheIs( via.tunnelId )->mplsFloodSetViaSetIs( via, true );
  } else {
    tunnelInfoCacheMemberDel( via.tunnelId, via );
  }
}

void EvpnFloodSetFecSm::handleFecResponse( FecId fecId ) {
  TRACE( 8, "handleFecResponse ", fecId );
  const bool known = fecIdCacheHas( fecId );
  const auto via = fecIdCache( fecId );
  if ( hasFecResponse( fecId ) ) {
    if ( !known ) {
      TRACE( 2, " got stale response for FecId:", fecId );
      return;
    }
    TRACE( 2, " add or update hwInfo for tunnelId: ", via.tunnelId, " label: ", via.label,
           " vlanId: ", via.vlanId );
    const auto response = mplsFloodSetFecResponse()->hwFecIdResponse( fecId );
    hwInfoMapping()->mappingIs( via, { response.hwFecId, response.l2IntfId } );
    return;
  }
  if ( known && hwInfoMapping()->mappingHas( via ) ) {
    TRACE( 2, " delete hwInfo for tunnelId: ", via.tunnelId, " label: ", via.label );
    hwInfoMapping()->mappingDel( via );
  }
  maybeDeleteFecId( fecId );
}

void EvpnFloodSetFecSm::maybeDeleteFecId( FecId fecId ) {
  if ( !fecIdCacheHas( fecId ) || isFecHeld( fecId ) ) {
    return;
  }
  TRACE( 2, either( "   Deleting fecId: ", "   Deleting fecId : " ), fecId );
  const auto via = fecIdCache( fecId );
  updateCachesForFecId( fecId, via, true );
  releaseFecId( fecId );
}

void EvpnFloodSetFecSm::handleMplsDestStatus( const Bridging::MacVlanPair & macVlanPair,
                                              const MplsDestConfig & config ) {
  const auto via = mplsFloodSetVia( config.tunnelId, config.label, macVlanPair.vlanId );
  if ( isMplsDestConfigProgrammed( macVlanPair, config ) ) {
    TRACE( 1, "  config is programmed in hardware" );
    updateFloodSetStatusCache( via, { macVlanPair, config }, true );
  } else {
    TRACE( 1, "  config is removed from hardware" );
    updateFloodSetStatusCache( via, { macVlanPair, config }, false );
    processFecRequest( via );
  }
}

// A flood set may have several configurations of a path, of an old and a new hardware tunnel id
// say, and uses the path while any of them is programmed.
void EvpnFloodSetFecSm::updateFloodSetStatusCache( const MplsFloodSetVia & via,
                                                   const FloodSetMplsDestConfig & floodSetConfig,
                                                   bool programmed ) {
  if ( programmed ) {
    floodSetStatusCacheIs( via )->programmedIs( floodSetConfig, true );
  } else if ( const auto entry = floodSetStatusCache( via ) ) {
    entry->programmedIs( floodSetConfig, false );
    floodSetStatusCacheDelIfEmpty( via );
  }
}

} // namespace Kez
