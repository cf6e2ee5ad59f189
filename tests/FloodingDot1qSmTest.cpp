#include "FloodingMachines.h"

#include "KezEvpn/KezEvpnFloodingDot1qSm.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class FloodingDot1qSmTest : public FloodingMachines {
protected:
  void make() {
    sm = Kez::evpnFloodingDot1qSmFactory( helper, scheduler, lagInfo, evpnVlanStatus, evpnStatus,
                                          mplsConfig );
  }
  void start() {
    make();
    sm->handleInitialized();
  }
  void member( Bridging::VlanId vlan, Wire::IntfId intf ) {
    evpnVlanStatus->vlanStatusIs( vlan )->memberIs( intf );
  }
  std::map< Switch::PortVlanKey, Bridging::VlanIdOrNone > mappings() const {
    std::map< Switch::PortVlanKey, Bridging::VlanIdOrNone > all;
    for ( const auto [ key, dot1q ] : hardware->dot1qMapping() ) {
      all[ key ] = dot1q;
    }
    return all;
  }

  Vex::Ptr< Kez::EvpnVlanStatus > evpnVlanStatus = Kez::evpnVlanStatusFactory();
  Vex::Ptr< Evpn::MplsConfig > mplsConfig = Vex::makePtr< Evpn::MplsConfig >();
  Vex::Ptr< Kez::EvpnFloodingDot1qSm > sm;
};

TEST_F( FloodingDot1qSmTest, ProgramsWhatStandsAtTheStartAndNothingBefore ) {
  evpnStatus->vlanToDot1qIs( 10, 110 );
  member( 10, eth1 );
  make();
  member( 10, lag1 );
  lagIs( lag1, { eth2, eth3 } );
  evpnStatus->vlanToDot1qIs( 20, 120 );
  mplsConfig->vlanServiceDot1qEnabledIs( true );
  EXPECT_EQ( hardware->callCounts(), 0u );
  EXPECT_DEATH( sm->processIntfVlan( eth1, 10 ), "assertion failed: initialized\\(\\)" );
  sm->handleInitialized();
  EXPECT_EQ( hardware->vlan( 10 ), 110 );
  EXPECT_EQ( hardware->vlan( 20 ), 120 );
  EXPECT_THAT( mappings(), IsEmpty() );
  advance( 1 );
  EXPECT_THAT( mappings(), ElementsAre( std::pair( Switch::PortVlanKey( eth1, eth1, 10 ), 110 ),
                                        std::pair( Switch::PortVlanKey( lag1, eth2, 10 ), 110 ),
                                        std::pair( Switch::PortVlanKey( lag1, eth3, 10 ), 110 ) ) );
  EXPECT_EQ( scheduler->nextDeadline(), std::nullopt );
}

TEST_F( FloodingDot1qSmTest, NewTagReplacesVlanAtOnceAndMappingsASecondLater ) {
  evpnStatus->vlanToDot1qIs( 10, 110 );
  member( 10, eth1 );
  start();
  advance( 1 );
  TraceCapture trace( "KezEvpnFloodingDot1qSm" );
  evpnStatus->vlanToDot1qIs( 10, 111 );
  EXPECT_THAT( trace.take(), ElementsAre( "5 EvpnFloodingDot1qSm::handleVlanDot1q vlanId 10 "
                                          "programmedDot1qExists 1 programmedDot1q 110 "
                                          "publishedDot1qExists 1 publishedDot1q 111",
                                          "5 programmed vlan 10 with dot1q 111",
                                          "8 EvpnFloodingDot1qSm::maybeScheduleIntfVlanReview intf "
                                          "Ethernet1 vlan 10",
                                          "5 next intf vlan review at 2" ) );
  EXPECT_EQ( hardware->vlan( 10 ), 111 );
  EXPECT_THAT( mappings(), ElementsAre( std::pair( Switch::PortVlanKey( eth1, eth1, 10 ), 110 ) ) );
  advance( 1 );
  EXPECT_THAT( mappings(), ElementsAre( std::pair( Switch::PortVlanKey( eth1, eth1, 10 ), 111 ) ) );
  EXPECT_THAT( trace.take(), Contains( "8 EvpnFloodingDot1qSm::unprogramDot1q intf Ethernet1 "
                                       "vlan 10 dot1q 110" ) );
}

