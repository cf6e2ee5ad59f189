#include "RookTestTypes.h"
#include "TraceCapture.h"
#include "VirtualTime.h"

#include "KezEvpn/KezEvpnEsiFilteringDecapSm.h"
#include "KezHelper/EsiFilteringDecapHelperStub.h"

#include <gmock/gmock.h>

using Mpls::LfibViaKey;
using Mpls::LfibViaType;
using Mpls::RouteKey;
using testing::ElementsAre;
using testing::IsEmpty;
using Rc = Mpls::LfibHwProgrammingReturnCode;
using Lines = std::vector< std::string >;

namespace {

TEST( EsiFilteringDecapHelper, BaseRefusesAndStubCountsRecordsAndAnswers ) {
  const auto base = Vex::makePtr< KezHelper::EsiFilteringDecapHelper >( "bare" );
  const std::string failure = "\n/usr/include/Kez/KezBaseHelper:[0-9]+: assertion failed: 0";
  EXPECT_DEATH( base->createEsiPortMap( 1, {} ), "^Unimplemented createEsiPortMap" + failure );
  EXPECT_DEATH( base->deleteEsiPortMap( 1, {} ), "^Unimplemented deleteEsiPortMap" + failure );
  ::setenv( "KEZ_NOOP_AGENT", "", 1 );
  EXPECT_EQ( static_cast< int >( base->createEsiPortMap( 1, {} ) ), 2 );
  base->deleteEsiPortMap( 1, {} );
  ::unsetenv( "KEZ_NOOP_AGENT" );

  const auto stub = KezHelper::esiFilteringDecapHelperStubFactory( "stub" );
  const auto recorded = [ & ] {
    std::string all;
    for ( const auto * attribute : stub->fwkType().attributes() ) {
      all += attribute->value( *stub ) + " ";
    }
    return all;
  };
  EXPECT_EQ( recorded(), "success 0 1048576  0 1048576  " );
  EXPECT_EQ( stub->createEsiPortMap( 1, "Ethernet1" ), Rc::success );
  stub->createEsiPortMapRcIs( Rc::tableFull );
  EXPECT_EQ( stub->createEsiPortMap( 2, "Ethernet2" ), Rc::tableFull );
  stub->deleteEsiPortMap( 3, "Ethernet3" );
  EXPECT_EQ( recorded(), "tableFull 2 2 Ethernet2 1 3 Ethernet3 " );
}

TEST( Lfib, ValuesReadBackFromTheirText ) {
  const auto filter = LfibViaType::evpnEthernetSegmentFilter;
  EXPECT_EQ( static_cast< int >( filter ), 6 );
  const Mpls::LfibViaSet sets[] = { { 1, {} },
                                    { 2, { { filter, 7 } } },
                                    { 3, { { LfibViaType::mpls, 1 }, { filter, 0 } } } };
  for ( const auto & set : sets ) {
    EXPECT_EQ( Vex::parse< Mpls::LfibViaSet >( Vex::text( set ) ), set );
    EXPECT_EQ( Vex::parseBriefly< Mpls::LfibViaSet >( Vex::briefText( set ) ), set );
  }
  EXPECT_EQ( Vex::text( sets[ 2 ].viaKeys ), "mpls:1,evpnEthernetSegmentFilter:0" );
  for ( const auto * wrong :
        { "mpls", "mpls:", "mpls:x", "mpls:-1", "tunnel:1", ":1", "mpls:1,", "mpls:16777216" } ) {
    EXPECT_THROW( Vex::parse< Mpls::LfibViaKeys >( wrong ), Vex::ParseError ) << wrong;
  }
  // A list never gets an empty key from a text, and not more than it can hold.
  EXPECT_THROW( Vex::parse< Mpls::LfibViaKeys >( "mpls:1,none:0" ), Vex::ParseError );
  EXPECT_THROW( Vex::parse< Mpls::LfibViaKeys >( "mpls:1,mpls:1,mpls:1,mpls:1,mpls:1,mpls:1,mpls:1,"
                                                 "mpls:1,mpls:1" ),
                Vex::RangeError );
  EXPECT_THROW( Vex::parse< RouteKey >( "1048576" ), Vex::ParseError );
}

// Hardware that has one label an interface, and refuses interfaces as it is told to.
class Chip : public KezHelper::EsiFilteringDecapHelper {
public:
  using EsiFilteringDecapHelper::EsiFilteringDecapHelper;

