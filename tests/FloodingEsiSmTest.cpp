#include "FloodingMachines.h"

#include "KezEvpn/KezEvpnFloodingEsiSm.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Kez::HwTunnelIdType::hwTunnelIdTypeDefault;
using Port = Switch::PortVlanKey;
using TunnelId = Tunnel::TunnelTable::TunnelId;

class FloodingEsiSmTest : public FloodingMachines {
protected:
  void make() {
    sm = Kez::evpnFloodingEsiSmFactory( helper, scheduler, lagInfo, evpnStatus, mapping );
  }
  void start() {
    make();
    sm->handleInitialized();
  }
  Vex::Ptr< Evpn::EthernetSegmentStatus > segment( Wire::IntfId intf ) {
    return evpnStatus->ethernetSegmentStatusIs( intf );
  }
  static Wire::TepIntfId tep( uint64_t number ) {
    return Wire::DynamicTunnelIntfId::intfId( number );
  }
  static TunnelId tunnel( uint64_t number ) { return tep( number ).tunnelId(); }
  void hwIdIs( uint64_t number, uint32_t hwId ) {
    mapping->tunnelIdToHwTunnelIdIs(
        { tunnel( number ), Kez::HwTunnelId( hwTunnelIdTypeDefault, hwId ) } );
  }
  // Everything that eth1 needs in VLAN 10 towards the switch behind tunnel 1.
  void segmentOfEth1() {
    segment( eth1 )->designatedForwarderTepIs( 10, tep( 1 ) );
    segment( eth1 )->remoteEsiLabelIs( tep( 1 ), { 2, 100 } );
    evpnStatus->localEsiLabelIs( eth1, { 2, 50 } );
    hwIdIs( 1, 7 );
  }
  Switch::EsiData data( uint64_t number, uint32_t hwId, uint32_t dfLabel, uint32_t local ) {
    return { tunnel( number ), { hwTunnelIdTypeDefault, hwId }, dfLabel, local };
  }
  std::map< Port, Switch::EsiData > inHardware() const {
    std::map< Port, Switch::EsiData > all;
    for ( const auto & [ key, esi ] : hardware->esiData() ) {
      all[ key ] = esi;
    }
    return all;
  }

  Vex::Ptr< Kez::TunnelIdToHwTunnelIdMapping > mapping =
      Kez::tunnelIdToHwTunnelIdMappingFactory( "mapping" );
  Vex::Ptr< Kez::EvpnFloodingEsiSm > sm;
};

TEST_F( FloodingEsiSmTest, InputsMayComeInAnyOrderAndLeaveInAnyOrder ) {
  const std::vector< std::pair< std::function< void() >, std::function< void() > > > inputs{
    { [ & ] { segment( lag1 )->designatedForwarderTepIs( 10, tep( 1 ) ); },
      [ & ] { segment( lag1 )->designatedForwarderTepDel( 10 ); } },
    { [ & ] {
       segment( lag1 )->remoteEsiLabelIs( tep( 1 ), { 2, 100 } );
     },
      [ & ] { segment( lag1 )->remoteEsiLabelDel( tep( 1 ) ); } },
    { [ & ] {
       evpnStatus->localEsiLabelIs( lag1, { 2, 50 } );
     },
      [ & ] { evpnStatus->localEsiLabelIs( lag1, {} ); } },
    { [ & ] { hwIdIs( 1, 7 ); }, [ & ] { mapping->tunnelIdToHwTunnelIdDel( tunnel( 1 ) ); } },
    { [ & ] {
       lagIs( lag1, { eth1, eth2 } );
     },
      [ & ] { lagInfo->lagToPortDel( lag1 ); } },
  };
  std::vector< size_t > order{ 0, 1, 2, 3, 4 };
  start();
  do {
    for ( const auto i : order ) {
      EXPECT_THAT( inHardware(), IsEmpty() );
      inputs[ i ].first();
    }
    EXPECT_THAT( inHardware(),
                 ElementsAre( std::pair( Port( lag1, eth1, 10 ), data( 1, 7, 100, 50 ) ),
                              std::pair( Port( lag1, eth2, 10 ), data( 1, 7, 100, 50 ) ) ) );
    for ( const auto i : order ) {
      inputs[ i ].second();
      EXPECT_THAT( inHardware(), IsEmpty() );
    }
  } while ( std::next_permutation( order.begin(), order.end() ) );
  evpnStatus->ethernetSegmentStatusDel( lag1 );
  EXPECT_EQ( sm->intfVlanSets() + sm->intfVlanTunnels() + sm->esiStatuss(), 0u );
  EXPECT_EQ( calls( Operation::createEsiData ), 240u );
  EXPECT_EQ( calls( Operation::deleteEsiData ), 240u );
}