TEST_F( FloodingDot1qSmTest, ServiceFlagTagsUntaggedVlansWithTheirOwnId ) {
  evpnStatus->vlanToDot1qIs( 10, 0 );
  evpnStatus->vlanToDot1qIs( 20, 120 );
  member( 10, eth1 );
  member( 30, eth1 );
  start();
  EXPECT_EQ( hardware->vlan( 10 ), 0 );
  mplsConfig->vlanServiceDot1qEnabledIs( true );
  advance( 1 );
  EXPECT_EQ( hardware->vlan( 10 ), 10 );
  EXPECT_EQ( hardware->vlan( 20 ), 120 );
  EXPECT_FALSE( hardware->vlanHas( 30 ) );
  EXPECT_THAT( mappings(), ElementsAre( std::pair( Switch::PortVlanKey( eth1, eth1, 10 ), 10 ) ) );
  mplsConfig->vlanServiceDot1qEnabledIs( false );
  advance( 1 );
  EXPECT_EQ( hardware->vlan( 10 ), 0 );
  EXPECT_THAT( mappings(), ElementsAre( std::pair( Switch::PortVlanKey( eth1, eth1, 10 ), 0 ) ) );
}

TEST_F( FloodingDot1qSmTest, RefusedVlanIsRetriedUntilItStandsOrIsWithdrawn ) {
  member( 10, eth1 );
  start();
  failNext( Operation::createVlan, 2 );
  evpnStatus->vlanToDot1qIs( 10, 110 );
  TraceCapture trace( "KezEvpnFloodingDot1qSm/5" );
  advanceTo( 9 );
  EXPECT_FALSE( hardware->vlanHas( 10 ) );
  EXPECT_THAT( trace.take(), Contains( "5 dot1q is not programmed yet" ) );
  advanceTo( 11 );
  EXPECT_EQ( calls( Operation::createVlan ), 3u );
  EXPECT_THAT( mappings(), ElementsAre( std::pair( Switch::PortVlanKey( eth1, eth1, 10 ), 110 ) ) );

  // Its next tag is refused, and then the VLAN is withdrawn: no retry is left, and no mapping.
  failNext( Operation::createVlan, 1 );
  evpnStatus->vlanToDot1qIs( 10, 111 );
  evpnStatus->vlanToDot1qDel( 10 );
  advance( 1 );
  EXPECT_THAT( mappings(), IsEmpty() );
  EXPECT_EQ( sm->unprogrammedDot1qs(), 0u );
  advance( 10 );
  EXPECT_EQ( scheduler->nextDeadline(), std::nullopt );
  EXPECT_EQ( calls( Operation::createVlan ), 4u );
}

TEST_F( FloodingDot1qSmTest, LagMembersComeAndGoOnTheirPortsAlone ) {
  evpnStatus->vlanToDot1qIs( 10, 110 );
  member( 10, lag1 );
  start();
  advance( 1 );
  EXPECT_THAT( mappings(), IsEmpty() );
  lagIs( lag1, { eth1, eth2 } );
  advance( 1 );
  EXPECT_EQ( calls( Operation::createVlanToDot1qMapping ), 2u );

  TraceCapture trace( "KezEvpnFloodingDot1qSm" );
  lagIs( lag1, { eth2, eth3 } );
  EXPECT_THAT( trace.take(), Contains( "8 marking Ethernet1 for force reprogram" ) );
  advance( 1 );
  EXPECT_THAT( trace.take(), Contains( "5 staleMember Ethernet1 forceReprogram 1" ) );
  EXPECT_EQ( calls( Operation::createVlanToDot1qMapping ), 3u );
  EXPECT_EQ( calls( Operation::deleteVlanToDot1qMapping ), 1u );

  // One that leaves and is back before the review is programmed anew.
  lagIs( lag1, { eth3 } );
  lagIs( lag1, { eth2, eth3 } );
  advance( 1 );
  EXPECT_EQ( calls( Operation::createVlanToDot1qMapping ), 4u );
  EXPECT_EQ( calls( Operation::deleteVlanToDot1qMapping ), 2u );

  for ( const bool configured : { true, false } ) {
    configured ? lagIs( lag1, {} ) : lagInfo->lagToPortDel( lag1 );
    advance( 1 );
    EXPECT_THAT( mappings(), IsEmpty() );
    EXPECT_FALSE( sm->dot1qStatusHas( { lag1, 10 } ) );
    lagIs( lag1, { eth1 } );
    advance( 1 );
  }
}