  Rc createEsiPortMap( Wire::MplsLabel label, Wire::IntfId intfId ) override {
    calls.push_back( "create " + Vex::text( label ) + " " + Vex::text( intfId ) );
    if ( const auto refusal = refusals.find( intfId ); refusal != refusals.end() ) {
      return refusal->second;
    }
    EXPECT_TRUE( maps.emplace( intfId, label ).second ) << calls.back();
    return Rc::success;
  }
  void deleteEsiPortMap( Wire::MplsLabel label, Wire::IntfId intfId ) override {
    calls.push_back( "delete " + Vex::text( label ) + " " + Vex::text( intfId ) );
    EXPECT_EQ( maps.at( intfId ), label );
    maps.erase( intfId );
  }
  Lines take() { return std::exchange( calls, {} ); }

  std::map< Wire::IntfId, Rc > refusals;
  std::map< Wire::IntfId, Wire::MplsLabel > maps;
  Lines calls;
};

class EsiFilteringDecapSmTest : public VirtualTime {
protected:
  void start() {
    sm = Kez::esiFilteringDecapSmFactory( chip, lfib, scheduler, tracking, hwStatus );
  }
  // A route has the via set of its own number, which has the vias of that number.
  static LfibViaKey filterKey( uint32_t number ) {
    return { LfibViaType::evpnEthernetSegmentFilter, number };
  }
  void route( uint32_t number, const Mpls::LfibViaKeys & viaKeys ) {
    lfib->viaSetIs( { number, viaKeys } );
    lfib->routeIs( { RouteKey( number ), number } );
    tracking->routeKeyBacklogIs( RouteKey( number ) );
  }
  void filterRoute( uint32_t number, uint32_t label, Wire::IntfId intfId ) {
    lfib->evpnEthernetSegmentFilterViaIs( { filterKey( number ), label, intfId } );
    route( number, { filterKey( number ) } );
  }
  void routeDel( uint32_t number ) {
    lfib->routeDel( RouteKey( number ) );
    tracking->routeKeyBacklogIs( RouteKey( number ) );
  }
  std::string parked( uint32_t number ) {
    const auto info = hwStatus->unprogrammedRoute( RouteKey( number ) );
    return info ? stringValue( info->returnCode ) : "";
  }
  // One turn after the other while a task is ready; false when that does not end.
  bool settle( size_t turns = 1000 ) {
    while ( turns > 0 && scheduler->runReady() ) {
      checkInvariants();
      --turns;
    }
    return turns > 0;
  }
  // What holds after every handler.
  void checkInvariants() {
    std::map< Wire::IntfId, Wire::MplsLabel > programmed;
    for ( const auto & [ routeKey, via ] : sm->routeEsiFilterVia() ) {
      EXPECT_EQ( sm->intfRoute( via.intfId ), routeKey );
      EXPECT_FALSE( hwStatus->unprogrammedRouteHas( routeKey ) ) << routeKey;
      programmed[ via.intfId ] = via.label;
    }
    EXPECT_EQ( sm->intfRoutes(), sm->routeEsiFilterVias() );
    EXPECT_EQ( programmed, chip->maps );
  }