TEST_F( FloodingEsiSmTest, StartsFromWhatStandsAndDoesNothingBefore ) {
  segmentOfEth1();
  make();
  segment( eth2 )->designatedForwarderTepIs( 10, tep( 1 ) );
  segment( eth2 )->remoteEsiLabelIs( tep( 1 ), { 2, 200 } );
  evpnStatus->localEsiLabelIs( eth2, { 2, 51 } );
  hwIdIs( 1, 8 );
  lagIs( lag1, { eth3 } );
  EXPECT_EQ( hardware->callCounts(), 0u );
  EXPECT_EQ( sm->intfVlanSets(), 0u );
  EXPECT_DEATH( sm->processIntfVlan( eth1, 10 ), "assertion failed: initialized\\(\\)" );
  sm->handleInitialized();
  EXPECT_EQ( inHardware().size(), 2u );
}

TEST_F( FloodingEsiSmTest, MovedForwarderIsReplacedOrWrittenOver ) {
  for ( const bool update : { false, true } ) {
    helper->updateSupportedOnCreateEsiDataIs( update );
    segmentOfEth1();
    segment( eth1 )->remoteEsiLabelIs( tep( 2 ), { 2, 200 } );
    hwIdIs( 2, 9 );
    start();
    const auto deleted = calls( Operation::deleteEsiData );
    segment( eth1 )->designatedForwarderTepIs( 10, tep( 2 ) );
    EXPECT_THAT( inHardware(),
                 ElementsAre( std::pair( Port( eth1, eth1, 10 ), data( 2, 9, 200, 50 ) ) ) );
    segment( eth1 )->remoteEsiLabelIs( tep( 2 ), { 2, 201 } );
    EXPECT_THAT( inHardware(),
                 ElementsAre( std::pair( Port( eth1, eth1, 10 ), data( 2, 9, 201, 50 ) ) ) );
    EXPECT_EQ( calls( Operation::deleteEsiData ), deleted + ( update ? 0 : 2 ) );
    const auto created = calls( Operation::createEsiData );
    hwIdIs( 2, 9 );
    EXPECT_EQ( calls( Operation::createEsiData ), created );
    // The tunnel of before has no say any more.
    mapping->tunnelIdToHwTunnelIdDel( tunnel( 1 ) );
    EXPECT_EQ( inHardware().size(), 1u );
    evpnStatus->ethernetSegmentStatusDel( eth1 );
    EXPECT_THAT( inHardware(), IsEmpty() );
    sm = nullptr;
  }
}

TEST_F( FloodingEsiSmTest, EntryToBeWrittenOverIsDeletedIfThePairEndsFirst ) {
  helper->updateSupportedOnCreateEsiDataIs( true );
  segmentOfEth1();
  start();
  segment( eth1 )->remoteEsiLabelIs( tep( 2 ), { 2, 200 } );
  segment( eth1 )->designatedForwarderTepIs( 10, tep( 2 ) ); // which has no hardware id yet
  EXPECT_EQ( inHardware().size(), 1u );
  failNext( Operation::createEsiData, 1 );
  hwIdIs( 2, 9 );
  EXPECT_TRUE( sm->unprogrammedEsiHas( { eth1, 10 } ) );
  EXPECT_EQ( inHardware().at( Port( eth1, eth1, 10 ) ), data( 1, 7, 100, 50 ) );
  segment( eth1 )->designatedForwarderTepDel( 10 );
  EXPECT_THAT( inHardware(), IsEmpty() );
  EXPECT_EQ( sm->unprogrammedEsis() + sm->esiStatuss(), 0u );
}

TEST_F( FloodingEsiSmTest, WhatWaitsForAnInputIsNotRetried ) {
  segmentOfEth1();
  failNext( Operation::createEsiData, 1 );
  start();
  EXPECT_TRUE( sm->unprogrammedEsiHas( { eth1, 10 } ) );
  TraceCapture trace( "KezEvpnFloodingEsiSm/5" );
  segment( eth1 )->remoteEsiLabelIs( tep( 1 ), { 1, 0xfffff } );
  EXPECT_THAT( trace.take(), ElementsAre( "5 incorrect encap type1" ) );
  EXPECT_EQ( sm->unprogrammedEsis(), 0u );
  advance( 10 );
  EXPECT_EQ( calls( Operation::createEsiData ), 1u );
  segment( eth1 )->remoteEsiLabelIs( tep( 1 ), { 2, 0 } ); // the least usable word
  EXPECT_THAT( trace.take(), Contains( "5 programmed esi" ) );
  // A bad type leaves what stands, a hardware id or local label that differs as well.
  segment( eth1 )->remoteEsiLabelIs( tep( 1 ), { 1, 102 } );
  hwIdIs( 1, 8 );
  evpnStatus->localEsiLabelIs( eth1, { 2, 51 } );
  EXPECT_THAT( inHardware(),
               ElementsAre( std::pair( Port( eth1, eth1, 10 ), data( 1, 7, 0, 50 ) ) ) );
  sm->unprogramUnusableLabelIs( true );
  EXPECT_THAT( inHardware(), IsEmpty() );
}

