#include "PortFilterSm.h"

namespace Example {

static Ringlog::Handle traceHandle( "PortFilterSm" );

PortFilterSm::PortFilterSm( Kez::Out< PortFilterHelper > helper,
                            Kez::Out< Loom::TaskScheduler > scheduler,
                            Kez::In< Evpn::EvpnStatus > evpnStatus )
    : RetryingSm( traceHandle, { Kez::Retry::afterRefusal, Kez::Resume::atBookmark } ),
      helper_( helper ), scheduler_( scheduler ), evpnStatus_( evpnStatus ),
      parking_( *this, *this, unprogrammed_, unprogrammedAttr ), evpnStatusReactor_( *this ) {
  evpnStatusReactor_.notifierIs( evpnStatus );
}

void PortFilterSm::VexEvpnStatus::onAttribute( Vex::AttrId id, const void * key ) {
  if ( id == Evpn::EvpnStatus::encapBumFilterAttr ) {
    sm()->handleEncapBumFilter( Evpn::EvpnStatus::encapBumFilterAttr.key( key ) );
  }
}

void PortFilterSm::handleInitialized() {
  TRACE( 8, "handleInitialized" );
  reviewUnprogrammedIs( scheduler(), 2, "reviewUnprogrammed" );
  initializedIs( true );
  for ( const auto intfId : evpnStatus()->encapBumFilter() ) {
    handleEncapBumFilter( intfId );
  }
}

void PortFilterSm::handleEncapBumFilter( Wire::IntfId intfId ) {
  if ( !initialized() ) {
    return;
  }
  TRACE( 8, "handleEncapBumFilter intf ", intfId );
  if ( evpnStatus()->encapBumFilterHas( intfId ) ) {
    programFilter( intfId );
  } else {
    unprogramFilter( intfId );
  }
}

void PortFilterSm::programFilter( Wire::IntfId intfId ) {
  VEX_ASSERT( initialized() );
  if ( programmedHas( intfId ) ) {
    return;
  }
  parking_.unpark( intfId );
  const auto rc = helper()->createFilter( intfId );
  TRACE( 5, "createFilter ", intfId, " ", rc );
  if ( rc == Kez::HwProgrammingStatus::programmed ) {
    programmedIs( intfId );
  } else {
    parking_.park( intfId );
  }
  parking_.settle( intfId );
}

void PortFilterSm::unprogramFilter( Wire::IntfId intfId ) {
  VEX_ASSERT( initialized() );
  parking_.release( intfId );
  if ( !programmedHas( intfId ) ) {
    return;
  }
  helper()->deleteFilter( intfId );
  programmedDel( intfId );
  parking_.freed();
}

void PortFilterSm::doReviewUnprogrammed() {
  TRACE( 8, "doReviewUnprogrammed" );
  parking_.review( [ this ]( Wire::IntfId intfId ) { programFilter( intfId ); } );
}

// Of an interface in a VLAN, whichever: the filter is the interface's.
void PortFilterSm::explain( const Kez::Subject & subject, Kez::Explanation & out ) const {
  const auto * const pair = subject.get< Kez::IntfVlanKey >();
  if ( !initialized() || !pair ) {
    return;
  }
  const bool wanted = evpnStatus()->encapBumFilterHas( pair->intfId );
  out.say( wanted ? "filtered" : "not filtered",
           programmedHas( pair->intfId ) ? ", in hardware" : ", not in hardware" );
  explainRefusal( pair->intfId, out );
}

void PortFilterSm::addMissing( Kez::Missing & out ) const {
  for ( const auto intfId : parking_.range() ) {
    addRefusal( intfId, intfId, out );
  }
}

void PortFilterSm::check( Kez::Findings & out ) const {
  RetryingSm::check( out );
  parking_.check( out );
  for ( const auto intfId : unprogrammed() ) {
    out.expect( !programmedHas( intfId ), intfId, " is parked and programmed" );
    out.expect( evpnStatus()->encapBumFilterHas( intfId ), intfId, " is parked and not wanted" );
  }
}

} // namespace Example
