#include "KezEvpn/KezEvpnEsiFilteringDecapSm.h"

#include "Vex/Said.h"

#include <algorithm>

namespace Kez {

using Mpls::LfibHwProgrammingReturnCode;
using Mpls::RouteKey;

static Ringlog::Handle traceHandle( "KezEvpnEsiFilteringDecapSm" );

static constexpr ReviewTexts reviewTexts{ {},
                                          "unprogrammed review already scheduled",
                                          "next unprogrammed review at " };

namespace {

// A place in the backlog.
struct BacklogIter {
  const Mpls::LfibTrackingStatus & lfibTrackingStatus;

  bool isMemberOf( const RouteKey & routeKey ) const {
    return lfibTrackingStatus.routeKeyBacklogHas( routeKey );
  }
};

} // namespace

EsiFilteringDecapSm::EsiFilteringDecapSm(
    Out< KezHelper::EsiFilteringDecapHelper > esiFilteringDecapHelper,
    In< Mpls::LfibStatus > lfibStatus, Out< Loom::TaskScheduler > scheduler,
    Out< Mpls::LfibTrackingStatus > lfibTrackingStatus, Out< Mpls::LfibHwStatus > lfibHwStatus )
    : RetryingSm( traceHandle, { Retry::byMachine, Resume::behindBookmark, reviewTexts } ),
      esiFilteringDecapHelper_( esiFilteringDecapHelper ), lfibStatus_( lfibStatus ),
      scheduler_( scheduler ), lfibTrackingStatus_( lfibTrackingStatus ),
      lfibHwStatus_( lfibHwStatus ), parking_( *this, this->lfibHwStatus() ),
      lfibTrackingStatusReactor_( *this ) {
  lfibTrackingStatusReactor_.notifierIs( lfibTrackingStatus_ );
  EsiFilteringDecapSm::handleInitialized();
}

EsiFilteringDecapSm::~EsiFilteringDecapSm() {
  VexReviewRouteKeyBacklog::drop( reviewRouteKeyBacklog_ );
}

Vex::Ptr< EsiFilteringDecapSm >
esiFilteringDecapSmFactory( Out< KezHelper::EsiFilteringDecapHelper > esiFilteringDecapHelper,
                            In< Mpls::LfibStatus > lfibStatus, Out< Loom::TaskScheduler > scheduler,
                            Out< Mpls::LfibTrackingStatus > lfibTrackingStatus,
                            Out< Mpls::LfibHwStatus > lfibHwStatus ) {
  return Vex::makePtr< EsiFilteringDecapSm >( esiFilteringDecapHelper, lfibStatus, scheduler,
                                              lfibTrackingStatus, lfibHwStatus );
}

void EsiFilteringDecapSm::handleInitialized() {
  TRACE( 8, "EsiFilteringDecapSm::handleInitialized" );
  VEX_ASSERT( esiFilteringDecapHelper() );
  VEX_ASSERT( lfibStatus() );
  VEX_ASSERT( scheduler() );
  VEX_ASSERT( lfibTrackingStatus() );
  VEX_ASSERT( lfibHwStatus() );
  reviewRouteKeyBacklogIs( scheduler(), 2, "reviewRouteKeyBacklog" );
  reviewUnprogrammedIs( scheduler(), 2, "reviewUnprogrammed" );
  initializedIs( true );
  backlogEveryRoute();
  reviewRouteKeyBacklog()->scheduleNow();
}

// Routes that an earlier machine left waiting come last, whether they were told of again or not:
// else one might take an interface from the route that had it. Those that were told of and not yet
// looked at come after the ones that may have theirs, and these after the ones that hardware has.
void EsiFilteringDecapSm::backlogEveryRoute() {
  std::vector< RouteKey > behind;
  if ( const auto * const portMaps = esiFilteringDecapHelper()->esiPortMaps() ) {
    for ( const auto & route : lfibStatus()->route() ) {
      if ( !standsIn( *portMaps, route.routeKey ) ) {
        behind.push_back( route.routeKey );
      }
    }
  }
  for ( const auto & routeKey : lfibTrackingStatus()->routeKeyBacklog() ) {
    behind.push_back( routeKey );
  }
  for ( const auto & waiting : lfibHwStatus()->unprogrammedRoute() ) {
    behind.push_back( waiting.routeKey );
  }
  lfibHwStatus()->unprogrammedRouteDelAll();
  for ( const auto & route : lfibStatus()->route() ) {
    lfibTrackingStatus()->routeKeyBacklogIs( route.routeKey );
  }
  for ( const auto & routeKey : behind ) {
    lfibTrackingStatus()->routeKeyBacklogDel( routeKey );
    lfibTrackingStatus()->routeKeyBacklogIs( routeKey );
  }
}

bool EsiFilteringDecapSm::standsIn(
    const KezHelper::HwTable< Wire::IntfId, Wire::MplsLabel > & portMaps,
    const RouteKey & routeKey ) const {
  Explanation damage; // which is told of when the route has its turn
  const auto decision = decide( routeKey, &damage );
  return decision.lack == Lack::nothing &&
         portMaps.find( decision.via.intfId ) == decision.via.label;
}

// Routes that kept a port map are to be looked at again.
void EsiFilteringDecapSm::unprogramOtherViaTypeChanged() {
  if ( !unprogramOtherViaType() ) {
    return;
  }
  for ( const auto & [ routeKey, via ] : routeEsiFilterVia() ) {
    if ( decide( routeKey ).lack == Lack::filterViaType ) {
      lfibTrackingStatus()->routeKeyBacklogIs( routeKey );
    }
  }
}

void EsiFilteringDecapSm::reviewRouteKeyBacklogIs( Out< Loom::TaskScheduler > scheduler,
                                                   Loom::TaskPriority priority,
                                                   const Vex::String & name ) {
  VexReviewRouteKeyBacklog::replace(
      reviewRouteKeyBacklog_, scheduler, priority, name, *this,
      [ this ] { vex_handleReviewRouteKeyBacklog_taskRun(); }, traceHandle, reviewTexts );
}

// --- The backlog

void EsiFilteringDecapSm::VexLfibTrackingStatus::onAttribute( Vex::AttrId id, const void * ) {
  if ( id == Mpls::LfibTrackingStatus::routeKeyBacklogAttr ) {
    sm()->handleRouteKeyBacklog();
  }
}

void EsiFilteringDecapSm::VexLfibTrackingStatus::handleNotifier() {
  sm()->handleRouteKeyBacklog();
}

void EsiFilteringDecapSm::handleRouteKeyBacklog() {
  if ( !initialized() ) {
    return;
  }
  TRACE( 8, "EsiFilteringDecapSm::handleRouteKeyBacklog" );
  reviewRouteKeyBacklog()->scheduleNow();
}

void EsiFilteringDecapSm::vex_handleReviewRouteKeyBacklog_taskRun() {
  if ( initialized() ) {
    doReviewRouteKeyBacklog();
  }
}

void EsiFilteringDecapSm::doReviewRouteKeyBacklog() {
  TRACE( 8, "EsiFilteringDecapSm::doReviewRouteKeyBacklog" );
  VEX_ASSERT( initialized() );
  const auto task = reviewRouteKeyBacklog();
  VEX_ASSERT( task );
  makeRoomForBacklog();
  task->drain( lfibTrackingStatus()->routeKeyBacklog(),
               [ this ]( const RouteKey & routeKey ) { processRouteKeyBacklog( routeKey ); } );
  // What found no room stays; nobody tells when there is some.
  if ( lfibTrackingStatus()->routeKeyBacklogs() > 0 && !task->isScheduled() ) {
    task->scheduleAfter( defaultUnprogrammedRetryInterval() );
  }
  // After a yield too: a backlog that never runs dry must not stop retries.
  maybeScheduleUnprogrammedReview();
}

// For the port maps that its routes can come to have, at most one a filter via, so that what keeps
// them does not grow step by step.
void EsiFilteringDecapSm::makeRoomForBacklog() {
  const size_t routes = routeEsiFilterVias() + lfibTrackingStatus()->routeKeyBacklogs();
  const size_t portMaps =
      std::min( routes, lfibStatus()->evpnEthernetSegmentFilterViaTable().size() );
  routeEsiFilterVia_.reserve( portMaps );
  intfRoute_.reserve( portMaps );
}

void EsiFilteringDecapSm::processRouteKeyBacklog( const RouteKey & routeKey ) {
  TRACE( 8, "EsiFilteringDecapSm::processRouteKeyBacklog route ", routeKey );
  const BacklogIter backlogIter{ *lfibTrackingStatus() };
  VEX_ASSERT( backlogIter.isMemberOf( routeKey ) );
  if ( processRouteKey( routeKey ) ) {
    lfibTrackingStatus()->routeKeyBacklogDel( routeKey );
  }
}

// --- A route

EsiFilteringDecapSm::Decision EsiFilteringDecapSm::decide( const RouteKey & routeKey,
                                                           Explanation * asked ) const {
  const auto lookUp = [ & ]( const auto & table, const auto & key ) {
    return asked ? examine( table, key, *asked ) : table.safeRecord( key );
  };
  const auto route = lookUp( lfibStatus()->routeTable(), routeKey );
  if ( !route ) {
    return { Lack::route, {}, {}, {} };
  }
  const auto viaSet = lookUp( lfibStatus()->viaSetTable(), route->viaSetId );
  if ( !viaSet || viaSet->viaKeys.size() == 0 ) {
    return { Lack::viaSet, route->viaSetId, {}, {} };
  }
  const auto viaKey = *viaSet->viaKeys.begin();
  if ( viaKey.viaType() != Mpls::LfibViaType::evpnEthernetSegmentFilter ) {
    return { Lack::filterViaType, route->viaSetId, viaKey, {} };
  }
  const auto via = lookUp( lfibStatus()->evpnEthernetSegmentFilterViaTable(), viaKey );
  return via ? Decision{ Lack::nothing, route->viaSetId, viaKey, *via }
             : Decision{ Lack::via, route->viaSetId, viaKey, {} };
}

bool EsiFilteringDecapSm::processRouteKey( const RouteKey & routeKey ) {
  TRACE( 8, "EsiFilteringDecapSm::processRouteKey route ", routeKey );
  VEX_ASSERT( initialized() );
  const auto decision = decide( routeKey );
  const auto viaKey = decision.viaKey;
  bool settled = true;
  switch ( decision.lack ) {
  case Lack::route:
    TRACE( 5, "route was deleted" );
    deleteEsiFilterVia( routeKey );
    break;
  case Lack::viaSet:
    TRACE( 5, "viaset was deleted" );
    deleteEsiFilterVia( routeKey );
    break;
  case Lack::filterViaType:
    VEX_ASSERT( !!viaKey );
    TRACE( 5, "Skipping viaType ", viaKey.viaType() );
    // It no longer asks for a port map.
    if ( unprogramOtherViaType() ) {
      deleteEsiFilterVia( routeKey );
    } else {
      deleteRouteFromUnprogrammed( routeKey );
    }
    break;
  case Lack::via:
    deleteEsiFilterVia( routeKey );
    break;
  case Lack::nothing:
    deleteEsiFilterVia( routeKey );
    settled = createEsiFilterVia( routeKey, decision.via );
    break;
  }
  parking_.settle( routeKey, waitsForHardware( routeKey ) );
  return settled;
}

// What waits for another route's interface was not refused by hardware.
bool EsiFilteringDecapSm::waitsForHardware( const RouteKey & routeKey ) const {
  if ( lfibHwStatus()->unprogrammedRoutes() == 0 ) {
    return false;
  }
  const auto waiting = lfibHwStatus()->unprogrammedRouteTable().safeRecord( routeKey );
  return waiting && waiting->returnCode != LfibHwProgrammingReturnCode::conflict;
}

bool EsiFilteringDecapSm::createEsiFilterVia( const RouteKey & routeKey,
                                              const Mpls::LfibEvpnEthernetSegmentFilterVia & via ) {
  TRACE( 8, "EsiFilteringDecapSm::createEsiFilterVia route ", routeKey );
  VEX_ASSERT( !routeEsiFilterViaHas( routeKey ) );
  if ( intfRouteHas( via.intfId ) ) {
    TRACE( 5, "intf ", via.intfId, " already associated with route ",
           intfRoute( via.intfId ).topLabel(), ", adding via to unprogrammed" );
    return addRouteToUnprogrammed( routeKey, LfibHwProgrammingReturnCode::conflict );
  }
  const auto rc = esiFilteringDecapHelper()->createEsiPortMap( via.label, via.intfId );
  TRACE( 5, "create ", via.label, " ", via.intfId, " rc: ", rc );
  switch ( rc ) {
  case LfibHwProgrammingReturnCode::success:
    routeEsiFilterViaIs( routeKey, via );
    intfRouteIs( via.intfId, routeKey );
    deleteRouteFromUnprogrammed( routeKey );
    break;
  case LfibHwProgrammingReturnCode::conflict:
    VEX_ASSERT_SAYING( !"Unexpected rc. Conflict detection logic is already done in Kez",
                       "createEsiPortMap ", via.label, " ", via.intfId, " -> ", rc );
    break;
  case LfibHwProgrammingReturnCode::notProgrammed:
  case LfibHwProgrammingReturnCode::tableFull:
    return addRouteToUnprogrammed( routeKey, rc );
  }
  return true;
}

void EsiFilteringDecapSm::deleteEsiFilterVia( const RouteKey & routeKey ) {
  TRACE( 8, "EsiFilteringDecapSm::deleteEsiFilterVia route ", routeKey );
  const auto via = routeEsiFilterVia( routeKey );
  if ( via == Mpls::LfibEvpnEthernetSegmentFilterVia() ) {
    deleteRouteFromUnprogrammed( routeKey );
    return;
  }
  esiFilteringDecapHelper()->deleteEsiPortMap( via.label, via.intfId );
  routeEsiFilterViaDel( routeKey );
  intfRouteDel( via.intfId );
}

// --- Routes that are not programmed

bool EsiFilteringDecapSm::addRouteToUnprogrammed( const RouteKey & routeKey,
                                                  LfibHwProgrammingReturnCode rc ) {
  if ( !lfibHwStatus()->unprogrammedRouteMakeRoom() ) {
    TRACE( 1, " no room to publish a route that is not programmed: ",
           lfibHwStatus()->unprogrammedRouteLack() );
    return false;
  }
  parking_.park( routeKey, rc );
  TRACE( 5, "route ", routeKey, " reason ", rc );
  return true;
}

void EsiFilteringDecapSm::deleteRouteFromUnprogrammed( const RouteKey & routeKey ) {
  if ( lfibHwStatus()->unprogrammedRoutes() == 0 ) {
    TRACE( 5, "No unprogrammed routes, nothing to delete" );
    return;
  }
  parking_.unpark( routeKey );
  TRACE( 5, "route ", routeKey );
}

void EsiFilteringDecapSm::maybeScheduleUnprogrammedReview() {
  TRACE( 8, "EsiFilteringDecapSm::maybeScheduleUnprogrammedReview" );
  VEX_ASSERT( initialized() );
  VEX_ASSERT( reviewUnprogrammed() );
  if ( lfibHwStatus()->unprogrammedRoutes() == 0 ) {
    TRACE( 5, "no unprogrammed routes, nothing to review" );
    return;
  }
  reviewUnprogrammed()->scheduleUnlessPending( defaultUnprogrammedRetryInterval() );
}

void EsiFilteringDecapSm::doReviewUnprogrammed() {
  TRACE( 8, "EsiFilteringDecapSm::doReviewUnprogrammed" );
  // What was parked finds its room again.
  const bool ended =
      parking_.review( [ this ]( const RouteKey & routeKey ) { processRouteKey( routeKey ); } );
  if ( ended ) {
    maybeScheduleUnprogrammedReview();
  }
}

} // namespace Kez
