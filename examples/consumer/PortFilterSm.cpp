#include "PortFilterSm.h"

namespace Example {

static Ringlog::Handle traceHandle( "PortFilterSm" );

PortFilterSm::PortFilterSm( const Vex::Ptr< PortFilterHelper > & helper,
                            const Vex::Ptr< Loom::TaskScheduler > & scheduler,
                            const Vex::Ptr< const Evpn::EvpnStatus > & evpnStatus )
    : RetryingSm( traceHandle ), helper_( helper ), scheduler_( scheduler ),
      evpnStatus_( evpnStatus ), evpnStatusReactor_( *this ) {
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
  unprogrammedDel( intfId );
  const auto rc = helper()->createFilter( intfId );
  TRACE( 5, "createFilter ", intfId, " ", rc );
  if ( rc == Kez::HwProgrammingStatus::programmed ) {
    programmedIs( intfId );
  } else {
    unprogrammedIs( intfId );
    maybeScheduleUnprogrammedReview( false );
  }
  attempted( intfId, unprogrammedHas( intfId ) );
}

void PortFilterSm::unprogramFilter( Wire::IntfId intfId ) {
  VEX_ASSERT( initialized() );
  unprogrammedDel( intfId );
  attempted( intfId, false );
  if ( !programmedHas( intfId ) ) {
    return;
  }
  helper()->deleteFilter( intfId );
  programmedDel( intfId );
  if ( unprogrammeds() > 0 ) {
    maybeScheduleUnprogrammedReview( true );
  }
}

void PortFilterSm::maybeScheduleUnprogrammedReview( bool immediate ) {
  TRACE( 8, "maybeScheduleUnprogrammedReview" );
  VEX_ASSERT( initialized() );
  reviewUnprogrammed()->maybeSchedule( immediate, defaultUnprogrammedRetryInterval() );
}

void PortFilterSm::doReviewUnprogrammed() {
  TRACE( 8, "doReviewUnprogrammed" );
  VEX_ASSERT( initialized() );
  const auto task = reviewUnprogrammed();
  VEX_ASSERT( task );
  const bool ended = task->review(
      unprogrammed(), [ this ]( Wire::IntfId intfId ) { programFilter( intfId ); },
      defaultUnprogrammedRetryInterval() );
  if ( ended && unprogrammeds() > 0 && !task->isScheduled() ) {
    maybeScheduleUnprogrammedReview( false );
  }
}

} // namespace Example
