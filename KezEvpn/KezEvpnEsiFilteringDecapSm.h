// Attaches the Ethernet-segment filter vias of MPLS routes to ESI port maps in hardware.
//
// A route whose first via is such a filter has the via's port map, (label, interface), programmed.
// An interface belongs to one route at most: a second one that names it waits with the code
// `conflict` and reaches no hardware. What waits, for that or because hardware refused it, stands
// in LfibHwStatus::unprogrammedRoute and is tried again every `defaultUnprogrammedRetryInterval`
// while anything is there; routes take turns. A route whose via becomes one of another type
// keeps the port map that it has, unless `unprogramOtherViaType` says otherwise.
//
// Routes to look at come through LfibTrackingStatus::routeKeyBacklog, from which the machine
// takes each when it has dealt with it. It starts by itself, at the end of its construction, and
// puts every route that stands into the backlog then.
#pragma once

#include "KezEvpn/frame/Parking.h"
#include "KezHelper/EsiFilteringDecapHelper.h"
#include "Mpls/LfibStatus.h"

namespace Kez {

class EsiFilteringDecapSm : public RetryingSm< Mpls::RouteKey > {
public:
  using VexReviewRouteKeyBacklog = ReviewTask< Mpls::RouteKey >;

  class VexLfibTrackingStatus
      : public Vex::ReactorOf< EsiFilteringDecapSm, Mpls::LfibTrackingStatus > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
    void handleNotifier() override;
  };

  VEX_ENTITY( EsiFilteringDecapSm, "Kez::EsiFilteringDecapSm", RetryingSm< Mpls::RouteKey > )
  VEX_OUTPUT( 1, esiFilteringDecapHelper, KezHelper::EsiFilteringDecapHelper )
  VEX_INPUT( 2, lfibStatus, Mpls::LfibStatus )
  VEX_OUTPUT( 3, scheduler, Loom::TaskScheduler )
  VEX_OUTPUT( 4, lfibTrackingStatus, Mpls::LfibTrackingStatus )
  VEX_OUTPUT( 5, lfibHwStatus, Mpls::LfibHwStatus )
  // The via whose port map hardware has for the route; never of a route in `unprogrammedRoute`.
  VEX_MAP( 6, routeEsiFilterVia, Mpls::RouteKey, Mpls::LfibEvpnEthernetSegmentFilterVia )
  // The route whose via names the interface, the other way round.
  VEX_MAP( 7, intfRoute, Wire::IntfId, Mpls::RouteKey )
  VEX_OUTPUT( 8, reviewRouteKeyBacklog, VexReviewRouteKeyBacklog )
  // The port map of a route whose via becomes one of another type is deleted.
  VEX_HANDLED_TUNABLE( 9, unprogramOtherViaType, bool, false )
  VEX_ATTRIBUTES( esiFilteringDecapHelper, lfibStatus, scheduler, lfibTrackingStatus, lfibHwStatus,
                  routeEsiFilterVia, intfRoute, reviewRouteKeyBacklog, unprogramOtherViaType )

  EsiFilteringDecapSm( Out< KezHelper::EsiFilteringDecapHelper > esiFilteringDecapHelper,
                       In< Mpls::LfibStatus > lfibStatus, Out< Loom::TaskScheduler > scheduler,
                       Out< Mpls::LfibTrackingStatus > lfibTrackingStatus,
                       Out< Mpls::LfibHwStatus > lfibHwStatus );
  ~EsiFilteringDecapSm() override;
  // Takes what the constructor takes.
  template< class... Arguments >
  static Vex::Ptr< EsiFilteringDecapSm > EsiFilteringDecapSmIs( const Arguments &... arguments ) {
    return Vex::makePtr< EsiFilteringDecapSm >( arguments... );
  }