TEST_F( FloodingEsiSmTest, ChangedIdsAreFollowedOnceThatIsAskedFor ) {
  for ( const bool update : { false, true } ) {
    helper->updateSupportedOnCreateEsiDataIs( update );
    segmentOfEth1();
    start();
    const auto is = [ & ]( uint32_t hwId, uint32_t label, uint32_t local ) {
      return ElementsAre( std::pair( Port( eth1, eth1, 10 ), data( 1, hwId, label, local ) ) );
    };
    hwIdIs( 1, 8 );
    evpnStatus->localEsiLabelIs( eth1, { 2, 51 } );
    EXPECT_THAT( inHardware(), is( 7, 100, 50 ) );
    sm->reprogramChangedEsiIs( true ); // catches up with both at once
    EXPECT_THAT( inHardware(), is( 8, 100, 51 ) );
    const auto deleted = calls( Operation::deleteEsiData );
    evpnStatus->localEsiLabelIs( eth1, { 2, 50 } );
    EXPECT_EQ( calls( Operation::deleteEsiData ), deleted + ( update ? 0 : 1 ) );
    // Refused, it leaves nothing that names an id of before; another label may stay till then.
    failNext( Operation::createEsiData, 2 );
    evpnStatus->localEsiLabelIs( eth1, { 2, 51 } );
    EXPECT_EQ( inHardware().size(), update ? 1u : 0u );
    hwIdIs( 1, 9 );
    EXPECT_THAT( inHardware(), IsEmpty() );
    advance( 5 );
    EXPECT_THAT( inHardware(), is( 9, 100, 51 ) );
    // Under a label of no use too.
    segment( eth1 )->remoteEsiLabelIs( tep( 1 ), { 1, 100 } );
    EXPECT_THAT( inHardware(), is( 9, 100, 51 ) );
    hwIdIs( 1, 8 );
    EXPECT_THAT( inHardware(), IsEmpty() );
    segment( eth1 )->remoteEsiLabelIs( tep( 1 ), { 2, 100 } );
    segment( eth1 )->remoteEsiLabelIs( tep( 2 ), { 2, 100 } );
    segment( eth1 )->designatedForwarderTepIs( 10, tep( 2 ) ); // which has no hardware id
    EXPECT_THAT( inHardware(), IsEmpty() );
    evpnStatus->ethernetSegmentStatusDel( eth1 );
  }
}

TEST_F( FloodingEsiSmTest, WithdrawnDataMakesRoomAtOnceAndLagPortsFollow ) {
  hardware->capacityIs( Switch::Table::esiData, 2 );
  lagIs( lag1, { eth1, eth2 } );
  for ( const auto intf : { lag1, eth3 } ) {
    segment( intf )->designatedForwarderTepIs( 10, tep( 1 ) );
    segment( intf )->remoteEsiLabelIs( tep( 1 ), { 2, 100 } );
    evpnStatus->localEsiLabelIs( intf, { 2, 50 } );
  }
  hwIdIs( 1, 7 );
  start();
  EXPECT_TRUE( sm->unprogrammedEsiHas( { eth3, 10 } ) );
  TraceCapture trace( "KezEvpnFloodingEsiSm/5" );
  lagIs( lag1, { eth2 } );
  EXPECT_THAT( trace.take(),
               ElementsAre( "5 stale lag member, delete",
                            "5 schedule immediate unprogrammed review", "5 already programmed" ) );
  scheduler->runReady();
  EXPECT_TRUE( inHardware().contains( Port( eth3, eth3, 10 ) ) );
  lagIs( lag1, { eth1, eth2 } );
  EXPECT_TRUE( sm->unprogrammedEsiHas( { lag1, 10 } ) );
  evpnStatus->ethernetSegmentStatusDel( eth3 );
  scheduler->runReady();
  EXPECT_EQ( inHardware().size(), 2u );
}

