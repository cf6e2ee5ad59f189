#include "KezEvpn/KezEvpnHwTunnelIdSm.h"

namespace Kez {

static Ringlog::Handle traceHandle( "KezEvpnHwTunnelIdSm" );

using Tunnel::TunnelTable::TunnelId;

EvpnHwTunnelIdSm::EvpnHwTunnelIdSm( Out< KezHelper::EvpnHwTunnelIdSmHelper > hwTunnelIdHelper,
                                    Out< Loom::TaskScheduler > scheduler,
                                    In< KezCommonSmData > acsd, In< Evpn::EvpnStatus > evpnStatus,
                                    In< EvpnRemoteInfo > remoteInfo,
                                    Out< TunnelIdToHwTunnelIdMapping > tunnelIdHwTunnelId )
    : RetryingSm( traceHandle, { Retry::whenFreed, Resume::atBookmark } ),
      hwTunnelIdHelper_( hwTunnelIdHelper ), scheduler_( scheduler ), acsd_( acsd ),
      evpnStatus_( evpnStatus ), remoteInfo_( remoteInfo ),
      tunnelIdHwTunnelId_( tunnelIdHwTunnelId ),
      segmentTunnels_( *this, intfTunnelSet_, intfTunnelSetAttr, tunnelInfo_, tunnelInfoAttr,
                       evpnStatus_ ),
      parking_( *this, *this, unprogrammedTunnel_, unprogrammedTunnelAttr ),
      evpnStatusReactor_( *this ), remoteInfoReactor_( *this ), helperReactor_( *this ) {
  evpnStatusReactor_.notifierIs( evpnStatus );
  remoteInfoReactor_.notifierIs( remoteInfo );
  helperReactor_.notifierIs( hwTunnelIdHelper );
}

Vex::Ptr< EvpnHwTunnelIdSm >
evpnHwTunnelIdSmFactory( Out< KezHelper::EvpnHwTunnelIdSmHelper > hwTunnelIdHelper,
                         Out< Loom::TaskScheduler > scheduler, In< KezCommonSmData > acsd,
                         In< Evpn::EvpnStatus > evpnStatus, In< EvpnRemoteInfo > remoteInfo,
                         Out< TunnelIdToHwTunnelIdMapping > tunnelIdHwTunnelId ) {
  return Vex::makePtr< EvpnHwTunnelIdSm >( hwTunnelIdHelper, scheduler, acsd, evpnStatus,
                                           remoteInfo, tunnelIdHwTunnelId );
}

// --- Handlers

void EvpnHwTunnelIdSm::handleInitialized() {
  TRACE( 8, "EvpnHwTunnelIdSm::handleInitialized" );
  reviewUnprogrammedIs( scheduler(), 2, "reviewUnprogrammed" );
  if ( const auto * const inUse = hwTunnelIdHelper()->hwTunnelIdsInUse();
       inUse && hwTunnelIdHelper()->idsStay() ) {
    takeOver( *inUse );
  } else {
    tunnelIdHwTunnelId()->tunnelIdToHwTunnelIdDelAll();
  }
  initializedIs( true );
  for ( const auto & [ esIntfId, status ] : evpnStatus()->ethernetSegmentStatus() ) {
    for ( const auto [ labelIntfId, label ] : status->remoteEsiLabel() ) {
      programHwTunnelId( esIntfId, srTeOrDynamicTunnelIntfIdToTunnelId( labelIntfId ) );
    }
  }
  for ( const auto [ tunnelId, count ] : remoteInfo()->remoteTunnelId() ) {
    publishHwTunnelId( tunnelId );
  }
}

void EvpnHwTunnelIdSm::takeOver( const IdsInUse & inUse ) {
  takeOverHwTunnelIdRecords( *tunnelIdHwTunnelId(), inUse, [ this ]( const auto & record ) {
    TRACE( 5, "tunnelId ", record.key, " still has hw tunnel id ", record.hwTunnelId );
    zombieTunnelIdIs( record.hwTunnelId.hwTunnelIdType() )->tunnelIdIs( record.key );
  } );
  // All that uses a tunnel decides on the type of the first id that it gets.
  for ( const auto & [ esIntfId, status ] : evpnStatus()->ethernetSegmentStatus() ) {
    for ( const auto [ labelIntfId, label ] : status->remoteEsiLabel() ) {
      segmentTunnels_.add( esIntfId, srTeOrDynamicTunnelIntfIdToTunnelId( labelIntfId ) );
    }
  }
}

void EvpnHwTunnelIdSm::VexHelper::onAttribute( Vex::AttrId id, const void * ) {
  using Helper = KezHelper::EvpnHwTunnelIdSmHelper;
  if ( ( id == Helper::idsFreedAttr || id == Helper::idsStayAttr ) && sm()->initialized() ) {
    sm()->handleHelper();
  }
}

void EvpnHwTunnelIdSm::handleHelper() {
  TRACE( 8, "EvpnHwTunnelIdSm::handleHelper idsStay ", hwTunnelIdHelper()->idsStay() );
  if ( hwTunnelIdHelper()->idsStay() ) {
    return;
  }
  for ( const auto & [ tunnelId, info ] : tunnelInfo() ) {
    if ( mapped( tunnelId ) ) {
      maybeReprogramHwTunnelId( tunnelId );
    }
  }
  parking_.freed();
}

void EvpnHwTunnelIdSm::VexRemoteInfo::onAttribute( Vex::AttrId id, const void * key ) {
  if ( id == EvpnRemoteInfo::remoteTunnelIdAttr ) {
    sm()->handleRemoteTunnelId( EvpnRemoteInfo::remoteTunnelIdAttr.key( key ) );
  }
}

void EvpnHwTunnelIdSm::VexRemoteInfo::handleNotifier() {
  const auto sm = this->sm();
  if ( !sm->initialized() ) {
    return;
  }
  for ( const auto [ tunnelId, count ] : sm->remoteInfo()->remoteTunnelId() ) {
    // Its count may have passed 1 unheard, under a zombie mark. Segments see to theirs.
    if ( !sm->usedBySegment( tunnelId ) ) {
      sm->publishHwTunnelId( tunnelId );
    }
  }
}

void EvpnHwTunnelIdSm::handleRemoteTunnelId( TunnelId tunnelId ) {
  if ( !initialized() ) {
    return;
  }
  const auto count = remoteInfo()->remoteTunnelId( tunnelId );
  TRACE( 8, "EvpnHwTunnelIdSm::handleRemoteTunnelId tunnelId ", tunnelId, " count ", count );
  if ( count == 1 ) {
    publishHwTunnelId( tunnelId );
  }
}

void EvpnHwTunnelIdSm::VexSegmentStatus::onAttribute( Vex::AttrId id, const void * key ) {
  if ( id == Evpn::EthernetSegmentStatus::remoteEsiLabelAttr ) {
    handleRemoteEsiLabel( Evpn::EthernetSegmentStatus::remoteEsiLabelAttr.key( key ) );
  } else if ( id == Evpn::EthernetSegmentStatus::sharedEsiLabelAttr ) {
    handleSharedEsiLabel();
  }
}

void EvpnHwTunnelIdSm::VexSegmentStatus::handleNotifier() {
  sm()->vex_handleSegmentStatus( *this );
}

void EvpnHwTunnelIdSm::segmentStatusIs( In< Evpn::EthernetSegmentStatus > status ) {
  TRACE( 8, "EvpnHwTunnelIdSm::segmentStatusIs intfId ", status->intfId() );
  segmentStatus_.make( *this, status );
}

void EvpnHwTunnelIdSm::segmentStatusDel( Wire::IntfId esIntfId ) {
  TRACE( 8, "EvpnHwTunnelIdSm::segmentStatusDel intfId ", esIntfId );
  const Vex::Ptr< EvpnHwTunnelIdSm > held( this );
  segmentStatus_.del( *this, esIntfId );
  const auto tunnels = intfTunnelSet( esIntfId );
  if ( tunnels && !segmentStatusHas( esIntfId ) ) {
    for ( const auto tunnelId : tunnels->tunnelId() ) {
      unProgramHwTunnelId( esIntfId, tunnelId );
    }
  }
}

void EvpnHwTunnelIdSm::segmentStatusDelAll() {
  TRACE( 8, "EvpnHwTunnelIdSm::segmentStatusDelAll" );
  const Vex::Ptr< EvpnHwTunnelIdSm > held( this );
  for ( const auto & [ esIntfId, reactor ] : segmentStatus() ) {
    segmentStatusDel( esIntfId );
  }
}

void EvpnHwTunnelIdSm::VexSegmentStatus::handleSegmentStatus() {
  const auto sm = this->sm();
  const auto intfId = esIntfId();
  if ( !sm->initialized() ) {
    return;
  }
  TRACE( 8, "EvpnHwTunnelIdSm::VexSegmentStatus::handleSegmentStatus intfId ", intfId );
  if ( const auto tunnels = sm->intfTunnelSet( intfId ) ) {
    for ( const auto tunnelId : tunnels->tunnelId() ) {
      // A label that stands keeps its tunnel: a zombie might be reclaimed in between.
      if ( !sm->labelled( intfId, tunnelId ) ) {
        sm->unProgramHwTunnelId( intfId, tunnelId );
      }
    }
  }
  if ( const auto status = sm->evpnStatus()->ethernetSegmentStatus( intfId ) ) {
    for ( const auto [ labelIntfId, label ] : status->remoteEsiLabel() ) {
      sm->programHwTunnelId( intfId, srTeOrDynamicTunnelIntfIdToTunnelId( labelIntfId ) );
    }
  }
}

void EvpnHwTunnelIdSm::VexSegmentStatus::handleRemoteEsiLabel( Wire::IntfId labelIntfId ) {
  const auto sm = this->sm();
  const auto intfId = esIntfId();
  if ( !sm->initialized() ) {
    return;
  }
  const auto tunnelId = srTeOrDynamicTunnelIntfIdToTunnelId( labelIntfId );
  const auto status = sm->evpnStatus()->ethernetSegmentStatus( intfId );
  const bool add = status && status->remoteEsiLabelHas( labelIntfId );
  TRACE( 8, "handleRemoteEsiLabel tunnelId ", tunnelId, " add ", add );
  if ( add ) {
    sm->programHwTunnelId( intfId, tunnelId );
  } else if ( !sm->labelled( intfId, tunnelId ) ) {
    sm->unProgramHwTunnelId( intfId, tunnelId );
  }
}

void EvpnHwTunnelIdSm::VexSegmentStatus::handleSharedEsiLabel() {
  const auto sm = this->sm();
  const auto intfId = esIntfId();
  if ( !sm->initialized() ) {
    return;
  }
  const bool sharedEsiLabelValid = sm->sharedEsiLabelConfigured( intfId );
  TRACE( 8, "EvpnHwTunnelIdSm::VexSegmentStatus::handleSharedEsiLabel intfId ", intfId,
         " sharedEsiLabelValid ", sharedEsiLabelValid );
  if ( const auto tunnels = sm->intfTunnelSet( intfId ) ) {
    for ( const auto tunnelId : tunnels->tunnelId() ) {
      const auto info = sm->tunnelInfo( tunnelId );
      info->sharedEsiLabelConfiguredIntfIs( intfId, sharedEsiLabelValid );
      sm->maybeReprogramHwTunnelId( tunnelId );
    }
  }
}

// Tunnels that lack something are tried at once, or wait for their next try.
void EvpnHwTunnelIdSm::retryLackingTunnelChanged() {
  if ( !retryLackingTunnel() || !initialized() ) {
    return;
  }
  for ( const auto & [ tunnelId, info ] : tunnelInfo() ) {
    if ( lackOf( tunnelId ) != Lack::nothing ) {
      publishHwTunnelId( tunnelId );
    }
  }
  for ( const auto [ tunnelId, count ] : remoteInfo()->remoteTunnelId() ) {
    if ( lackOf( tunnelId ) != Lack::nothing && !usedBySegment( tunnelId ) ) {
      publishHwTunnelId( tunnelId );
    }
  }
  ensureReview();
}

// --- Segments come to use tunnels, and cease to

void EvpnHwTunnelIdSm::programHwTunnelId( Wire::IntfId esIntfId, TunnelId tunnelId ) {
  VEX_ASSERT( initialized() );
  const bool sharedEsi = sharedEsiLabelConfigured( esIntfId );
  TRACE( 8, "EvpnHwTunnelIdSm::programHwTunnelId intfId ", esIntfId, " tunnelId ", tunnelId,
         " sharedEsi ", sharedEsi );
  segmentTunnels_.add( esIntfId, tunnelId );
  publishHwTunnelId( tunnelId );
}

void EvpnHwTunnelIdSm::unProgramHwTunnelId( Wire::IntfId esIntfId, TunnelId tunnelId ) {
  VEX_ASSERT( initialized() );
  TRACE( 8, "EvpnHwTunnelIdSm::unProgramHwTunnelId intfId ", esIntfId, " tunnelId ", tunnelId );
  if ( const auto tunnels = intfTunnelSet( esIntfId );
       !tunnels || !tunnels->tunnelIdHas( tunnelId ) ) {
    TRACE( 5, " tunnel not programmed " );
    return;
  }
  VEX_ASSERT( tunnelInfo( tunnelId )->intfIdHas( esIntfId ) );
  segmentTunnels_.remove( esIntfId, tunnelId );
  if ( const auto info = tunnelInfo( tunnelId ) ) {
    TRACE( 5, info->intfIds(), " ethernet segments still using tunnelId ", tunnelId );
    maybeReprogramHwTunnelId( tunnelId );
    return;
  }
  // Remote destinations that still count it keep a parked tunnel waiting.
  if ( lackOf( tunnelId ) == Lack::nothing ) {
    parking_.release( tunnelId );
  }
  const auto tidHwTid = mapped( tunnelId );
  if ( !tidHwTid ) {
    TRACE( 5, "not programmed" );
    return;
  }
  const auto hwTunnelIdType = tidHwTid->hwTunnelId.hwTunnelIdType();
  VEX_ASSERT( !zombieTunnelIdIs( hwTunnelIdType )->tunnelIdHas( tunnelId ) );
  zombieTunnelIdIs( hwTunnelIdType )->tunnelIdIs( tunnelId );
  parking_.freed();
}

// --- Tunnels get ids

void EvpnHwTunnelIdSm::publishHwTunnelId( TunnelId tunnelId ) {
  VEX_ASSERT( initialized() );
  TRACE( 8, "EvpnHwTunnelIdSm::publishHwTunnelId tunnelId ", tunnelId );
  const bool used = usedBySegment( tunnelId );
  const auto tidHwTid = mapped( tunnelId );
  if ( !used ) {
    VEX_ASSERT( remoteInfo()->remoteTunnelIdHas( tunnelId ) );
  } else if ( tidHwTid ) {
    zombieTunnelIdIs( tidHwTid->hwTunnelId.hwTunnelIdType() )->tunnelIdDel( tunnelId );
  }
  const auto hwTunnelIdType = neededType( tunnelId );
  TRACE( 8, " hwTunnelIdType ", hwTunnelIdType );
  if ( tidHwTid ) {
    maybeReprogramHwTunnelId( tunnelId );
    return;
  }
  if ( !makeRoom( hwTunnelIdType, used ) ) {
    TRACE( 1, " no room to publish a hardware tunnel id: ",
           tunnelIdHwTunnelId()->tunnelIdToHwTunnelIdLack() );
    parking_.park( tunnelId );
    parking_.settle( tunnelId, false );
    // Nobody tells when there is room.
    maybeScheduleUnprogrammedReview( false );
    return;
  }
  auto hwTunnelId = getHwTunnelId( hwTunnelIdType, used, tunnelId );
  if ( !hwTunnelId.valid() && hwTunnelIdType == hwTunnelIdTypeSharedEsi ) {
    TRACE( 5, " try allocating for hwTunnelIdTypeDefault for sharedEs" );
    hwTunnelId = getHwTunnelId( hwTunnelIdTypeDefault, true, tunnelId );
    if ( hwTunnelId.valid() ) {
      TRACE( 5, " allocated HwTunnelId ", hwTunnelId, " for tunnel ", tunnelId,
             " with hwTunnelIdType=hwTunnelIdTypeDefault" );
    }
  }
  if ( !hwTunnelId.valid() ) {
    TRACE( 5, "failed to program tunnel" );
    parking_.park( tunnelId );
    parking_.settle( tunnelId );
    return;
  }
  tunnelIdHwTunnelId()->tunnelIdToHwTunnelIdIs( { tunnelId, hwTunnelId } );
  TRACE( 5, "tunnel programmed with hw tunnel id ", hwTunnelId );
  if ( !used ) {
    zombieTunnelIdIs( hwTunnelId.hwTunnelIdType() )->tunnelIdIs( tunnelId );
  }
  settleLack( tunnelId );
}

EvpnHwTunnelIdSm::Lack EvpnHwTunnelIdSm::lackOf( TunnelId tunnelId ) const {
  const auto record = tunnelIdHwTunnelId()->tunnelIdToHwTunnelIdTable().examine( tunnelId ).record;
  if ( !record ) {
    return isWanted( tunnelId ) ? Lack::id : Lack::nothing;
  }
  return usedBySegment( tunnelId ) && record->hwTunnelId.hwTunnelIdType() != neededType( tunnelId )
             ? Lack::type
             : Lack::nothing;
}

// After what may have changed what the tunnel lacks.
void EvpnHwTunnelIdSm::settleLack( TunnelId tunnelId ) {
  if ( retryLackingTunnel() && lackOf( tunnelId ) != Lack::nothing ) {
    parking_.park( tunnelId );
    parking_.settle( tunnelId );
  } else {
    parking_.release( tunnelId );
  }
}

// In the mapping. A zombie that gives its id up to a segment's tunnel leaves it its room too.
bool EvpnHwTunnelIdSm::makeRoom( HwTunnelIdType hwTunnelIdType, bool used ) {
  const auto mapping = tunnelIdHwTunnelId();
  if ( mapping->tunnelIdToHwTunnelIdMakeRoom() ) {
    return true;
  }
  const bool released = used && ( releaseOneZombieTunnelId( hwTunnelIdType ) ||
                                  releaseOneZombieTunnelId( hwTunnelIdTypeDefault ) );
  return released && mapping->tunnelIdToHwTunnelIdMakeRoom();
}

void EvpnHwTunnelIdSm::maybeReprogramHwTunnelId( TunnelId tunnelId ) {
  VEX_ASSERT( initialized() );
  TRACE( 8, "EvpnHwTunnelIdSm::maybeReprogramHwTunnelId tunnelId ", tunnelId );
  const auto tidHwTid = mapped( tunnelId );
  if ( !tidHwTid ) {
    publishHwTunnelId( tunnelId );
    return;
  }
  const auto hwTunnelIdType = neededType( tunnelId );
  const auto oldId = tidHwTid->hwTunnelId;
  if ( oldId.hwTunnelIdType() == hwTunnelIdType ) {
    TRACE( 8, " tunnelId ", tunnelId, " already has HwTunnelId allocated with type ",
           hwTunnelIdType );
    settleLack( tunnelId );
    return;
  }
  if ( hwTunnelIdHelper()->idsStay() ) {
    TRACE( 8, " tunnelId ", tunnelId, " keeps ", oldId, ", ids stay" );
    settleLack( tunnelId );
    return;
  }
  const bool used = usedBySegment( tunnelId );
  const auto newId = getHwTunnelId( hwTunnelIdType, used, tunnelId );
  TRACE( 8, " tunnelId ", tunnelId, " oldHwTunnelId ", oldId, " oldHwTunnelIdType ",
         oldId.hwTunnelIdType(), " newHwTunnelId ", newId, " newHwTunnelIdType ", hwTunnelIdType,
         " hwTunnelIdValid ", newId.valid() );
  if ( !newId.valid() ) {
    settleLack( tunnelId );
    return;
  }
  // In this order no reader ever holds an id that was given back.
  tunnelIdHwTunnelId()->tunnelIdToHwTunnelIdIs( { tunnelId, newId } );
  hwTunnelIdHelper()->releaseHwTunnelId( oldId );
  if ( !used ) {
    zombieTunnelIdIs( oldId.hwTunnelIdType() )->tunnelIdDel( tunnelId );
    zombieTunnelIdIs( hwTunnelIdType )->tunnelIdIs( tunnelId );
  }
  settleLack( tunnelId );
  parking_.freed();
}

HwTunnelId EvpnHwTunnelIdSm::getHwTunnelId( HwTunnelIdType hwTunnelIdType,
                                            bool attemptZombieRelease, TunnelId tunnelId ) {
  VEX_ASSERT( initialized() );
  TRACE( 8, "EvpnHwTunnelIdSm::getHwTunnelId hwTunnelIdType ", hwTunnelIdType,
         " attemptZombieRelease ", attemptZombieRelease );
  const auto hwTunnelId = hwTunnelIdHelper()->getHwTunnelIdForTunnel( hwTunnelIdType, tunnelId );
  if ( hwTunnelId.valid() || !attemptZombieRelease ||
       !releaseOneZombieTunnelId( hwTunnelIdType ) ) {
    return hwTunnelId;
  }
  return hwTunnelIdHelper()->getHwTunnelIdForTunnel( hwTunnelIdType, tunnelId );
}

bool EvpnHwTunnelIdSm::releaseOneZombieTunnelId( HwTunnelIdType hwTunnelIdType ) {
  VEX_ASSERT( initialized() );
  if ( hwTunnelIdHelper()->idsStay() ) {
    TRACE( 8, "EvpnHwTunnelIdSm::releaseOneZombieTunnelId", hwTunnelIdType, " ids stay " );
    return false;
  }
  const auto zombies = zombieTunnelId( hwTunnelIdType );
  if ( !zombies || zombies->tunnelIds() == 0 ) {
    TRACE( 8, "EvpnHwTunnelIdSm::releaseOneZombieTunnelId", hwTunnelIdType,
           zombies ? " collection empty " : " not in zombieTunnelId collection " );
    return false;
  }
  const TunnelId tunnelId = *zombies->tunnelId().begin();
  TRACE( 8, "EvpnHwTunnelIdSm::releaseOneZombieTunnelId hwTunnelIdType ", hwTunnelIdType,
         " tunnelId ", tunnelId );
  const auto tidHwTid = mapped( tunnelId );
  VEX_ASSERT( !!tidHwTid );
  tunnelIdHwTunnelId()->tunnelIdToHwTunnelIdDel( tunnelId );
  hwTunnelIdHelper()->releaseHwTunnelId( tidHwTid->hwTunnelId );
  zombies->tunnelIdDel( tunnelId );
  settleLack( tunnelId );
  return true;
}

// --- Tunnels that wait for an id

void EvpnHwTunnelIdSm::doReviewUnprogrammed() {
  TRACE( 8, "doReviewUnprogrammed" );
  parking_.review( [ this ]( TunnelId tunnelId ) {
    if ( isWanted( tunnelId ) ) {
      publishHwTunnelId( tunnelId );
    } else {
      parking_.release( tunnelId );
    }
  } );
}

} // namespace Kez
