#include "KezEvpn/PortProgramming.h"

namespace Kez {

PortProgrammingSm::PortProgrammingSm(
    const Traits & traits, const Vex::Ptr< KezHelper::EvpnFloodingSmHelper > & floodingHelper,
    const Vex::Ptr< Loom::TaskScheduler > & scheduler,
    const Vex::Ptr< const EvpnLagMemberInfo > & evpnLagMemberInfo,
    const Vex::Ptr< const Evpn::EvpnStatus > & evpnStatus )
    : RetryingSm( traits.traceHandle ), floodingHelper_( floodingHelper ), scheduler_( scheduler ),
      evpnLagMemberInfo_( evpnLagMemberInfo ), evpnStatus_( evpnStatus ), traits_( traits ),
      evpnLagMemberInfoReactor_( *this ) {}

void PortProgrammingSm::VexEvpnLagMemberInfo::onAttribute( Vex::AttrId id, const void * key ) {
  if ( id == EvpnLagMemberInfo::lagToPortAttr ) {
    sm()->handleLagPort( EvpnLagMemberInfo::lagToPortAttr.key( key ) );
  }
}

void PortProgrammingSm::maybeScheduleUnprogrammedReview( bool immediate ) {
  auto & traceHandle = traits_.traceHandle;
  TRACE( 8, "maybeScheduleUnprogrammedReview immediate ", immediate );
  VEX_ASSERT( initialized() );
  reviewUnprogrammed()->maybeSchedule( immediate, defaultUnprogrammedRetryInterval() );
}

void PortProgrammingSm::doReviewUnprogrammed() {
  auto & traceHandle = traits_.traceHandle;
  TRACE( 8, "doReviewUnprogrammed" );
  VEX_ASSERT( initialized() );
  const auto task = reviewUnprogrammed();
  VEX_ASSERT( task );
  const bool ended = task->review(
      traits_.unprogrammed.members.range(), [ this ]( const IntfVlanKey & key ) { retry( key ); },
      defaultUnprogrammedRetryInterval(), traits_.resume );
  if ( ended && anyParked() && !task->isScheduled() ) {
    maybeScheduleUnprogrammedReview( false );
  }
}

void PortProgrammingSm::reviewParkedAtOnce() {
  if ( anyParked() ) {
    maybeScheduleUnprogrammedReview( true );
  }
}

void PortProgrammingSm::addToIndex( Wire::IntfId intfId, Bridging::VlanId vlanId ) {
  intfVlanSetIs( intfId )->vlanIdIs( vlanId );
  vlanIntfSetIs( vlanId )->intfIdIs( intfId );
}

void PortProgrammingSm::removeFromIndex( Wire::IntfId intfId, Bridging::VlanId vlanId ) {
  if ( const auto vlans = intfVlanSet( intfId ) ) {
    vlans->vlanIdDel( vlanId );
    if ( vlans->vlanIds() == 0 ) {
      intfVlanSetDel( intfId );
    }
  }
  if ( const auto intfs = vlanIntfSet( vlanId ) ) {
    intfs->intfIdDel( intfId );
    if ( intfs->intfIds() == 0 ) {
      vlanIntfSetDel( vlanId );
    }
  }
}

std::optional< KezPortList > PortProgrammingSm::portsOf( Wire::IntfId intfId ) const {
  if ( !isLag( intfId ) ) {
    KezPortList itself;
    itself.portIs( intfId, true );
    return itself;
  }
  if ( !evpnLagMemberInfo()->lagToPortHas( intfId ) ) {
    say( traits_.texts.noLagConfiguration );
    return std::nullopt;
  }
  const auto & ports = evpnLagMemberInfo()->lagToPort( intfId );
  if ( ports.ports() == 0 ) {
    say( traits_.texts.noLagMembers );
    return std::nullopt;
  }
  return ports;
}

void PortProgrammingSm::record( IntfVlanStatus & status, Wire::IntfId port,
                                HwProgrammingStatus rc ) {
  switch ( rc ) {
  case HwProgrammingStatus::programmed:
    say( traits_.texts.programmed );
    status.programmedIs( port );
    status.forceReprogramDel( port );
    break;
  case HwProgrammingStatus::notProgrammed:
    say( traits_.texts.failed );
    park( status.intfVlan() );
    status.unprogrammedIs( port );
    maybeScheduleUnprogrammedReview( false );
    break;
  case HwProgrammingStatus::invalidHwId:
    say( traits_.texts.invalidHwId );
    VEX_ASSERT( 0 );
    break;
  }
}

void PortProgrammingSm::park( const IntfVlanKey & key ) {
  traits_.unprogrammed.members.is( *this, traits_.unprogrammed.id, key, true );
}

void PortProgrammingSm::unpark( const IntfVlanKey & key ) {
  traits_.unprogrammed.members.del( *this, traits_.unprogrammed.id, key );
}

void PortProgrammingSm::say( std::string_view text ) const {
  if ( !text.empty() ) {
    auto & traceHandle = traits_.traceHandle;
    TRACE( 5, text );
  }
}

} // namespace Kez