  // The constructor's last step: its host has nothing to call.
  void handleInitialized() override;
  void handleRouteKeyBacklog();
  void reviewRouteKeyBacklogIs( Out< Loom::TaskScheduler > scheduler, Loom::TaskPriority priority,
                                const Vex::String & name );
  void vex_handleReviewRouteKeyBacklog_taskRun();
  void doReviewRouteKeyBacklog();
  void processRouteKeyBacklog( const Mpls::RouteKey & routeKey );
  // These return false when the route is not programmed and there is no room to publish that: it is
  // to stay in the backlog.
  bool processRouteKey( const Mpls::RouteKey & routeKey );
  bool createEsiFilterVia( const Mpls::RouteKey & routeKey,
                           const Mpls::LfibEvpnEthernetSegmentFilterVia & via );
  bool addRouteToUnprogrammed( const Mpls::RouteKey & routeKey,
                               Mpls::LfibHwProgrammingReturnCode rc );
  void deleteEsiFilterVia( const Mpls::RouteKey & routeKey );
  void deleteRouteFromUnprogrammed( const Mpls::RouteKey & routeKey );
  void maybeScheduleUnprogrammedReview();
  void doReviewUnprogrammed() override;
  void explain( const Subject & subject, Explanation & out ) const override;
  void addMissing( Missing & out ) const override;
  void check( Findings & out ) const override;
  void addAuditParts( KezHelper::AuditParts & out ) override;
  bool settled() const override { return lfibTrackingStatus()->routeKeyBacklogs() == 0; }

private:
  // The line of unprogrammed routes, in the hardware status.
  struct UnprogrammedRoutes {
    const Vex::Ptr< Mpls::LfibHwStatus > & lfibHwStatus; // null when there is none to start on

    size_t size() const { return lfibHwStatus->unprogrammedRoutes(); }
    // A damaged one is not.
    bool has( const Mpls::RouteKey & routeKey ) const {
      return lfibHwStatus->unprogrammedRouteTable().examine( routeKey ).record.has_value();
    }
    auto range() const { return lfibHwStatus->unprogrammedRoute(); }
    void add( const Mpls::RouteKey & routeKey, Mpls::LfibHwProgrammingReturnCode rc ) {
      lfibHwStatus->unprogrammedRouteIs( { routeKey, rc } );
    }
    void remove( const Mpls::RouteKey & routeKey ) {
      lfibHwStatus->unprogrammedRouteDel( routeKey );
    }
  };

  // What a route lacks to have a port map, the first of it.
  enum class Lack { nothing, route, viaSet, filterViaType, via };
  struct Decision {
    Lack lack = Lack::nothing;
    uint32_t viaSetId = 0;
    Mpls::LfibViaKey viaKey;
    Mpls::LfibEvpnEthernetSegmentFilterVia via;
  };
  void backlogEveryRoute();
  bool standsIn( const KezHelper::HwTable< Wire::IntfId, Wire::MplsLabel > & portMaps,
                 const Mpls::RouteKey & routeKey ) const;
  void unprogramOtherViaTypeChanged();
  void makeRoomForBacklog();
  // Damage that is met is said to who asked, else handed to the table's corruption handler.
  Decision decide( const Mpls::RouteKey & routeKey, Explanation * asked = nullptr ) const;
  bool waitsForHardware( const Mpls::RouteKey & routeKey ) const;
  void explainLack( const Decision & decision, Explanation & out ) const;
  bool explainProgrammed( const Mpls::RouteKey & routeKey, const Decision & decision,
                          Explanation & out ) const;
  bool explainWait( const Mpls::RouteKey & routeKey, const Decision & decision,
                    Explanation & out ) const;

  size_t parked() const override { return lfibHwStatus()->unprogrammedRoutes(); }
  Vex::String refusalReason() const override { return esiFilteringDecapHelper()->refusalReason(); }
  // Its reviews are due when a run ends, never at once.
  void maybeScheduleUnprogrammedReview( bool ) override { maybeScheduleUnprogrammedReview(); }

  Parking< Mpls::RouteKey, UnprogrammedRoutes > parking_;
  VexLfibTrackingStatus lfibTrackingStatusReactor_;
};

Vex::Ptr< EsiFilteringDecapSm >
esiFilteringDecapSmFactory( Out< KezHelper::EsiFilteringDecapHelper > esiFilteringDecapHelper,
                            In< Mpls::LfibStatus > lfibStatus, Out< Loom::TaskScheduler > scheduler,
                            Out< Mpls::LfibTrackingStatus > lfibTrackingStatus,
                            Out< Mpls::LfibHwStatus > lfibHwStatus );

} // namespace Kez