TEST_F( FloodingDot1qSmTest, OneRefusedPortOfALagIsTriedAgainAlone ) {
  evpnStatus->vlanToDot1qIs( 10, 110 );
  member( 10, lag1 );
  lagIs( lag1, { eth1, eth2 } );
  failNext( Operation::createVlanToDot1qMapping, 1 );
  start();
  advance( 1 );
  EXPECT_TRUE( sm->dot1qStatus( { lag1, 10 } )->unprogrammedHas( eth1 ) );
  EXPECT_TRUE( sm->dot1qStatus( { lag1, 10 } )->programmedHas( eth2 ) );
  EXPECT_EQ( scheduler->nextDeadline(), 6.0 );
  advanceTo( 6 );
  EXPECT_EQ( calls( Operation::createVlanToDot1qMapping ), 3u );
  EXPECT_EQ( mappings().size(), 2u );
  EXPECT_EQ( scheduler->nextDeadline(), std::nullopt );

  hardware->faultIs( Operation::createVlanToDot1qMapping )
      ->answerIs( Switch::Failure::invalidHwId );
  failNext( Operation::createVlanToDot1qMapping, 1 );
  member( 10, eth3 );
  EXPECT_DEATH( advance( 1 ), "createVlanToDot1qMapping Ethernet3,10 on Ethernet3 -> invalidHwId\n"
                              ".*assertion failed: 0" );
}

// The pair stands in line before its VLAN, which the same review creates.
TEST_F( FloodingDot1qSmTest, ParkedPairWaitsForItsVlanWithARetryDue ) {
  evpnStatus->vlanToDot1qIs( 10, 110 );
  member( 10, eth1 );
  failNext( Operation::createVlanToDot1qMapping, 1 );
  start();
  advance( 1 );
  failNext( Operation::createVlan, 1 );
  evpnStatus->vlanToDot1qIs( 10, 111 );
  advanceTo( 6 );
  EXPECT_EQ( hardware->vlan( 10 ), 111 );
  EXPECT_THAT( mappings(), IsEmpty() );
  advance( 1 );
  EXPECT_THAT( mappings(), ElementsAre( std::pair( Switch::PortVlanKey( eth1, eth1, 10 ), 111 ) ) );
}

TEST_F( FloodingDot1qSmTest, UnexpectedResultIsFatalOfAVlanAndSuccessOfAMapping ) {
  const auto stub = KezHelper::evpnFloodingSmHelperStubFactory( "stub" );
  stub->createVlanToDot1qRcIs( static_cast< Kez::HwProgrammingStatus >( 3 ) );
  evpnStatus->vlanToDot1qIs( 10, 110 );
  member( 10, eth1 );
  sm = Kez::evpnFloodingDot1qSmFactory( stub, scheduler, lagInfo, evpnVlanStatus, evpnStatus,
                                        nullptr );
  sm->handleInitialized();
  advance( 1 );
  EXPECT_TRUE( sm->dot1qStatus( { eth1, 10 } )->programmedHas( eth1 ) );
  stub->createVlanRcIs( Kez::HwProgrammingStatus::invalidHwId );
  EXPECT_DEATH( evpnStatus->vlanToDot1qIs( 20, 120 ), "createVlan 20 dot1q 120 -> invalidHwId\n"
                                                      ".*assertion failed: 0" );
}

