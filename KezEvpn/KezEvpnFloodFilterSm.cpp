#include "KezEvpn/KezEvpnFloodFilterSm.h"

namespace Kez {

static Ringlog::Handle traceHandle( "KezEvpnFloodFilterSm" );

static constexpr PortTexts nonDfPortTexts{ .operation = "createNonDfPort" };

KezEvpnFloodFilterSm::KezEvpnFloodFilterSm( Out< KezHelper::EvpnFloodingSmHelper > floodingHelper,
                                            Out< Loom::TaskScheduler > scheduler,
                                            In< EvpnLagMemberInfo > evpnLagMemberInfo,
                                            In< Evpn::EvpnStatus > evpnStatus )
    : PortProgrammingSm( traceHandle, { Retry::afterRefusal, Resume::atBookmark }, floodingHelper,
                         scheduler, evpnLagMemberInfo, evpnStatus ),
      parking_( *this, *this, unprogrammedFilter_, unprogrammedFilterAttr ),
      ports_( *this, programmedStatus_, parking_, this->evpnLagMemberInfo(), nonDfPortTexts ),
      evpnStatusReactor_( *this ) {
  evpnStatusReactor_.notifierIs( evpnStatus );
  watchLagPorts();
}

Vex::Ptr< KezEvpnFloodFilterSm > kezEvpnFloodFilterSmFactory(
    Out< KezHelper::EvpnFloodingSmHelper > floodingHelper, Out< Loom::TaskScheduler > scheduler,
    In< EvpnLagMemberInfo > evpnLagMemberInfo, In< Evpn::EvpnStatus > evpnStatus ) {
  return Vex::makePtr< KezEvpnFloodFilterSm >( floodingHelper, scheduler, evpnLagMemberInfo,
                                               evpnStatus );
}

void KezEvpnFloodFilterSm::VexEvpnVlanFloodStatus::handleNotifier() {
  sm()->vex_handleEvpnVlanFloodStatus( *this );
}

void KezEvpnFloodFilterSm::VexEvpnVlanFloodStatus::onAttribute( Vex::AttrId id, const void * key ) {
  if ( id == Evpn::EvpnVlanFloodStatus::floodFilterAttr ) {
    handleFloodFilter( Evpn::EvpnVlanFloodStatus::floodFilterAttr.key( key ) );
  }
}

void KezEvpnFloodFilterSm::handleInitialized() {
  TRACE( 8, "KezEvpnFloodFilterSm::handleInitialized" );
  VEX_ASSERT( evpnLagMemberInfo() );
  VEX_ASSERT( evpnStatus() );
  VEX_ASSERT( scheduler() );
  VEX_ASSERT( floodingHelper() );
  reviewUnprogrammedIs( scheduler(), 2, "reviewUnprogrammed" );
  initializedIs( true );
  size_t pairs = 0;
  for ( const auto & [ vlanId, reactor ] : evpnVlanFloodStatus() ) {
    pairs += reactor->evpnVlanFloodStatus()->floodFilters();
  }
  programmedStatus_.reserve( pairs );
  for ( const auto & [ vlanId, reactor ] : evpnVlanFloodStatus() ) {
    reactor->handleEvpnVlanFloodStatus();
  }
}

void KezEvpnFloodFilterSm::VexEvpnVlanFloodStatus::handleEvpnVlanFloodStatus() {
  const auto sm = this->sm();
  const auto vlan = vlanId();
  if ( !sm->initialized() ) {
    return;
  }
  const auto floodStatus = sm->evpnStatus()->evpnVlanFloodStatus( vlan );
  TRACE( 8, "KezEvpnFloodFilterSm::VexEvpnVlanFloodStatus::handleEvpnVlanFloodStatus vlanId ", vlan,
         " add ", bool( floodStatus ) );
  if ( floodStatus ) {
    for ( const auto intfId : floodStatus->floodFilter() ) {
      sm->processIntfVlan( intfId, vlan );
    }
  }
  // What left the filter may have done so unheard, under a zombie mark.
  if ( const auto intfs = sm->vlanIntfSet( vlan ) ) {
    for ( const auto intfId : intfs->intfId() ) {
      if ( !floodStatus || !floodStatus->floodFilterHas( intfId ) ) {
        sm->processIntfVlan( intfId, vlan );
      }
    }
  }
}

void KezEvpnFloodFilterSm::VexEvpnVlanFloodStatus::handleFloodFilter( Wire::IntfId intfId ) {
  const auto sm = this->sm();
  if ( !sm->initialized() ) {
    return;
  }
  TRACE( 8, "KezEvpnFloodFilterSm::VexEvpnVlanFloodStatus::handleFloodFilter intfId ", intfId );
  sm->processIntfVlan( intfId, vlanId() );
}

void KezEvpnFloodFilterSm::handleLagPort( Wire::IntfId intfId ) {
  if ( !initialized() ) {
    return;
  }
  TRACE( 8, "KezEvpnFloodFilterSm::handleLagPort intfId ", intfId );
  if ( const auto vlans = intfVlanSet( intfId ) ) {
    for ( const auto vlanId : vlans->vlanId() ) {
      processIntfVlan( intfId, vlanId );
    }
  }
}

void KezEvpnFloodFilterSm::processIntfVlan( Wire::IntfId intfId, Bridging::VlanId vlanId ) {
  VEX_ASSERT( initialized() );
  const auto vlanFloodStatus = evpnStatus()->evpnVlanFloodStatus( vlanId );
  const bool floodFilterApplied = vlanFloodStatus && vlanFloodStatus->floodFilterHas( intfId );
  TRACE( 5, "KezEvpnFloodFilterSm::processIntfVlan intfId ", intfId, " vlanId ", vlanId,
         " vlanFloodStatus exists ", bool( vlanFloodStatus ), " floodFilterApplied ",
         floodFilterApplied );
  if ( floodFilterApplied ) {
    addIntfVlanMapping( intfId, vlanId );
    programFloodFilter( intfId, vlanId );
  } else {
    deleteIntfVlanMapping( intfId, vlanId );
    unprogramFloodFilter( intfId, vlanId );
  }
}

void KezEvpnFloodFilterSm::addIntfVlanMapping( Wire::IntfId intfId, Bridging::VlanId vlanId ) {
  VEX_ASSERT( initialized() );
  addToIndex( intfId, vlanId );
}

void KezEvpnFloodFilterSm::deleteIntfVlanMapping( Wire::IntfId intfId, Bridging::VlanId vlanId ) {
  VEX_ASSERT( initialized() );
  removeFromIndex( intfId, vlanId );
}

void KezEvpnFloodFilterSm::programFloodFilter( Wire::IntfId intfId, Bridging::VlanId vlanId ) {
  VEX_ASSERT( initialized() );
  TRACE( 5, "KezEvpnFloodFilterSm::programFloodFilter intfId ", intfId, " vlanId ", vlanId );
  const auto ports = ports_.portsOf( intfId );
  if ( !ports ) {
    unprogramFloodFilter( intfId, vlanId );
    return;
  }
  const IntfVlanKey key{ intfId, vlanId };
  const bool dropped =
      ports_.dropStalePorts( key, *ports, ForceMark::removeFirst, [ & ]( Wire::IntfId port, bool ) {
        unprogramFloodFilterHelper( intfId, port, vlanId );
      } );
  if ( dropped ) {
    parking_.freed();
  }
  ports_.programPorts( key, *ports, [ & ]( Wire::IntfId port ) {
    programFloodFilterHelper( intfId, port, vlanId );
  } );
}

void KezEvpnFloodFilterSm::programFloodFilterHelper( Wire::IntfId logIntfId, Wire::IntfId phyIntfId,
                                                     Bridging::VlanId vlanId ) {
  VEX_ASSERT( initialized() );
  TRACE( 9, "KezEvpnFloodFilterSm::programFloodFilterHelper logIntfId ", logIntfId, " phyIntfId ",
         phyIntfId, " vlanId ", vlanId );
  ports_.programPort( { logIntfId, vlanId }, phyIntfId, [ & ] {
    const auto rc = floodingHelper()->createNonDfPort( logIntfId, phyIntfId, vlanId );
    TRACE( 9, "status ", rc );
    return rc;
  } );
}

void KezEvpnFloodFilterSm::unprogramFloodFilter( Wire::IntfId intfId, Bridging::VlanId vlanId ) {
  VEX_ASSERT( initialized() );
  TRACE( 5, "KezEvpnFloodFilterSm::unprogramFloodFilter intfId ", intfId, " vlanId ", vlanId );
  const bool any = ports_.unprogramPorts( { intfId, vlanId }, [ & ]( Wire::IntfId port ) {
    unprogramFloodFilterHelper( intfId, port, vlanId );
  } );
  if ( any ) {
    parking_.freed();
  }
}

void KezEvpnFloodFilterSm::unprogramFloodFilterHelper( Wire::IntfId logIntfId,
                                                       Wire::IntfId phyIntfId,
                                                       Bridging::VlanId vlanId ) {
  VEX_ASSERT( initialized() );
  TRACE( 9, "KezEvpnFloodFilterSm::unprogramFloodFilterHelper logIntfId ", logIntfId, " phyIntfId ",
         phyIntfId, " vlanId ", vlanId );
  const bool programmed = ports_.unprogramPort( { logIntfId, vlanId }, phyIntfId, [ & ] {
    floodingHelper()->deleteNonDfPort( logIntfId, phyIntfId, vlanId );
  } );
  if ( !programmed ) {
    TRACE( 9, "not programmed" );
  }
}

void KezEvpnFloodFilterSm::maybeScheduleUnprogrammedReview( bool immediate ) {
  TRACE( 9, "KezEvpnFloodFilterSm::maybeScheduleUnprogrammedReview immediate ", immediate );
  scheduleUnprogrammedReview( immediate );
}

void KezEvpnFloodFilterSm::doReviewUnprogrammed() {
  TRACE( 8, "doReviewUnprogrammed" );
  parking_.review( [ this ]( const IntfVlanKey & key ) {
    const auto intfVlanStatus = programmedStatus( key );
    VEX_ASSERT( intfVlanStatus );
    VEX_ASSERT( intfVlanStatus->unprogrammeds() );
    processIntfVlan( key.intfId, key.vlanId );
  } );
}

} // namespace Kez