TEST_F( FloodingEsiSmTest, DeletionPassesNoTunnel ) {
  const auto stub = KezHelper::evpnFloodingSmHelperStubFactory( "stub" );
  segmentOfEth1();
  sm = Kez::evpnFloodingEsiSmFactory( stub, scheduler, lagInfo, evpnStatus, mapping );
  sm->handleInitialized();
  EXPECT_EQ( stub->createEsiDataTid(), tunnel( 1 ) );
  stub->deleteEsiDataTidIs( tunnel( 1 ) );
  stub->deleteEsiDataHwTidIs( stub->createEsiDataHwTid() );
  mapping->tunnelIdToHwTunnelIdDel( tunnel( 1 ) );
  EXPECT_EQ( stub->deleteEsiDataCount(), 1u );
  EXPECT_EQ( stub->deleteEsiDataTid(), TunnelId( 0 ) );
  EXPECT_EQ( stub->deleteEsiDataHwTid(), Kez::HwTunnelId() );
}

TEST_F( FloodingEsiSmTest, ForwardersThatChangeUnderAZombieMarkAreMadeUpFor ) {
  segmentOfEth1();
  start();
  sm->vexDoZombieReactors( true );
  segment( eth1 )->designatedForwarderTepDel( 10 );
  segment( eth1 )->designatedForwarderTepIs( 20, tep( 1 ) );
  EXPECT_THAT( inHardware(), ElementsAre( testing::Key( Port( eth1, eth1, 10 ) ) ) );
  sm->vexDoZombieReactors( false );
  EXPECT_THAT( inHardware(), ElementsAre( testing::Key( Port( eth1, eth1, 20 ) ) ) );
  sm->vexDoZombieReactors( true );
  evpnStatus->ethernetSegmentStatusDel( eth1 );
  sm->vexDoZombieReactors( false );
  EXPECT_THAT( inHardware(), IsEmpty() );
}

TEST_F( FloodingEsiSmTest, TunnelThatGoesAndComesConcernsItsOwnPairsAlone ) {
  for ( const auto intf : { eth1, eth2, eth3 } ) {
    for ( const uint16_t number : { 1, 2 } ) {
      segment( intf )->designatedForwarderTepIs( number, tep( number ) );
      segment( intf )->remoteEsiLabelIs( tep( number ), { 2, 100 } );
    }
    evpnStatus->localEsiLabelIs( intf, { 2, 50 } );
  }
  hwIdIs( 1, 7 );
  hwIdIs( 2, 8 );
  start();
  TraceCapture trace( "KezEvpnFloodingEsiSm" );
  const auto traced = [ & ]( const char * text ) {
    const auto lines = trace.take();
    return std::ranges::count_if(
        lines, [ & ]( const auto & line ) { return line.find( text ) != std::string::npos; } );
  };
  mapping->tunnelIdToHwTunnelIdDel( tunnel( 1 ) );
  EXPECT_EQ( traced( "unprogramEsi intfId" ), 3 );
  EXPECT_EQ( inHardware().size(), 3u );
  hwIdIs( 1, 7 );
  EXPECT_EQ( traced( "processIntfVlan" ), 3 );
  EXPECT_EQ( inHardware().size(), 6u );
}

TEST_F( FloodingEsiSmTest, LabelAndHardwareIdThatWentUnheardAreMadeUpFor ) {
  for ( const auto & go : std::vector< std::function< void() > >{
            [ & ] { evpnStatus->localEsiLabelDel( eth1 ); },
            [ & ] { mapping->tunnelIdToHwTunnelIdDel( tunnel( 1 ) ); } } ) {
    sm = nullptr;
    segmentOfEth1();
    start();
    EXPECT_EQ( inHardware().size(), 1u );
    sm->vexDoZombieReactors( true );
    go();
    sm->vexDoZombieReactors( false );
    EXPECT_THAT( inHardware(), IsEmpty() );
  }
}

TEST_F( FloodingEsiSmTest, PortThatStaysIsNotCalledAStaleMember ) {
  helper->updateSupportedOnCreateEsiDataIs( true );
  segmentOfEth1();
  start();
  hwIdIs( 2, 8 );
  failNext( Operation::createEsiData, 1 );
  segment( eth1 )->remoteEsiLabelIs( tep( 2 ), { 2, 200 } );
  segment( eth1 )->designatedForwarderTepIs( 10, tep( 2 ) ); // marked, and refused
  helper->updateSupportedOnCreateEsiDataIs( false );
  TraceCapture trace( "KezEvpnFloodingEsiSm/5" );
  advance( 5 );
  EXPECT_THAT( trace.take(), testing::Not( Contains( "5 stale lag member, delete" ) ) );
  EXPECT_EQ( inHardware()[ Port( eth1, eth1, 10 ) ], data( 2, 8, 200, 50 ) );
}

} // namespace
