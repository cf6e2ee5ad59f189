#include "KezEvpn/KezEvpnFloodingEsiSm.h"

namespace Kez {

static Ringlog::Handle traceHandle( "KezEvpnFloodingEsiSm" );

using Bridging::VlanId;
using Wire::IntfId;
using Wire::MplsLabel;

static constexpr PortTexts esiPortTexts{
  .noLagConfiguration = "no lag configuration",
  .noLagMembers = "no lag members",
  .alreadyProgrammed = "already programmed",
  .programmed = "programmed esi",
  .failed = "failed to program esi",
  .invalidHwId = "invalid hwId, failed to program",
  .operation = "createEsiData",
};

EvpnFloodingEsiSm::EvpnFloodingEsiSm( Out< KezHelper::EvpnFloodingSmHelper > floodingHelper,
                                      Out< Loom::TaskScheduler > scheduler,
                                      In< EvpnLagMemberInfo > evpnLagMemberInfo,
                                      In< Evpn::EvpnStatus > evpnStatus,
                                      In< TunnelIdToHwTunnelIdMapping > tunnelIdHwTunnelId )
    : PortProgrammingSm( traceHandle, { Retry::afterRefusal, Resume::atFirst }, floodingHelper,
                         scheduler, evpnLagMemberInfo, evpnStatus ),
      tunnelIdHwTunnelId_( tunnelIdHwTunnelId ),
      parking_( *this, *this, unprogrammedEsi_, unprogrammedEsiAttr ),
      ports_( *this, esiStatus_, parking_, this->evpnLagMemberInfo(), esiPortTexts ),
      evpnStatusReactor_( *this ), tunnelIdHwTunnelIdReactor_( *this ) {
  evpnStatusReactor_.notifierIs( evpnStatus );
  tunnelIdHwTunnelIdReactor_.notifierIs( tunnelIdHwTunnelId );
  watchLagPorts();
}

Vex::Ptr< EvpnFloodingEsiSm > evpnFloodingEsiSmFactory(
    Out< KezHelper::EvpnFloodingSmHelper > floodingHelper, Out< Loom::TaskScheduler > scheduler,
    In< EvpnLagMemberInfo > evpnLagMemberInfo, In< Evpn::EvpnStatus > evpnStatus,
    In< TunnelIdToHwTunnelIdMapping > tunnelIdHwTunnelId ) {
  return Vex::makePtr< EvpnFloodingEsiSm >( floodingHelper, scheduler, evpnLagMemberInfo,
                                            evpnStatus, tunnelIdHwTunnelId );
}

// --- What is heard

void EvpnFloodingEsiSm::VexEvpnStatus::onAttribute( Vex::AttrId id, const void * key ) {
  MirrorReactor::onAttribute( id, key );
  if ( id == Evpn::EvpnStatus::localEsiLabelAttr ) {
    sm()->handleLocalEsiLabel( Evpn::EvpnStatus::localEsiLabelAttr.key( key ) );
  }
}

void EvpnFloodingEsiSm::VexSegmentStatus::handleNotifier() {
  sm()->vex_handleSegmentStatus( *this );
}

void EvpnFloodingEsiSm::VexSegmentStatus::onAttribute( Vex::AttrId id, const void * key ) {
  if ( id == Evpn::EthernetSegmentStatus::remoteEsiLabelAttr ) {
    handleLabel( Evpn::EthernetSegmentStatus::remoteEsiLabelAttr.key( key ) );
  } else if ( id == Evpn::EthernetSegmentStatus::designatedForwarderTepAttr ) {
    handleDFTep( Evpn::EthernetSegmentStatus::designatedForwarderTepAttr.key( key ) );
  }
}

void EvpnFloodingEsiSm::VexTunnelIdHwTunnelId::onAttribute( Vex::AttrId id, const void * key ) {
  if ( id == TunnelIdToHwTunnelIdMapping::tunnelIdToHwTunnelIdAttr ) {
    sm()->handleTunnelIdMapping( TunnelIdToHwTunnelIdMapping::tunnelIdToHwTunnelIdAttr.key( key ) );
  }
}

// --- Handlers

void EvpnFloodingEsiSm::handleInitialized() {
  TRACE( 8, "handleInitialized" );
  VEX_ASSERT( floodingHelper() );
  VEX_ASSERT( scheduler() );
  VEX_ASSERT( evpnStatus() );
  VEX_ASSERT( tunnelIdHwTunnelId() );
  VEX_ASSERT( evpnLagMemberInfo() );
  reviewUnprogrammedIs( scheduler(), 2, "reviewUnprogrammed" );
  initializedIs( true );
  makeRoomForPairs();
  for ( const auto & [ intfId, reactor ] : segmentStatus() ) {
    const auto status = reactor->notifier();
    for ( const auto [ vlanId, dfTepIntfId ] : status->designatedForwarderTep() ) {
      addIntfVlanMapping( intfId, vlanId );
    }
  }
}

void EvpnFloodingEsiSm::makeRoomForPairs() {
  size_t pairs = 0;
  for ( const auto & [ intfId, reactor ] : segmentStatus() ) {
    pairs += reactor->notifier()->designatedForwarderTeps();
  }
  intfVlanTunnel_.reserve( pairs );
  intfVlanTunnelLabel_.reserve( pairs );
  esiStatus_.reserve( pairs );
}

void EvpnFloodingEsiSm::VexSegmentStatus::handleSegmentStatus() {
  const auto sm = this->sm();
  if ( !sm->initialized() ) {
    return;
  }
  const auto intf = intfId();
  TRACE( 8, "EvpnFloodingEsiSm::VexSegmentStatus::handleSegmentStatus intfId ", intf );
  const auto status = sm->evpnStatus()->ethernetSegmentStatus( intf );
  if ( status ) {
    for ( const auto [ vlanId, dfTepIntfId ] : status->designatedForwarderTep() ) {
      sm->addIntfVlanMapping( intf, vlanId );
    }
  }
  // A VLAN may also have left unheard, under a zombie mark.
  if ( const auto vlans = sm->intfVlanSet( intf ) ) {
    for ( const auto vlanId : vlans->vlanId() ) {
      if ( !status || !status->designatedForwarderTepHas( vlanId ) ) {
        sm->deleteIntfVlanMapping( intf, vlanId );
      }
    }
  }
}

void EvpnFloodingEsiSm::VexSegmentStatus::handleDFTep( VlanId vlanId ) {
  const auto sm = this->sm();
  if ( !sm->initialized() ) {
    return;
  }
  TRACE( 8, "EvpnFloodingEsiSm::VexSegmentStatus::handleDFTep intfId ", intfId(), " vlanId ",
         vlanId );
  if ( notifier()->designatedForwarderTepHas( vlanId ) ) {
    sm->addIntfVlanMapping( intfId(), vlanId );
  } else {
    sm->deleteIntfVlanMapping( intfId(), vlanId );
  }
}

void EvpnFloodingEsiSm::VexSegmentStatus::handleLabel( IntfId tepIntfId ) {
  const auto sm = this->sm();
  if ( !sm->initialized() ) {
    return;
  }
  const auto intf = intfId();
  const auto tunnelId = srTeOrDynamicTunnelIntfIdToTunnelId( tepIntfId );
  TRACE( 8, "EvpnFloodingEsiSm::VexSegmentStatus::handleLabel", " tunnel", tunnelId, ", intfId",
         intf );
  sm->processVlans( intf, sm->intfTunnelVlanSet( { intf, tunnelId } ) );
}

void EvpnFloodingEsiSm::handleLocalEsiLabel( IntfId intfId ) {
  if ( !initialized() ) {
    return;
  }
  TRACE( 8, "handleLocalEsiLabel intfId ", intfId );
  const auto vlans = intfVlanSet( intfId );
  if ( !vlans ) {
    return;
  }
  for ( const auto vlanId : vlans->vlanId() ) {
    if ( localEsiLabelPublished( intfId ) ) {
      addIntfVlanMapping( intfId, vlanId );
    } else {
      deleteIntfVlanTunnelMapping( intfId, vlanId );
    }
  }
}

void EvpnFloodingEsiSm::handleLagPort( IntfId lagIntfId ) {
  if ( !initialized() ) {
    return;
  }
  TRACE( 8, "handleLagPort intfId ", lagIntfId );
  processVlans( lagIntfId, intfVlanSet( lagIntfId ) );
}

void EvpnFloodingEsiSm::handleTunnelIdMapping( const TunnelId & tunnelId ) {
  if ( !initialized() ) {
    return;
  }
  TRACE( 8, "handleTunnelIdMapping tunnelId ", tunnelId );
  const auto intfVlans = tunnelIntfVlanSet( tunnelId );
  if ( !intfVlans ) {
    return;
  }
  const bool published = mapped( tunnelId ).has_value();
  for ( const auto [ intfId, vlanId ] : intfVlans->intfVlan() ) {
    if ( published ) {
      addIntfVlanMapping( intfId, vlanId );
    } else {
      deleteIntfVlanTunnelLabelMapping( intfId, vlanId, tunnelId );
    }
  }
}

// Every pair has been looked at; an input that it lacks now may have gone unheard.
void EvpnFloodingEsiSm::makeUpForZombieMark() {
  for ( const auto & [ intfId, vlans ] : intfVlanSet() ) {
    if ( !localEsiLabelPublished( intfId ) ) {
      handleLocalEsiLabel( intfId );
    }
  }
  for ( const auto & [ tunnelId, intfVlans ] : tunnelIntfVlanSet() ) {
    if ( !mapped( tunnelId ) ) {
      handleTunnelIdMapping( tunnelId );
    }
  }
}

void EvpnFloodingEsiSm::doReviewUnprogrammed() {
  TRACE( 8, "doReviewUnprogrammed" );
  parking_.review( [ this ]( const IntfVlanKey & key ) {
    const auto es = esiStatus( key );
    VEX_ASSERT( es );
    VEX_ASSERT( es->unprogrammeds() );
    processIntfVlan( key.intfId, key.vlanId );
  } );
}

// Every pair is looked at again, at once.
void EvpnFloodingEsiSm::tunableChanged( bool follows ) {
  if ( !follows || !initialized() ) {
    return;
  }
  for ( const auto & [ intfId, vlans ] : intfVlanSet() ) {
    processVlans( intfId, vlans );
  }
}

// --- A pair

void EvpnFloodingEsiSm::addIntfVlanMapping( IntfId intfId, VlanId vlanId ) {
  VEX_ASSERT( initialized() );
  TRACE( 8, "addIntfVlanMapping intfId ", intfId, " vlanId ", vlanId );
  addToIndex( intfId, vlanId );
  processIntfVlan( intfId, vlanId );
}

void EvpnFloodingEsiSm::deleteIntfVlanMapping( IntfId intfId, VlanId vlanId ) {
  VEX_ASSERT( initialized() );
  TRACE( 8, "deleteIntfVlanMapping intfId ", intfId, " vlanId ", vlanId );
  removeFromIndex( intfId, vlanId );
  processIntfVlan( intfId, vlanId );
}

void EvpnFloodingEsiSm::processIntfVlan( IntfId intfId, VlanId vlanId ) {
  VEX_ASSERT( initialized() );
  const auto [ lack, dfTepIntfId, remoteLabel ] = decide( { intfId, vlanId } );
  if ( lack == Lack::segment ) {
    TRACE( 5, "no segment status" );
    deleteIntfVlanTunnelMapping( intfId, vlanId );
    return;
  }
  if ( lack == Lack::designatedForwarder ) {
    TRACE( 5, "no designated forwarder tep" );
    deleteIntfVlanTunnelMapping( intfId, vlanId );
    return;
  }
  const auto tunnelId = srTeOrDynamicTunnelIntfIdToTunnelId( dfTepIntfId );
  TRACE( 8, "processIntfVlan", " dfTepIntfId ", dfTepIntfId, ", tunnelId ", tunnelId );
  addOrUpdateIntfVlanTunnelMapping( intfId, vlanId, tunnelId );
  if ( lack == Lack::remoteLabel ) {
    TRACE( 5, "no esi label" );
    deleteIntfVlanTunnelLabelMapping( intfId, vlanId, tunnelId );
  } else if ( lack == Lack::usableLabel ) {
    TRACE( 5, "incorrect encap type", uint32_t( remoteLabel.encapType() ) );
    if ( unprogramUnusableLabel() ) {
      deleteIntfVlanTunnelLabelMapping( intfId, vlanId, tunnelId );
    } else {
      ports_.waitForInput( { intfId, vlanId } );
    }
  } else {
    addOrUpdateIntfVlanTunnelLabelMapping( intfId, vlanId, tunnelId, remoteLabel.mplsLabel() );
  }
  if ( reprogramChangedEsi() ) {
    dropPortsOfOtherHwTunnelId( { intfId, vlanId } );
  }
}

// --- Its tunnel

void EvpnFloodingEsiSm::addOrUpdateIntfVlanTunnelMapping( IntfId intfId, VlanId vlanId,
                                                          TunnelId tunnelId ) {
  VEX_ASSERT( initialized() );
  const IntfVlanKey key{ intfId, vlanId };
  if ( intfVlanTunnel( key ) == tunnelId && intfVlanTunnelHas( key ) ) {
    return;
  }
  if ( intfVlanTunnelHas( key ) ) {
    if ( floodingHelper()->updateSupportedOnCreateEsiData() ) {
      const auto old = intfVlanTunnel( key );
      deleteTriple( key, old );
      intfVlanTunnelLabelDel( { intfId, vlanId, old } );
      ports_.forceReprogram( key );
    } else {
      deleteIntfVlanTunnelMapping( intfId, vlanId );
    }
  }
  intfVlanTunnelIs( key, tunnelId );
  tunnelIntfVlanSetIs( tunnelId )->intfVlanIs( key );
  intfTunnelVlanSetIs( { intfId, tunnelId } )->vlanIdIs( vlanId );
}

void EvpnFloodingEsiSm::deleteIntfVlanTunnelMapping( IntfId intfId, VlanId vlanId ) {
  VEX_ASSERT( initialized() );
  const IntfVlanKey key{ intfId, vlanId };
  if ( !intfVlanTunnelHas( key ) ) {
    return;
  }
  const auto tunnelId = intfVlanTunnel( key );
  deleteTriple( key, tunnelId );
  deleteIntfVlanTunnelLabelMapping( intfId, vlanId, tunnelId );
}

void EvpnFloodingEsiSm::deleteTriple( const IntfVlanKey & key, TunnelId tunnelId ) {
  intfVlanTunnelDel( key );
  const IntfTunnelKey intfTunnel{ key.intfId, tunnelId };
  const auto itvs = intfTunnelVlanSet( intfTunnel );
  VEX_ASSERT( itvs );
  intfTunnelVlanSetMemberDel( intfTunnel, key.vlanId );
  const auto tivs = tunnelIntfVlanSet( tunnelId );
  VEX_ASSERT( tivs );
  tunnelIntfVlanSetMemberDel( tunnelId, key );
}

// --- Its label

void EvpnFloodingEsiSm::addOrUpdateIntfVlanTunnelLabelMapping( IntfId intfId, VlanId vlanId,
                                                               TunnelId tunnelId,
                                                               MplsLabel label ) {
  VEX_ASSERT( initialized() );
  const IntfVlanTunnelKey key{ intfId, vlanId, tunnelId };
  if ( intfVlanTunnelLabelHas( key ) && intfVlanTunnelLabel( key ) != label ) {
    if ( floodingHelper()->updateSupportedOnCreateEsiData() ) {
      ports_.forceReprogram( { intfId, vlanId } );
    } else {
      deleteIntfVlanTunnelLabelMapping( intfId, vlanId, tunnelId );
    }
  }
  intfVlanTunnelLabelIs( key, label );
  programEsi( intfId, vlanId, label );
}

void EvpnFloodingEsiSm::deleteIntfVlanTunnelLabelMapping( IntfId intfId, VlanId vlanId,
                                                          TunnelId tunnelId ) {
  VEX_ASSERT( initialized() );
  intfVlanTunnelLabelDel( { intfId, vlanId, tunnelId } );
  unprogramEsi( intfId, vlanId );
}

// --- Its ports

void EvpnFloodingEsiSm::programEsi( IntfId intfId, VlanId vlanId, MplsLabel label ) {
  VEX_ASSERT( initialized() );
  TRACE( 8, "programEsi intfId ", intfId, " vlanId ", vlanId, " label ", label );
  const auto ports = ports_.portsOf( intfId );
  if ( !ports ) {
    unprogramEsi( intfId, vlanId );
    return;
  }
  const auto forceMark = floodingHelper()->updateSupportedOnCreateEsiData()
                             ? ForceMark::programOver
                             : ForceMark::removeFirst;
  const IntfVlanKey key{ intfId, vlanId };
  if ( reprogramChangedEsi() ) {
    for ( const auto port : changedPorts( key, Changed::any ) ) {
      ports_.forceReprogram( key, port );
    }
  }
  const bool dropped =
      ports_.dropStalePorts( key, *ports, forceMark, [ & ]( IntfId port, bool isPort ) {
        if ( !isPort ) {
          TRACE( 5, "stale lag member, delete" );
        }
        unprogramEsiHelper( intfId, port, vlanId );
      } );
  if ( dropped ) {
    parking_.freed();
  }
  const auto asked = askedFor( key );
  ports_.programPorts( key, *ports,
                       [ & ]( IntfId port ) { programEsiPort( key, port, label, asked ); } );
}

EvpnFloodingEsiSm::Asked EvpnFloodingEsiSm::askedFor( const IntfVlanKey & key ) const {
  VEX_ASSERT( intfVlanTunnelHas( key ) );
  const auto tunnelId = intfVlanTunnel( key );
  const auto mapping = mapped( tunnelId );
  const auto lack = portLackOf( key.intfId, mapping.has_value() );
  if ( lack != PortLack::nothing ) {
    return { tunnelId, lack, {} };
  }
  const IntfVlanTunnelKey labelKey{ key.intfId, key.vlanId, tunnelId };
  VEX_ASSERT( intfVlanTunnelLabelHas( labelKey ) );
  return { tunnelId,
           lack,
           { mapping->hwTunnelId, evpnStatus()->localEsiLabel( key.intfId ).mplsLabel() } };
}

void EvpnFloodingEsiSm::programEsiHelper( IntfId logicalIntfId, IntfId phyIntfId, VlanId vlanId,
                                          MplsLabel label ) {
  VEX_ASSERT( initialized() );
  const IntfVlanKey key{ logicalIntfId, vlanId };
  programEsiPort( key, phyIntfId, label, askedFor( key ) );
}

void EvpnFloodingEsiSm::programEsiPort( const IntfVlanKey & key, IntfId phyIntfId, MplsLabel label,
                                        const Asked & asked ) {
  const auto [ logicalIntfId, vlanId ] = key;
  TRACE( 8, "programEsiHelper logicalIntfId ", logicalIntfId, " phyIntfId ", phyIntfId, " vlanId ",
         vlanId, " label ", label );
  if ( asked.lack == PortLack::hwTunnelId ) {
    TRACE( 5, "hw tunnel id not published" );
    return;
  }
  if ( asked.lack == PortLack::localLabel ) {
    TRACE( 5, "local label not published" );
    return;
  }
  ports_.programPort( key, { phyIntfId, asked.ids }, [ & ] {
    return floodingHelper()->createEsiData( key.intfId, phyIntfId, key.vlanId, asked.tunnelId,
                                            asked.ids.hwTunnelId, label, asked.ids.localEsiLabel );
  } );
}

// Data that could not be written over, or that waits for it, must not outlive its tunnel's hardware
// id, which another tunnel may get.
void EvpnFloodingEsiSm::dropPortsOfOtherHwTunnelId( const IntfVlanKey & key ) {
  const auto ports = changedPorts( key, Changed::hwTunnelId );
  for ( const auto port : ports ) {
    ports_.dropPort( key, port, [ & ] { deleteEsiData( key, port ); } );
  }
  if ( !ports.empty() ) {
    parking_.freed();
  }
}

void EvpnFloodingEsiSm::unprogramEsi( IntfId intfId, VlanId vlanId ) {
  VEX_ASSERT( initialized() );
  TRACE( 8, "unprogramEsi intfId ", intfId, " vlanId ", vlanId );
  const bool any = ports_.unprogramPorts(
      { intfId, vlanId }, [ & ]( IntfId port ) { unprogramEsiHelper( intfId, port, vlanId ); } );
  if ( any ) {
    parking_.freed();
  } else {
    TRACE( 5, "not programmed" );
  }
}

void EvpnFloodingEsiSm::unprogramEsiHelper( IntfId logicalIntfId, IntfId phyIntfId,
                                            VlanId vlanId ) {
  VEX_ASSERT( initialized() );
  TRACE( 8, "unprogramEsiHelper logicalIntfId ", logicalIntfId, " phyIntfId ", phyIntfId,
         " vlanId ", vlanId );
  const IntfVlanKey key{ logicalIntfId, vlanId };
  const bool programmed =
      ports_.unprogramPort( key, phyIntfId, [ & ] { deleteEsiData( key, phyIntfId ); } );
  if ( !programmed ) {
    TRACE( 5, "not programmed" );
  }
}

void EvpnFloodingEsiSm::deleteEsiData( const IntfVlanKey & key, IntfId port ) {
  // Hardware finds the entry by the ports and the VLAN.
  floodingHelper()->deleteEsiData( key.intfId, port, key.vlanId, TunnelId::invalid(),
                                   HwTunnelId() );
}

} // namespace Kez