  const Wire::IntfId eth1{ "Ethernet1" };
  const Wire::IntfId eth2{ "Ethernet2" };
  const Wire::IntfId eth3{ "Ethernet3" };
  Vex::Ptr< Chip > chip = Vex::makePtr< Chip >( "chip" );
  Vex::Ptr< Mpls::LfibStatus > lfib = Vex::makePtr< Mpls::LfibStatus >( "lfib" );
  Vex::Ptr< Mpls::LfibTrackingStatus > tracking = Vex::makePtr< Mpls::LfibTrackingStatus >();
  Vex::Ptr< Mpls::LfibHwStatus > hwStatus = Vex::makePtr< Mpls::LfibHwStatus >( "hwStatus" );
  Vex::Ptr< Kez::EsiFilteringDecapSm > sm;
};

TEST_F( EsiFilteringDecapSmTest, RouteStaysInTheBacklogWhileItCouldNotBePublishedAsRefused ) {
  const RookTest::MountDirectory directory;
  hwStatus = Vex::makePtr< Mpls::LfibHwStatus >( "full" );
  start();
  for ( uint32_t number = 1; number <= 2000; ++number ) {
    filterRoute( number, number, eth1 ); // which the first route has
  }
  {
    const RookTest::Limit longest( RLIMIT_FSIZE, 64 * 1024 );
    EXPECT_TRUE( settle() );
    const auto waiting = tracking->routeKeyBacklogs();
    EXPECT_GT( waiting, 0u );
    EXPECT_EQ( hwStatus->unprogrammedRoutes() + waiting, 1999u );
    advance( 5 );
    EXPECT_EQ( tracking->routeKeyBacklogs(), waiting );
  }
  advance( 5 );
  EXPECT_EQ( tracking->routeKeyBacklogs(), 0u );
  EXPECT_EQ( hwStatus->unprogrammedRoutes(), 1999u );
}

TEST_F( EsiFilteringDecapSmTest, PortMapFollowsTheFirstViaOfARoute ) {
  filterRoute( 1, 500, eth1 );
  start(); // deals with what stands in the backlog
  EXPECT_THAT( chip->take(), IsEmpty() );
  EXPECT_TRUE( settle() );
  EXPECT_THAT( chip->take(), ElementsAre( "create 500 Ethernet1" ) );
  EXPECT_EQ( tracking->routeKeyBacklogs(), 0u );
  EXPECT_EQ( scheduler->nextDeadline(), std::nullopt );

  tracking->routeKeyBacklogIs( RouteKey( 1 ) );
  EXPECT_THAT( chip->take(), IsEmpty() ); // never inside the notification
  EXPECT_TRUE( settle() );
  EXPECT_THAT( chip->take(), ElementsAre( "delete 500 Ethernet1", "create 500 Ethernet1" ) );
  filterRoute( 1, 501, eth2 );
  EXPECT_TRUE( settle() );
  EXPECT_THAT( chip->take(), ElementsAre( "delete 500 Ethernet1", "create 501 Ethernet2" ) );

  // A via of another type leaves the port map alone, wherever the filter stands in the set.
  TraceCapture trace( "KezEvpnEsiFilteringDecapSm/5" );
  route( 1, { { LfibViaType::mpls, 9 }, filterKey( 1 ) } );
  EXPECT_TRUE( settle() );
  EXPECT_THAT( chip->take(), IsEmpty() );
  EXPECT_THAT( trace.take(), testing::Contains( "5 Skipping viaType mpls" ) );
  sm->unprogramOtherViaTypeIs( true );
  EXPECT_TRUE( settle() );
  EXPECT_THAT( chip->take(), ElementsAre( "delete 501 Ethernet2" ) );
  filterRoute( 1, 500, eth1 );
  EXPECT_TRUE( settle() );
  route( 1, { { LfibViaType::mpls, 9 } } );
  EXPECT_TRUE( settle() );
  EXPECT_THAT( chip->take(), ElementsAre( "create 500 Ethernet1", "delete 500 Ethernet1" ) );

  const std::pair< const char *, std::function< void() > > ends[] = {
    { "5 route was deleted", [ & ] { routeDel( 1 ); } },
    { "5 viaset was deleted", [ & ] { lfib->viaSetDel( 1 ); } },
    { "5 viaset was deleted", [ & ] { route( 1, {} ); } },
    { "", [ & ] { lfib->evpnEthernetSegmentFilterViaDel( filterKey( 1 ) ); } },
  };
  for ( const auto & [ text, end ] : ends ) {
    filterRoute( 1, 501, eth2 );
    EXPECT_TRUE( settle() );
    EXPECT_EQ( chip->maps.size(), 1u );
    trace.take();
    end();
    tracking->routeKeyBacklogIs( RouteKey( 1 ) );
    EXPECT_TRUE( settle() );
    EXPECT_THAT( chip->maps, IsEmpty() ) << text;
    EXPECT_TRUE( !*text || trace.take().front() == text );
  }
}

TEST_F( EsiFilteringDecapSmTest, SecondRouteOfAnInterfaceWaitsForTheFirstToGo ) {
  start();
  filterRoute( 1, 500, eth1 );
  filterRoute( 2, 600, eth2 );
  EXPECT_TRUE( settle() );
  filterRoute( 2, 600, eth1 ); // gives its own interface up for one that it does not get
  EXPECT_TRUE( settle() );
  EXPECT_THAT( chip->take(), ElementsAre( "create 500 Ethernet1", "create 600 Ethernet2",
                                          "delete 600 Ethernet2" ) );
  EXPECT_EQ( parked( 2 ), "conflict" );
  routeDel( 1 );
  EXPECT_TRUE( settle() );
  advanceTo( 5 );
  EXPECT_EQ( sm->intfRoute( eth1 ), RouteKey( 2 ) );
  EXPECT_EQ( parked( 2 ), "" );
  EXPECT_EQ( scheduler->nextDeadline(), std::nullopt );
}

// Over what an earlier machine left, and hardware that has nothing.
TEST_F( EsiFilteringDecapSmTest, StartTakesUpEveryRouteAndDisplacesNoHolderOfAnInterface ) {
  start();
  route( 3, {} ); // stands before the one that comes to have the interface
  route( 4, {} );
  filterRoute( 1, 500, eth1 );
  filterRoute( 2, 600, eth2 );
  EXPECT_TRUE( settle() );
  filterRoute( 3, 700, eth1 );
  filterRoute( 5, 900, eth1 );
  EXPECT_TRUE( settle() );
  lfib->routeDel( RouteKey( 5 ) );
  filterRoute( 4, 800, eth2 ); // not looked at any more
  tracking->routeKeyBacklogIs( RouteKey( 3 ) );
  chip->maps.clear();
  sm = nullptr;

  start();
  EXPECT_EQ( parked( 3 ), "" ); // and no retry comes before the routes that had their interfaces
  EXPECT_TRUE( settle() );
  const auto map = [ & ]( uint32_t label, Wire::IntfId intfId ) {
    return std::pair( intfId, Wire::MplsLabel( label ) );
  };
  EXPECT_THAT( chip->maps, ElementsAre( map( 500, eth1 ), map( 600, eth2 ) ) );
  EXPECT_EQ( parked( 3 ), "conflict" );
  EXPECT_EQ( parked( 4 ), "conflict" );
  EXPECT_EQ( parked( 5 ), "" );
  EXPECT_EQ( tracking->routeKeyBacklogs(), 0u );
}

TEST_F( EsiFilteringDecapSmTest, TracesWhatBecomesOfARoute ) {
  start();
  TraceCapture trace( "KezEvpnEsiFilteringDecapSm/5" );
  filterRoute( 1, 500, eth1 );
  filterRoute( 2, 600, eth1 );
  EXPECT_TRUE( settle() );
  const auto * const noneToDelete = "5 No unprogrammed routes, nothing to delete";
  EXPECT_THAT(
      trace.take(),
      ElementsAre( noneToDelete, "5 create 500 Ethernet1 rc: success", noneToDelete, noneToDelete,
                   "5 intf Ethernet1 already associated with route 1, adding via to unprogrammed",
                   "5 route 2 reason conflict", "5 next unprogrammed review at 5",
                   "5 unprogrammed review already scheduled" ) ); // by the run for what was deleted
  routeDel( 2 );
  EXPECT_TRUE( settle() );
  const auto * const noneToReview = "5 no unprogrammed routes, nothing to review";
  EXPECT_THAT( trace.take(),
               ElementsAre( "5 route was deleted", "5 route 2", noneToReview, noneToReview ) );
}

TEST_F( EsiFilteringDecapSmTest, RouteThatAsksForNothingAnyMoreIsNotParked ) {
  start();
  chip->refusals[ eth1 ] = Rc::notProgrammed;
  const std::function< void() > ends[] = {
    [ & ] {
      route( 1, { { LfibViaType::mpls, 9 } } );
    },
    [ & ] { route( 1, {} ); },
    [ & ] { lfib->evpnEthernetSegmentFilterViaDel( filterKey( 1 ) ); },
    [ & ] { routeDel( 1 ); },
  };
  for ( const auto & end : ends ) {
    filterRoute( 1, 500, eth1 );
    EXPECT_TRUE( settle() );
    EXPECT_EQ( parked( 1 ), "notProgrammed" );
    end();
    tracking->routeKeyBacklogIs( RouteKey( 1 ) );
    EXPECT_TRUE( settle() );
    EXPECT_EQ( parked( 1 ), "" );
  }
}

TEST_F( EsiFilteringDecapSmTest, RetriedRoutesTakeTurns ) {
  start();
  const Wire::IntfId intfs[] = { eth1, eth2, eth3 };
  for ( uint32_t number = 1; number <= 3; ++number ) {
    chip->refusals[ intfs[ number - 1 ] ] = Rc::tableFull;
    filterRoute( number, number, intfs[ number - 1 ] );
  }
  EXPECT_TRUE( settle() );
  chip->take();
  advanceTo( 5 ); // all of them in one run, although each is parked again
  EXPECT_THAT( chip->take(),
               ElementsAre( "create 1 Ethernet1", "create 2 Ethernet2", "create 3 Ethernet3" ) );
  EXPECT_EQ( scheduler->nextDeadline(), 10.0 );

  // One a run. Work on the backlog meanwhile neither brings the turn back to the first nor
  // postpones it, also when the one whose turn it is gets its turn so, or goes.
  scheduler->workBudgetIs( 1 );
  advanceTo( 10 );
  tracking->routeKeyBacklogIs( RouteKey( 7 ) );
  advanceTo( 15 );
  EXPECT_THAT( chip->take(), ElementsAre( "create 1 Ethernet1", "create 2 Ethernet2" ) );
  advanceTo( 20 );
  advanceTo( 25 );
  EXPECT_THAT( chip->take(), ElementsAre( "create 3 Ethernet3", "create 1 Ethernet1" ) );
  tracking->routeKeyBacklogIs( RouteKey( 2 ) );
  advanceTo( 30 );
  EXPECT_THAT( chip->take(), ElementsAre( "create 2 Ethernet2", "create 3 Ethernet3" ) );
  advanceTo( 35 );
  routeDel( 2 );
  advanceTo( 40 );
  EXPECT_THAT( chip->take(), ElementsAre( "create 1 Ethernet1", "create 3 Ethernet3" ) );
}

TEST_F( EsiFilteringDecapSmTest, BacklogThatNeverRunsDryStarvesNobody ) {
  start();
  scheduler->workBudgetIs( 1 );
  chip->refusals[ eth1 ] = Rc::notProgrammed;
  filterRoute( 1, 500, eth1 );
  filterRoute( 2, 600, eth2 );
  for ( int turn = 1; turn <= 100; ++turn ) {
    tracking->routeKeyBacklogIs( RouteKey( 100 + turn ) );
    tracking->routeKeyBacklogIs( RouteKey( 1000 + turn ) );
    scheduler->runReady();
    Vex::Clock::advanceTo( turn * 0.1 );
  }
  EXPECT_THAT( chip->take(), ElementsAre( "create 500 Ethernet1", "create 600 Ethernet2",
                                          "create 500 Ethernet1" ) );
  EXPECT_EQ( tracking->routeKeyBacklogs(), 102u );
  EXPECT_TRUE( settle() );
}

TEST_F( EsiFilteringDecapSmTest, SwitchedOffItDealsWithTheBacklogWhenItIsToldAgain ) {
  start();
  EXPECT_TRUE( settle() );
  sm->hasNotificationActiveIs( false );
  filterRoute( 1, 500, eth1 );
  EXPECT_EQ( scheduler->runReady(), 0u );
  sm->hasNotificationActiveIs( true );
  EXPECT_EQ( scheduler->runReady(), 0u );
  tracking->routeKeyBacklogIs( RouteKey( 7 ) );
  EXPECT_TRUE( settle() );
  sm->vexDoZombieReactors( true );
  EXPECT_TRUE( settle() );
  filterRoute( 2, 600, eth2 );
  EXPECT_EQ( scheduler->runReady(), 0u );
  sm->vexDoZombieReactors( false );
  EXPECT_TRUE( settle() );
  EXPECT_THAT( chip->take(), ElementsAre( "create 500 Ethernet1", "create 600 Ethernet2" ) );

  // What was due of a machine that is dropped never runs.
  filterRoute( 3, 700, eth3 );
  const auto task = sm->reviewRouteKeyBacklog();
  sm = nullptr;
  EXPECT_EQ( scheduler->runReady(), 0u );
}

TEST_F( EsiFilteringDecapSmTest, DamagedRecordIsToldOfAndReadsAsNone ) {
  const RookTest::MountDirectory directory;
  lfib = Vex::makePtr< Mpls::LfibStatus >( "damaged" );
  std::string told;
  lfib->routeTable().corruptionHandlerIs( [ & ]( const auto & damage ) { told = damage.what(); } );
  start();
  filterRoute( 1, 500, eth1 );
  EXPECT_TRUE( settle() );
  RookTest::poke( directory.path( "damaged/route" ), RookTest::recordOffset + 4, 7 );
  tracking->routeKeyBacklogIs( RouteKey( 1 ) );
  EXPECT_TRUE( settle() );
  EXPECT_THAT( told, testing::HasSubstr( "the record in slot 0 is damaged" ) );
  EXPECT_THAT( chip->maps, IsEmpty() );
}

TEST_F( EsiFilteringDecapSmTest, BrokenInvariantsAreFatal ) {
  const auto factory = Kez::esiFilteringDecapSmFactory;
  EXPECT_DEATH(
      factory( nullptr, nullptr, nullptr, nullptr, nullptr ),
      "KezEvpnEsiFilteringDecapSm:[0-9]+: assertion failed: esiFilteringDecapHelper\\(\\)" );
  EXPECT_DEATH( factory( chip, nullptr, nullptr, nullptr, nullptr ), "failed: lfibStatus\\(\\)" );
  EXPECT_DEATH( factory( chip, lfib, nullptr, nullptr, nullptr ), "failed: scheduler\\(\\)" );
  EXPECT_DEATH( factory( chip, lfib, scheduler, nullptr, hwStatus ),
                "failed: lfibTrackingStatus\\(\\)" );
  EXPECT_DEATH( factory( chip, lfib, scheduler, tracking, nullptr ), "failed: lfibHwStatus\\(\\)" );
  start();
  EXPECT_DEATH( sm->processRouteKeyBacklog( RouteKey( 1 ) ),
                "failed: backlogIter.isMemberOf\\( routeKey \\)" );
  route( 1, { LfibViaKey() } );
  EXPECT_DEATH( settle(), "failed: !!viaKey" );
  filterRoute( 1, 500, eth1 );
  chip->refusals[ eth1 ] = Rc::conflict;
  EXPECT_DEATH( settle(), "createEsiPortMap 500 Ethernet1 -> conflict\n"
                          ".*failed: !\"Unexpected rc. Conflict detection logic is already done in "
                          "Kez\"" );
  chip->refusals.clear();
  settle();
  EXPECT_DEATH( sm->createEsiFilterVia( RouteKey( 1 ), { filterKey( 1 ), 500, eth2 } ),
                "failed: !routeEsiFilterViaHas\\( routeKey \\)" );
  sm->initializedIs( false );
  EXPECT_DEATH( sm->doReviewUnprogrammed(), "failed: initialized\\(\\)" );
}

} // namespace
