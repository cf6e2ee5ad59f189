#include "KezEvpn/KezEvpnEsiFilteringDecapSm.h"

#include "KezEvpn/frame/Explain.h"
#include "KezEvpn/frame/Findings.h"
#include "KezHelper/Audit.h"
#include "KezHelper/TableView.h"

namespace Kez {

using Mpls::LfibHwProgrammingReturnCode;
using Mpls::RouteKey;

// --- What an operator is told

void EsiFilteringDecapSm::explain( const Subject & subject, Explanation & out ) const {
  const auto * const routeKey = subject.get< RouteKey >();
  if ( !routeKey ) {
    return;
  }
  const auto decision = decide( *routeKey, &out );
  explainLack( decision, out );
  const bool upToDate = explainProgrammed( *routeKey, decision, out );
  const bool waits = explainWait( *routeKey, decision, out );
  if ( lfibTrackingStatus()->routeKeyBacklogHas( *routeKey ) ) {
    out.awaits( "in the backlog, next run ", Due{ reviewRouteKeyBacklog()->nextRun(), "later" } );
    if ( const auto & lack = lfibHwStatus()->unprogrammedRouteLack(); !lack.empty() ) {
      out.awaits( lack );
    }
  } else if ( !upToDate && !waits ) {
    out.awaits( "not looked at before it comes into the backlog" );
  }
}

void EsiFilteringDecapSm::explainLack( const Decision & decision, Explanation & out ) const {
  switch ( decision.lack ) {
  case Lack::route:
    out.awaits( "waiting for the route, none published" );
    break;
  case Lack::viaSet:
    out.awaits( "waiting for a via in via set ", decision.viaSetId, ", none published" );
    break;
  case Lack::filterViaType:
    out.say( "needs no port map, its first via being ", decision.viaKey );
    break;
  case Lack::via:
    out.awaits( "waiting for via ", decision.viaKey, ", none published" );
    break;
  case Lack::nothing:
    out.say( "port map of label ", decision.via.label, " and ", decision.via.intfId );
    break;
  }
}

// Whether what is programmed is what the inputs say.
bool EsiFilteringDecapSm::explainProgrammed( const RouteKey & routeKey, const Decision & decision,
                                             Explanation & out ) const {
  if ( !routeEsiFilterViaHas( routeKey ) ) {
    return decision.lack != Lack::nothing;
  }
  const auto via = routeEsiFilterVia( routeKey );
  if ( decision.lack == Lack::nothing && via == decision.via ) {
    out.say( "programmed" );
    return true;
  }
  const bool keeps = decision.lack == Lack::filterViaType && !unprogramOtherViaType();
  out.say( keeps ? "keeps" : "programmed is", " the port map of label ", via.label, " and ",
           via.intfId );
  if ( keeps ) {
    out.say( "unprogramOtherViaType would delete it" );
  }
  return keeps;
}

// Whether the route waits for its next try.
bool EsiFilteringDecapSm::explainWait( const RouteKey & routeKey, const Decision & decision,
                                       Explanation & out ) const {
  const auto waiting = examine( lfibHwStatus()->unprogrammedRouteTable(), routeKey, out );
  if ( !waiting ) {
    return false;
  }
  if ( waiting->returnCode != LfibHwProgrammingReturnCode::conflict ) {
    auto refused = refusal( routeKey );
    const auto code = Vex::text( waiting->returnCode );
    if ( !refused.why.starts_with( code ) ) {
      refused.why = refused.why.empty() ? code : code + ", " + refused.why;
    }
    out.refused( Refused{ refused } );
  } else if ( decision.lack == Lack::nothing && intfRouteHas( decision.via.intfId ) ) {
    out.awaits( "waiting for route ", intfRoute( decision.via.intfId ), " to give up ",
                decision.via.intfId );
  } else {
    out.awaits( "another route had its interface when it was last tried" );
  }
  out.say( "next try ", nextTry() );
  return true;
}

void EsiFilteringDecapSm::addMissing( Missing & out ) const {
  for ( const auto & waiting : lfibHwStatus()->unprogrammedRoute() ) {
    if ( waiting.returnCode == LfibHwProgrammingReturnCode::conflict ) {
      out.add( { Standing::waiting, {}, nextTry( {} ).time }, waiting.routeKey,
               "waiting for another route to give its interface up" );
    } else {
      addRefusal( waiting.routeKey, waiting.routeKey, out );
    }
  }
  out.addUnnamed( { Standing::waiting, {}, reviewRouteKeyBacklog()->nextRun() },
                  lfibTrackingStatus()->routeKeyBacklogs(), "route", "in the backlog" );
}

// --- What holds between events

void EsiFilteringDecapSm::check( Findings & out ) const {
  RetryingSm::check( out );
  parking_.check( out );
  out.expect( routeEsiFilterVias() == intfRoutes(), "routes and interfaces are not one to one" );
  for ( const auto & [ routeKey, via ] : routeEsiFilterVia() ) {
    out.expect( intfRoute( via.intfId ) == routeKey, "intfRoute lacks ", via.intfId, " of route ",
                routeKey );
    out.expect( !parking_.has( routeKey ), "route ", routeKey, " is programmed and parked" );
  }
  out.expect( lfibTrackingStatus()->routeKeyBacklogs() == 0 || !hasNotificationActive() ||
                  lfibTrackingStatusReactor_.markedForDeletion() ||
                  reviewRouteKeyBacklog()->isScheduled(),
              "routes are in the backlog and no run is due" );
}

// --- What an audit is told

void EsiFilteringDecapSm::addAuditParts( KezHelper::AuditParts & out ) {
  using Wire::IntfId;
  using Wire::MplsLabel;
  const auto intfs = [ this ] { return intfRoute(); };
  KezHelper::AuditedSides< IntfId, MplsLabel > sides;
  sides.machine = name();
  sides.table = "esiPortMap";
  sides.hardware = esiFilteringDecapHelper()->esiPortMaps();
  sides.record = KezHelper::tableView< IntfId, MplsLabel >( intfs, [ this ]( IntfId intfId ) {
    return intfRouteHas( intfId ) ? std::optional( routeEsiFilterVia( intfRoute( intfId ) ).label )
                                  : std::nullopt;
  } );
  // Which of the routes that name an interface has it is a matter of which came first.
  sides.askedFor = KezHelper::tableView< IntfId, MplsLabel >(
      intfs, [ this ]( IntfId intfId ) -> std::optional< MplsLabel > {
        Explanation damage; // which is told of where the route is looked at
        const auto decision = decide( intfRoute( intfId ), &damage );
        return intfRouteHas( intfId ) && decision.lack == Lack::nothing &&
                       decision.via.intfId == intfId
                   ? std::optional( decision.via.label )
                   : std::nullopt;
      } );
  sides.due = [ this ]( IntfId intfId ) {
    return lfibTrackingStatus()->routeKeyBacklogHas( intfRoute( intfId ) );
  };
  sides.remove = [ this ]( IntfId intfId, MplsLabel label ) {
    esiFilteringDecapHelper()->deleteEsiPortMap( label, intfId );
  };
  // Without room to publish that it is not programmed it goes to the backlog, which needs none.
  sides.forget = [ this ]( IntfId intfId, MplsLabel ) {
    const auto routeKey = intfRoute( intfId );
    routeEsiFilterViaDel( routeKey );
    intfRouteDel( intfId );
    if ( addRouteToUnprogrammed( routeKey, Mpls::LfibHwProgrammingReturnCode::notProgrammed ) ) {
      parking_.lose( routeKey, Mpls::LfibHwProgrammingReturnCode::notProgrammed );
      maybeScheduleUnprogrammedReview();
    } else {
      lfibTrackingStatus()->routeKeyBacklogIs( routeKey );
    }
  };
  out.add( std::move( sides ) );
}

} // namespace Kez
