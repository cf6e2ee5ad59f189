#include "KezEvpn/KezEvpnFloodingDot1qSm.h"

#include "Vex/Said.h"

namespace Kez {

static Ringlog::Handle traceHandle( "KezEvpnFloodingDot1qSm" );

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Wire::IntfId;

static constexpr PortTexts dot1qMappingTexts{
  .noLagConfiguration = "no lag configuration",
  .noLagMembers = "no lag members",
  .alreadyProgrammed = "already programmed",
  .programmed = "programmed dot1q mapping",
  .failed = "failed to program dot1q mapping",
  .invalidHwId = "invalid hwId, failed to program dot1q mapping",
  .operation = "createVlanToDot1qMapping",
};

static constexpr ReviewTexts intfVlanReviewTexts{ "schedule immediate intf vlan review",
                                                  "already scheduled",
                                                  "next intf vlan review at " };

EvpnFloodingDot1qSm::EvpnFloodingDot1qSm( Out< KezHelper::EvpnFloodingSmHelper > floodingHelper,
                                          Out< Loom::TaskScheduler > scheduler,
                                          In< EvpnLagMemberInfo > evpnLagMemberInfo,
                                          In< EvpnVlanStatus > evpnVlanStatus,
                                          In< Evpn::EvpnStatus > evpnStatus,
                                          In< Evpn::MplsConfig > evpnMplsConfig )
    : PortProgrammingSm( traceHandle, { Retry::afterRefusal, Resume::atBookmark }, floodingHelper,
                         scheduler, evpnLagMemberInfo, evpnStatus ),
      evpnVlanStatus_( evpnVlanStatus ), evpnMplsConfig_( evpnMplsConfig ),
      parking_( *this, *this, unprogrammedDot1q_, unprogrammedDot1qAttr ),
      ports_( *this, dot1qStatus_, parking_, this->evpnLagMemberInfo(), dot1qMappingTexts ),
      evpnStatusReactor_( *this ), evpnMplsConfigReactor_( *this ),
      evpnVlanStatusReactor_( *this ) {
  evpnStatusReactor_.notifierIs( evpnStatus );
  evpnMplsConfigReactor_.notifierIs( evpnMplsConfig );
  evpnVlanStatusReactor_.notifierIs( evpnVlanStatus );
  watchLagPorts();
}

EvpnFloodingDot1qSm::~EvpnFloodingDot1qSm() {
  VexReviewIntfVlan::drop( reviewIntfVlan_ );
}

Vex::Ptr< EvpnFloodingDot1qSm > evpnFloodingDot1qSmFactory(
    Out< KezHelper::EvpnFloodingSmHelper > floodingHelper, Out< Loom::TaskScheduler > scheduler,
    In< EvpnLagMemberInfo > evpnLagMemberInfo, In< EvpnVlanStatus > evpnVlanStatus,
    In< Evpn::EvpnStatus > evpnStatus, In< Evpn::MplsConfig > evpnMplsConfig ) {
  return Vex::makePtr< EvpnFloodingDot1qSm >( floodingHelper, scheduler, evpnLagMemberInfo,
                                              evpnVlanStatus, evpnStatus, evpnMplsConfig );
}

// --- What is heard

void EvpnFloodingDot1qSm::VexEvpnStatus::onAttribute( Vex::AttrId id, const void * key ) {
  if ( id == Evpn::EvpnStatus::vlanToDot1qAttr ) {
    sm()->handleVlanDot1q( Evpn::EvpnStatus::vlanToDot1qAttr.key( key ) );
  }
}

void EvpnFloodingDot1qSm::VexEvpnMplsConfig::onAttribute( Vex::AttrId id, const void * ) {
  if ( id == Evpn::MplsConfig::vlanServiceDot1qEnabledAttr ) {
    sm()->handleVlanServiceDot1qEnabled();
  }
}

void EvpnFloodingDot1qSm::VexVlanStatus::handleNotifier() {
  sm()->vex_handleVlanStatus( *this );
}

void EvpnFloodingDot1qSm::VexVlanStatus::onAttribute( Vex::AttrId id, const void * key ) {
  if ( id == EvpnVlanMemberInfo::memberAttr ) {
    handleMember( EvpnVlanMemberInfo::memberAttr.key( key ) );
  }
}

// --- Start

void EvpnFloodingDot1qSm::handleInitialized() {
  TRACE( 8, "EvpnFloodingDot1qSm::handleInitialized" );
  VEX_ASSERT( evpnStatus() );
  VEX_ASSERT( evpnVlanStatus() );
  VEX_ASSERT( evpnLagMemberInfo() );
  VEX_ASSERT( floodingHelper() );
  VEX_ASSERT( scheduler() );
  reviewUnprogrammedIs( scheduler(), 2, "reviewUnprogrammed" );
  reviewIntfVlanIs( scheduler(), 2, "reviewIntfVlan" );
  initializedIs( true );
  makeRoomForPairs();
  for ( const auto [ vlanId, dot1q ] : evpnStatus()->vlanToDot1q() ) {
    handleVlanDot1q( vlanId );
  }
  for ( const auto & [ vlanId, memberInfo ] : evpnVlanStatus()->vlanStatus() ) {
    for ( const auto intfId : memberInfo->member() ) {
      maybeScheduleIntfVlanReview( intfId, vlanId );
    }
  }
}

void EvpnFloodingDot1qSm::makeRoomForPairs() {
  size_t pairs = 0;
  for ( const auto & [ vlanId, memberInfo ] : evpnVlanStatus()->vlanStatus() ) {
    pairs += memberInfo->members();
  }
  intfVlanQueue_.reserve( pairs );
  intfVlanDot1q_.reserve( pairs );
  dot1qStatus_.reserve( pairs );
}

void EvpnFloodingDot1qSm::reviewIntfVlanIs( Out< Loom::TaskScheduler > scheduler,
                                            Loom::TaskPriority priority,
                                            const Vex::String & name ) {
  VexReviewIntfVlan::replace(
      reviewIntfVlan_, scheduler, priority, name, *this,
      [ this ] { vex_handleReviewIntfVlan_taskRun(); }, traceHandle, intfVlanReviewTexts );
}

// --- VLANs

VlanIdOrNone EvpnFloodingDot1qSm::dot1qTagForVlan( VlanId vlanId ) const {
  VEX_ASSERT( initialized() );
  const auto published = evpnStatus()->vlanToDot1q( vlanId );
  if ( published != VlanIdOrNone() ) {
    return published;
  }
  return vlanServiceDot1qEnabled() ? vlanId : VlanIdOrNone();
}

bool EvpnFloodingDot1qSm::vlanServiceDot1qEnabled() const {
  return evpnMplsConfig() && evpnMplsConfig()->vlanServiceDot1qEnabled();
}

void EvpnFloodingDot1qSm::handleVlanDot1q( VlanId vlanId ) {
  if ( !initialized() ) {
    return;
  }
  const bool programmed = programmedDot1qHas( vlanId );
  const bool published = evpnStatus()->vlanToDot1qHas( vlanId );
  TRACE( 5, "EvpnFloodingDot1qSm::handleVlanDot1q vlanId ", vlanId, " programmedDot1qExists ",
         programmed, " programmedDot1q ", programmedDot1q( vlanId ), " publishedDot1qExists ",
         published, " publishedDot1q ", evpnStatus()->vlanToDot1q( vlanId ) );
  parking_.unpark( vlanLevelKey( vlanId ) );
  const auto dot1q = published ? dot1qTagForVlan( vlanId ) : VlanIdOrNone();
  if ( programmed != published || programmedDot1q( vlanId ) != dot1q ) {
    reprogramVlan( vlanId, dot1q );
  }
  parking_.settle( vlanLevelKey( vlanId ) );
  // No mapping outlives its VLAN.
  if ( !published ) {
    reviewIntfsOf( vlanId );
  }
}

void EvpnFloodingDot1qSm::reprogramVlan( VlanId vlanId, VlanIdOrNone dot1q ) {
  if ( programmedDot1qHas( vlanId ) ) {
    floodingHelper()->deleteVlan( vlanId, programmedDot1q( vlanId ) );
    programmedDot1qDel( vlanId );
  }
  if ( !evpnStatus()->vlanToDot1qHas( vlanId ) ) {
    return;
  }
  const auto rc = floodingHelper()->createVlan( vlanId, dot1q );
  switch ( rc ) {
  case HwProgrammingStatus::programmed:
    TRACE( 5, "programmed vlan ", vlanId, " with dot1q ", dot1q );
    programmedDot1qIs( vlanId, dot1q );
    reviewIntfsOf( vlanId );
    break;
  case HwProgrammingStatus::notProgrammed:
    TRACE( 5, "failed to program vlan ", vlanId, " with dot1q ", dot1q );
    parking_.park( vlanLevelKey( vlanId ) );
    break;
  default:
    VEX_ASSERT_SAYING( 0, "createVlan ", vlanId, " dot1q ", dot1q, " -> ", rc );
  }
}

void EvpnFloodingDot1qSm::reviewIntfsOf( VlanId vlanId ) {
  if ( const auto intfs = vlanIntfSet( vlanId ) ) {
    for ( const auto intfId : intfs->intfId() ) {
      maybeScheduleIntfVlanReview( intfId, vlanId );
    }
  }
}

void EvpnFloodingDot1qSm::handleVlanServiceDot1qEnabled() {
  if ( !initialized() ) {
    return;
  }
  TRACE( 8, "EvpnFloodingDot1qSm::handleVlanServiceDot1qEnabled enabled ",
         vlanServiceDot1qEnabled() );
  for ( const auto [ vlanId, dot1q ] : evpnStatus()->vlanToDot1q() ) {
    handleVlanDot1q( vlanId );
  }
}

// --- Membership

void EvpnFloodingDot1qSm::VexVlanStatus::handleVlanStatus() {
  const auto sm = this->sm();
  const auto vlan = vlanId();
  const auto memberInfo = notifier();
  if ( !sm->initialized() ) {
    return;
  }
  TRACE( 8, "EvpnFloodingDot1qSm::VexVlanStatus::handleVlanStatus vlanId ", vlan );
  for ( const auto intfId : memberInfo->member() ) {
    sm->maybeScheduleIntfVlanReview( intfId, vlan );
  }
  // A member may also have left unheard, under a zombie mark.
  if ( const auto intfs = sm->vlanIntfSet( vlan ) ) {
    for ( const auto intfId : intfs->intfId() ) {
      if ( !memberInfo->memberHas( intfId ) ) {
        sm->maybeScheduleIntfVlanReview( intfId, vlan );
      }
    }
  }
}

void EvpnFloodingDot1qSm::VexVlanStatus::handleMember( IntfId intfId ) {
  const auto sm = this->sm();
  if ( !sm->initialized() ) {
    return;
  }
  TRACE( 8, "EvpnFloodingDot1qSm::handleMember intf ", intfId );
  sm->maybeScheduleIntfVlanReview( intfId, vlanId() );
}

void EvpnFloodingDot1qSm::handleLagPort( IntfId lagIntfId ) {
  if ( !initialized() ) {
    return;
  }
  TRACE( 8, "EvpnFloodingDot1qSm::handleLagPort intf ", lagIntfId );
  const auto vlans = intfVlanSet( lagIntfId );
  if ( !vlans ) {
    return;
  }
  // A physical interface is its own port, whatever is published under its name.
  if ( isLag( lagIntfId ) ) {
    markLostPorts( *vlans );
  }
  for ( const auto vlanId : vlans->vlanId() ) {
    maybeScheduleIntfVlanReview( lagIntfId, vlanId );
  }
}

void EvpnFloodingDot1qSm::markLostPorts( const IntfVlanSet & vlansOfLag ) {
  const auto lagIntfId = vlansOfLag.intfId();
  const KezPortList ports = evpnLagMemberInfo()->lagToPort( lagIntfId );
  for ( const auto vlanId : vlansOfLag.vlanId() ) {
    for ( const auto port : dot1qStatus_.programmed( { lagIntfId, vlanId } ) ) {
      if ( !ports.portHas( port ) ) {
        TRACE( 8, "marking ", port, " for force reprogram" );
        ports_.forceReprogram( { lagIntfId, vlanId }, port );
      }
    }
  }
}

// Every interface has been queued for review by the reactors of its VLANs.
void EvpnFloodingDot1qSm::makeUpForZombieMark() {
  for ( const auto [ vlanId, dot1q ] : programmedDot1q() ) {
    if ( !evpnStatus()->vlanToDot1qHas( vlanId ) ) {
      handleVlanDot1q( vlanId );
    }
  }
  for ( const auto [ vlanId, dot1q ] : evpnStatus()->vlanToDot1q() ) {
    handleVlanDot1q( vlanId );
  }
  // A review under the mark may have met a status that came and went beside its reactors.
  for ( const auto & [ vlanId, intfs ] : vlanIntfSet() ) {
    if ( !evpnVlanStatus()->vlanStatus( vlanId ) ) {
      reviewIntfsOf( vlanId );
    }
  }
}

void EvpnFloodingDot1qSm::maybeScheduleIntfVlanReview( IntfId intfId, VlanId vlanId ) {
  TRACE( 8, "EvpnFloodingDot1qSm::maybeScheduleIntfVlanReview intf ", intfId, " vlan ", vlanId );
  VEX_ASSERT( initialized() );
  intfVlanQueueIs( { intfId, vlanId } );
  reviewIntfVlan()->maybeSchedule( false, defaultIntfVlanDelay() );
}

// --- Reviews

void EvpnFloodingDot1qSm::vex_handleReviewIntfVlan_taskRun() {
  if ( initialized() ) {
    doReviewIntfVlan();
  }
}

void EvpnFloodingDot1qSm::doReviewIntfVlan() {
  TRACE( 8, "EvpnFloodingDot1qSm::doReviewIntfVlan" );
  VEX_ASSERT( initialized() );
  const auto task = reviewIntfVlan();
  VEX_ASSERT( task );
  const bool ended = task->review(
      intfVlanQueue(),
      [ this ]( const IntfVlanKey & key ) { processIntfVlan( key.intfId, key.vlanId ); }, 0.0,
      Resume::atFirst );
  if ( ended && intfVlanQueues() > 0 ) {
    task->scheduleNow();
  }
}

void EvpnFloodingDot1qSm::doReviewUnprogrammed() {
  TRACE( 8, "doReviewUnprogrammed" );
  parking_.review( [ this ]( const IntfVlanKey & key ) {
    if ( key == vlanLevelKey( key.vlanId ) ) {
      handleVlanDot1q( key.vlanId );
    } else {
      processIntfVlan( key.intfId, key.vlanId );
    }
  } );
}

// --- Interfaces of VLANs

EvpnFloodingDot1qSm::Lack EvpnFloodingDot1qSm::lackOf( const IntfVlanKey & key ) const {
  const auto memberInfo = evpnVlanStatus()->vlanStatus( key.vlanId );
  if ( !memberInfo ) {
    return Lack::vlanStatus;
  }
  if ( !memberInfo->memberHas( key.intfId ) ) {
    return Lack::membership;
  }
  if ( !evpnStatus()->vlanToDot1qHas( key.vlanId ) ) {
    return Lack::publication;
  }
  return programmedDot1qHas( key.vlanId ) ? Lack::nothing : Lack::vlan;
}

// Without a notification, while they are off or under a zombie mark.
bool EvpnFloodingDot1qSm::tagChangedUnheard( VlanId vlanId, VlanIdOrNone dot1q ) const {
  return programmedDot1q( vlanId ) != dot1q && programmedDot1qHas( vlanId ) &&
         evpnStatus()->vlanToDot1qHas( vlanId );
}

bool EvpnFloodingDot1qSm::isMappedAsAsked( const IntfVlanKey & key ) const {
  const auto * const mapped = intfVlanDot1q_.members().find( key );
  const auto * const programmed = programmedDot1q_.members().find( key.vlanId );
  if ( !mapped || !programmed || *mapped != *programmed ||
       *mapped != dot1qTagForVlan( key.vlanId ) ) {
    return false;
  }
  const auto memberInfo = evpnVlanStatus()->vlanStatus( key.vlanId );
  return memberInfo && memberInfo->memberHas( key.intfId ) &&
         evpnStatus()->vlanToDot1qHas( key.vlanId );
}

void EvpnFloodingDot1qSm::processIntfVlan( IntfId intfId, VlanId vlanId ) {
  VEX_ASSERT( initialized() );
  TRACE( 8, "EvpnFloodingDot1qSm::processIntfVlan intf ", intfId, " vlan ", vlanId );
  intfVlanQueueDel( { intfId, vlanId } );
  const auto dot1q = dot1qTagForVlan( vlanId );
  if ( isMappedAsAsked( { intfId, vlanId } ) ) { // only its ports may have changed
    programDot1q( intfId, vlanId, dot1q );
    return;
  }
  if ( tagChangedUnheard( vlanId, dot1q ) ) {
    handleVlanDot1q( vlanId );
  }
  switch ( lackOf( { intfId, vlanId } ) ) {
  case Lack::vlanStatus:
    TRACE( 5, "no vlan status" );
    deleteIntfVlanMapping( intfId, vlanId );
    break;
  case Lack::membership:
    TRACE( 5, "intf not a part of vlan" );
    deleteIntfVlanMapping( intfId, vlanId );
    break;
  case Lack::publication:
    addIntfVlanMapping( intfId, vlanId );
    TRACE( 5, "not in vlan-dot1q mapping" );
    deleteIntfVlanDot1qMapping( intfId, vlanId );
    break;
  case Lack::vlan:
    addIntfVlanMapping( intfId, vlanId );
    TRACE( 5, "dot1q is not programmed yet" );
    break;
  case Lack::nothing:
    addIntfVlanMapping( intfId, vlanId );
    VEX_ASSERT( programmedDot1q( vlanId ) == dot1q );
    addOrUpdateIntfVlanDot1qMapping( intfId, vlanId, dot1q );
    break;
  }
}

void EvpnFloodingDot1qSm::addIntfVlanMapping( IntfId intfId, VlanId vlanId ) {
  VEX_ASSERT( initialized() );
  addToIndex( intfId, vlanId );
}

void EvpnFloodingDot1qSm::deleteIntfVlanMapping( IntfId intfId, VlanId vlanId ) {
  VEX_ASSERT( initialized() );
  deleteIntfVlanDot1qMapping( intfId, vlanId );
  removeFromIndex( intfId, vlanId );
}

void EvpnFloodingDot1qSm::addOrUpdateIntfVlanDot1qMapping( IntfId intfId, VlanId vlanId,
                                                           VlanIdOrNone dot1q ) {
  VEX_ASSERT( initialized() );
  const IntfVlanKey key{ intfId, vlanId };
  if ( intfVlanDot1qHas( key ) && intfVlanDot1q( key ) != dot1q ) {
    unprogramDot1q( intfId, vlanId, intfVlanDot1q( key ) );
  }
  intfVlanDot1qIs( key, dot1q );
  programDot1q( intfId, vlanId, dot1q );
}

void EvpnFloodingDot1qSm::deleteIntfVlanDot1qMapping( IntfId intfId, VlanId vlanId ) {
  VEX_ASSERT( initialized() );
  const IntfVlanKey key{ intfId, vlanId };
  if ( intfVlanDot1qHas( key ) ) {
    const auto dot1q = intfVlanDot1q( key );
    intfVlanDot1qDel( key );
    unprogramDot1q( intfId, vlanId, dot1q );
  }
}

// --- Ports

void EvpnFloodingDot1qSm::programDot1q( IntfId intfId, VlanId vlanId, VlanIdOrNone dot1q ) {
  VEX_ASSERT( initialized() );
  TRACE( 8, "EvpnFloodingDot1qSm::programDot1q intf ", intfId, " vlan ", vlanId, " dot1q ", dot1q );
  const auto ports = ports_.portsOf( intfId );
  if ( !ports ) {
    unprogramDot1q( intfId, vlanId, dot1q );
    return;
  }
  const IntfVlanKey key{ intfId, vlanId };
  ports_.dropStalePorts( key, *ports, ForceMark::removeFirst, [ & ]( IntfId port, bool ) {
    TRACE( 5, "staleMember ", port, " forceReprogram ",
           dot1qStatus_.forceReprogramHas( key, port ) );
    unprogramDot1qHelper( intfId, port, vlanId, dot1q );
  } );
  ports_.programPorts(
      key, *ports, [ & ]( IntfId port ) { programDot1qHelper( intfId, port, vlanId, dot1q ); } );
}

void EvpnFloodingDot1qSm::programDot1qHelper( IntfId logIntfId, IntfId phyIntfId, VlanId vlanId,
                                              VlanIdOrNone dot1q ) {
  VEX_ASSERT( initialized() );
  TRACE( 8, "programDot1qHelper logical intf ", logIntfId, " phy intf ", phyIntfId, " vlan ",
         vlanId, " dot1q ", dot1q );
  ports_.programPort( { logIntfId, vlanId }, phyIntfId, [ & ] {
    const auto rc =
        floodingHelper()->createVlanToDot1qMapping( logIntfId, phyIntfId, vlanId, dot1q );
    const bool failed =
        rc == HwProgrammingStatus::notProgrammed || rc == HwProgrammingStatus::invalidHwId;
    return failed ? rc : HwProgrammingStatus::programmed;
  } );
}

void EvpnFloodingDot1qSm::unprogramDot1q( IntfId intfId, VlanId vlanId, VlanIdOrNone dot1q ) {
  VEX_ASSERT( initialized() );
  TRACE( 8, "EvpnFloodingDot1qSm::unprogramDot1q intf ", intfId, " vlan ", vlanId, " dot1q ",
         dot1q );
  if ( !dot1qStatusHas( { intfId, vlanId } ) ) {
    TRACE( 5, "not programmed" );
  }
  ports_.unprogramPorts( { intfId, vlanId }, [ & ]( IntfId port ) {
    unprogramDot1qHelper( intfId, port, vlanId, dot1q );
  } );
}

void EvpnFloodingDot1qSm::unprogramDot1qHelper( IntfId logIntfId, IntfId phyIntfId, VlanId vlanId,
                                                VlanIdOrNone dot1q ) {
  VEX_ASSERT( initialized() );
  TRACE( 8, "unprogramDot1qHelper logical intf ", logIntfId, " phy intf ", phyIntfId, " vlan ",
         vlanId, " dot1q ", dot1q );
  const bool programmed = ports_.unprogramPort( { logIntfId, vlanId }, phyIntfId, [ & ] {
    floodingHelper()->deleteVlanToDot1qMapping( logIntfId, phyIntfId, vlanId, dot1q );
  } );
  if ( !programmed ) {
    TRACE( 5, "not programmed" );
  }
}

} // namespace Kez
