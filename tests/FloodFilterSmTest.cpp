#include "FloodingMachines.h"

#include "KezEvpn/KezEvpnFloodFilterSm.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class FloodFilterSmTest : public FloodingMachines {
protected:
  using Port = Switch::PortVlanKey;

  void make() { sm = Kez::kezEvpnFloodFilterSmFactory( helper, scheduler, lagInfo, evpnStatus ); }
  void start() {
    make();
    sm->handleInitialized();
  }
  void filter( Bridging::VlanId vlan, Wire::IntfId intf ) {
    evpnStatus->evpnVlanFloodStatusIs( vlan )->floodFilterIs( intf );
  }
  std::set< Port > blocked() const {
    std::set< Port > all;
    for ( const auto & key : hardware->nonDfPort() ) {
      all.insert( key );
    }
    return all;
  }

  Vex::Ptr< Kez::KezEvpnFloodFilterSm > sm;
};

TEST_F( FloodFilterSmTest, BlocksEveryPortBehindWhatIsFiltered ) {
  filter( 10, eth1 );
  make();
  filter( 10, lag1 );
  lagIs( lag1, { eth2, eth3 } );
  EXPECT_EQ( hardware->callCounts(), 0u );
  sm->handleInitialized();
  EXPECT_THAT( blocked(), ElementsAre( Port( eth1, eth1, 10 ), Port( lag1, eth2, 10 ),
                                       Port( lag1, eth3, 10 ) ) );
  filter( 20, lag1 );
  lagIs( lag1, { eth3 } );
  EXPECT_THAT( blocked(), ElementsAre( Port( eth1, eth1, 10 ), Port( lag1, eth3, 10 ),
                                       Port( lag1, eth3, 20 ) ) );
  EXPECT_EQ( calls( Operation::createNonDfPort ), 5u );
  evpnStatus->evpnVlanFloodStatus( 10 )->floodFilterDel( eth1 );
  evpnStatus->evpnVlanFloodStatusDel( 20 );
  EXPECT_THAT( blocked(), ElementsAre( Port( lag1, eth3, 10 ) ) );
  lagInfo->lagToPortDel( lag1 );
  EXPECT_THAT( blocked(), IsEmpty() );
  EXPECT_TRUE( sm->intfVlanSetHas( lag1 ) );
}

TEST_F( FloodFilterSmTest, FreedHardwareIsOfferedToWhatIsParkedAtOnce ) {
  hardware->capacityIs( Switch::Table::nonDfPort, 2 );
  start();
  lagIs( lag1, { eth1, eth2 } );
  filter( 10, lag1 );
  filter( 10, eth3 );
  EXPECT_TRUE( sm->unprogrammedFilterHas( { eth3, 10 } ) );
  advance( 4 );
  TraceCapture trace( "KezEvpnFloodFilterSm/5" );
  lagIs( lag1, { eth1 } ); // its stale port makes room
  EXPECT_THAT( trace.take(), testing::Contains( "5 schedule immediate unprogrammed review" ) );
  scheduler->runReady();
  EXPECT_THAT( blocked(), ElementsAre( Port( eth3, eth3, 10 ), Port( lag1, eth1, 10 ) ) );
  filter( 20, eth3 );
  evpnStatus->evpnVlanFloodStatusDel( 10 );
  scheduler->runReady();
  EXPECT_THAT( blocked(), ElementsAre( Port( eth3, eth3, 20 ) ) );
  advance( 10 );
  EXPECT_EQ( scheduler->nextDeadline(), std::nullopt );
}

TEST_F( FloodFilterSmTest, PairThatEndsWithoutAPortFreesNothing ) {
  failNext( Operation::createNonDfPort, 2 );
  start();
  filter( 10, eth1 );
  filter( 10, eth2 );
  evpnStatus->evpnVlanFloodStatus( 10 )->floodFilterDel( eth1 );
  EXPECT_EQ( scheduler->nextDeadline(), 5.0 );
}

TEST_F( FloodFilterSmTest, FiltersThatChangeUnderAZombieMarkAreMadeUpFor ) {
  start();
  filter( 10, eth1 );
  filter( 20, eth1 );
  sm->vexDoZombieReactors( true );
  evpnStatus->evpnVlanFloodStatus( 10 )->floodFilterDel( eth1 );
  filter( 10, eth2 );
  evpnStatus->evpnVlanFloodStatusDel( 20 );
  EXPECT_THAT( blocked(), ElementsAre( Port( eth1, eth1, 10 ), Port( eth1, eth1, 20 ) ) );
  sm->vexDoZombieReactors( false );
  EXPECT_THAT( blocked(), ElementsAre( Port( eth2, eth2, 10 ) ) );
}

TEST_F( FloodFilterSmTest, TracesDecisionsAndCalls ) {
  start();
  TraceCapture trace( "KezEvpnFloodFilterSm" );
  failNext( Operation::createNonDfPort, 1 );
  filter( 10, eth1 );
  EXPECT_THAT(
      trace.take(),
      ElementsAre(
          "8 KezEvpnFloodFilterSm::VexEvpnVlanFloodStatus::handleEvpnVlanFloodStatus vlanId 10 "
          "add 1",
          "8 KezEvpnFloodFilterSm::VexEvpnVlanFloodStatus::handleFloodFilter intfId Ethernet1",
          "5 KezEvpnFloodFilterSm::processIntfVlan intfId Ethernet1 vlanId 10 vlanFloodStatus "
          "exists 1 floodFilterApplied 1",
          "5 KezEvpnFloodFilterSm::programFloodFilter intfId Ethernet1 vlanId 10",
          "9 KezEvpnFloodFilterSm::programFloodFilterHelper logIntfId Ethernet1 phyIntfId "
          "Ethernet1 vlanId 10",
          "9 status notProgrammed",
          "9 KezEvpnFloodFilterSm::maybeScheduleUnprogrammedReview immediate 0",
          "5 next unprogrammed review at 5" ) );
}

} // namespace