TEST_F( FloodingDot1qSmTest, MembersThatChangeUnderAZombieMarkAreMadeUpFor ) {
  evpnStatus->vlanToDot1qIs( 10, 110 );
  member( 10, eth1 );
  start();
  sm->vexDoZombieReactors( true );
  advance( 1 );
  evpnVlanStatus->vlanStatus( 10 )->memberDel( eth1 );
  member( 10, eth2 );
  advance( 1 );
  EXPECT_THAT( mappings(), ElementsAre( std::pair( Switch::PortVlanKey( eth1, eth1, 10 ), 110 ) ) );
  sm->vexDoZombieReactors( false );
  advance( 1 );
  EXPECT_THAT( mappings(), ElementsAre( std::pair( Switch::PortVlanKey( eth2, eth2, 10 ), 110 ) ) );
}

TEST_F( FloodingDot1qSmTest, TagsAndPortsThatChangeUnheardAreMadeUpFor ) {
  lagIs( lag1, { eth2 } );
  for ( const uint16_t vlan : { 10, 20, 30 } ) {
    member( vlan, eth1 );
    member( vlan, lag1 );
  }
  evpnStatus->vlanToDot1qIs( 10, 110 );
  evpnStatus->vlanToDot1qIs( 20, 120 );
  start();
  advance( 1 );
  sm->vexDoZombieReactors( true );
  evpnStatus->vlanToDot1qIs( 10, 111 );
  evpnStatus->vlanToDot1qDel( 20 );
  evpnStatus->vlanToDot1qIs( 30, 130 );
  lagIs( lag1, { eth3 } );
  sm->vexDoZombieReactors( false );
  advance( 1 );
  EXPECT_THAT( mappings(), ElementsAre( std::pair( Switch::PortVlanKey( eth1, eth1, 10 ), 111 ),
                                        std::pair( Switch::PortVlanKey( eth1, eth1, 30 ), 130 ),
                                        std::pair( Switch::PortVlanKey( lag1, eth3, 10 ), 111 ),
                                        std::pair( Switch::PortVlanKey( lag1, eth3, 30 ), 130 ) ) );
  EXPECT_FALSE( hardware->vlanHas( 20 ) );

  sm->hasNotificationActiveIs( false );
  evpnStatus->vlanToDot1qIs( 10, 112 );
  sm->hasNotificationActiveIs( true );
  lagIs( lag1, { eth2 } ); // the next look at the VLAN's interfaces brings the tag
  advance( 2 );
  EXPECT_EQ( hardware->vlan( 10 ), 112 );
  EXPECT_EQ( mappings()[ Switch::PortVlanKey( eth1, eth1, 10 ) ], 112 );
}

TEST_F( FloodingDot1qSmTest, PhysicalInterfaceIsItsOwnPortWhateverIsPublishedUnderItsName ) {
  evpnStatus->vlanToDot1qIs( 10, 110 );
  member( 10, eth1 );
  start();
  advance( 1 );
  lagIs( eth1, { eth2 } );
  advance( 1 );
  EXPECT_EQ( calls( Operation::createVlanToDot1qMapping ), 1u );
  EXPECT_EQ( calls( Operation::deleteVlanToDot1qMapping ), 0u );
}

TEST_F( FloodingDot1qSmTest, ReviewsYieldAndLoseNothing ) {
  for ( uint16_t vlan = 1; vlan <= 50; ++vlan ) {
    evpnStatus->vlanToDot1qIs( vlan, vlan + 100 );
    member( vlan, eth1 );
  }
  hardware->faultIs( Operation::createVlanToDot1qMapping )->untilTimeIs( 3 );
  scheduler->workBudgetIs( 7 );
  start();
  advance( 1 );
  EXPECT_EQ( sm->unprogrammedDot1qs(), 50u );
  EXPECT_EQ( sm->intfVlanQueues(), 0u );
  advanceTo( 6 );
  EXPECT_EQ( mappings().size(), 7u );
  EXPECT_EQ( sm->reviewUnprogrammed()->bookmark(), Kez::IntfVlanKey( eth1, 8 ) );
  advanceTo( 60 );
  EXPECT_EQ( mappings().size(), 50u );
  EXPECT_EQ( calls( Operation::createVlanToDot1qMapping ), 100u );
}

} // namespace
