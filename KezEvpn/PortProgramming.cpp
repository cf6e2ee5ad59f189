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

PortProgrammingSm::Lack PortProgrammingSm::lackOf( Wire::IntfId intfId ) const {
  if ( !isLag( intfId ) ) {
    return Lack::nothing;
  }
  if ( !evpnLagMemberInfo()->lagToPortHas( intfId ) ) {
    return Lack::configuration;
  }
  return evpnLagMemberInfo()->lagToPort( intfId ).ports() == 0 ? Lack::members : Lack::nothing;
}

std::optional< KezPortList > PortProgrammingSm::portsOf( Wire::IntfId intfId ) const {
  switch ( lackOf( intfId ) ) {
  case Lack::configuration:
    say( traits_.texts.noLagConfiguration );
    return std::nullopt;
  case Lack::members:
    say( traits_.texts.noLagMembers );
    return std::nullopt;
  case Lack::nothing:
    break;
  }
  if ( isLag( intfId ) ) {
    return evpnLagMemberInfo()->lagToPort( intfId );
  }
  KezPortList itself;
  itself.portIs( intfId, true );
  return itself;
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

void PortProgrammingSm::waitForInput( const IntfVlanKey & key ) {
  unpark( key );
  attempted( key, false );
  if ( const auto status = traits_.status.members.get( key ) ) {
    status->unprogrammedDelAll();
  }
}

void PortProgrammingSm::explainMissingPorts( Wire::IntfId intfId, Explanation & out ) const {
  switch ( lackOf( intfId ) ) {
  case Lack::configuration:
    out.say( "waiting for member ports of ", intfId, ", none published" );
    break;
  case Lack::members:
    out.say( "waiting for member ports of ", intfId, ", an empty list published" );
    break;
  case Lack::nothing:
    break;
  }
}

void PortProgrammingSm::explainPorts( const IntfVlanKey & key, Explanation & out ) const {
  const auto status = traits_.status.members.get( key );
  if ( !status ) {
    return;
  }
  std::vector< Wire::IntfId > asWanted;
  std::vector< Wire::IntfId > anew;
  std::vector< Wire::IntfId > stale;
  for ( const auto port : status->programmed() ) {
    const bool isPort = isLag( key.intfId )
                            ? evpnLagMemberInfo()->lagToPort( key.intfId ).portHas( port )
                            : port == key.intfId;
    ( !isPort ? stale : status->forceReprogramHas( port ) ? anew : asWanted ).push_back( port );
  }
  const auto say = [ & ]( std::string_view what, const auto & ports ) {
    if ( ports.begin() != ports.end() ) {
      out.say( what, Members{ ports } );
    }
  };
  say( "programmed on ", asWanted );
  say( "to be programmed anew, and as before till then, on ", anew );
  say( "still programmed, though it is no port of it any more, on ", stale );
  if ( status->unprogrammeds() > 0 ) {
    out.say( anew.empty() ? "not programmed on " : "not programmed anew on ",
             Members{ status->unprogrammed() } );
  }
}

void PortProgrammingSm::explainRefusal( const IntfVlanKey & key, Explanation & out ) const {
  if ( refusalHas( key ) ) {
    out.say( "hardware refused ", Times{ refusal( key ) }, ", next try ", nextTry() );
  }
}

void PortProgrammingSm::say( std::string_view text ) const {
  if ( !text.empty() ) {
    auto & traceHandle = traits_.traceHandle;
    TRACE( 5, text );
  }
}

} // namespace Kez
