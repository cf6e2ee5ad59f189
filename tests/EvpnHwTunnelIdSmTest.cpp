#include "RookTestTypes.h"
#include "TraceCapture.h"
#include "VirtualTime.h"

#include "KezEvpn/KezEvpnHwTunnelIdSm.h"
#include "KezHelper/EvpnHwTunnelIdSmHelperStub.h"

#include <gmock/gmock.h>

#include <map>
#include <set>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Kez::HwTunnelIdType;
using Kez::hwTunnelIdTypeDefault;
using Kez::hwTunnelIdTypeSharedEsi;
using Tunnels = std::set< uint64_t >;

// Gives no id back that a reader of the mapping still finds there.
class Helper : public KezHelper::EvpnHwTunnelIdSmHelperStub {
public:
  using EvpnHwTunnelIdSmHelperStub::EvpnHwTunnelIdSmHelperStub;
  void releaseHwTunnelId( const Kez::HwTunnelId & hwTunnelId ) override {
    for ( const auto & record : mapping->tunnelIdToHwTunnelId() ) {
      EXPECT_NE( record.hwTunnelId, hwTunnelId ) << record;
    }
    EvpnHwTunnelIdSmHelperStub::releaseHwTunnelId( hwTunnelId );
  }
  Vex::Ptr< Kez::TunnelIdToHwTunnelIdMapping > mapping;
};

class EvpnHwTunnelIdSmTest : public VirtualTime {
protected:
  // A machine over the inputs as they stand, and so many ids of each type.
  void start( uint32_t defaults, uint32_t shared ) {
    sm = nullptr;
    helper = Vex::makePtr< Helper >( "helper" );
    helper->mapping = mapping;
    poolSizes = { { hwTunnelIdTypeDefault, defaults }, { hwTunnelIdTypeSharedEsi, shared } };
    for ( const auto & [ type, size ] : poolSizes ) {
      const auto free = helper->freeHwTunnelIdIs( type );
      for ( uint32_t number = 1; number <= size; ++number ) {
        free->hwTunnelIdEnq( { type, number } );
      }
    }
    sm =
        Kez::evpnHwTunnelIdSmFactory( helper, scheduler, nullptr, evpnStatus, remoteInfo, mapping );
    sm->handleInitialized();
  }
  void settle() { advance( 100 ); }

  static Wire::IntfId intf( uint64_t tunnelId ) {
    return Wire::DynamicTunnelIntfId::intfId( tunnelId );
  }
  void label( Wire::IntfId es, uint64_t tunnelId ) {
    evpnStatus->ethernetSegmentStatusIs( es )->remoteEsiLabelIs( intf( tunnelId ), {} );
  }
  void unlabel( Wire::IntfId es, uint64_t tunnelId ) {
    evpnStatus->ethernetSegmentStatusIs( es )->remoteEsiLabelDel( intf( tunnelId ) );
  }
  void sharedEsi( Wire::IntfId es, bool configured ) {
    evpnStatus->ethernetSegmentStatusIs( es )->sharedEsiLabelIs( configured ? 50u
                                                                            : Wire::MplsLabel() );
  }
  void count( uint64_t tunnelId, uint32_t n ) {
    remoteInfo->remoteTunnelIdIs( tunnelId, n );
    if ( n == 0 ) {
      remoteInfo->remoteTunnelIdDel( tunnelId );
    }
  }
  // The tunnel's hardware tunnel id, "parked" or "none".
  std::string state( uint64_t tunnelId ) const {
    const auto record = mapping->tunnelIdToHwTunnelId( tunnelId );
    return record                                  ? Vex::text( record->hwTunnelId )
           : sm->unprogrammedTunnelHas( tunnelId ) ? "parked"
                                                   : "none";
  }
  Tunnels zombies( HwTunnelIdType type ) const {
    Tunnels all;
    if ( const auto set = sm->zombieTunnelId( type ) ) {
      for ( const auto tunnelId : set->tunnelId() ) {
        all.insert( tunnelId.value() );
      }
    }
    return all;
  }

  const Wire::IntfId es1{ "Port-Channel1" };
  const Wire::IntfId es2{ "Port-Channel2" };
  std::map< HwTunnelIdType, uint32_t > poolSizes;
  Vex::Ptr< Evpn::EvpnStatus > evpnStatus = Vex::makePtr< Evpn::EvpnStatus >();
  Vex::Ptr< Kez::EvpnRemoteInfo > remoteInfo = Kez::evpnRemoteInfoFactory();
  Vex::Ptr< Kez::TunnelIdToHwTunnelIdMapping > mapping =
      Kez::tunnelIdToHwTunnelIdMappingFactory( "mapping" );
  Vex::Ptr< Helper > helper;
  Vex::Ptr< Kez::EvpnHwTunnelIdSm > sm;
};

TEST_F( EvpnHwTunnelIdSmTest, TunnelKeepsItsIdFromItsFirstUseOnAndARestartForgetsIt ) {
  start( 4, 0 );
  count( 5, 1 );
  EXPECT_EQ( state( 5 ), "0:1" );
  count( 5, 2 );
  count( 5, 1 );
  label( es1, 5 );
  EXPECT_EQ( zombies( hwTunnelIdTypeDefault ), Tunnels() );
  unlabel( es1, 5 );
  count( 5, 0 );
  EXPECT_EQ( state( 5 ), "0:1" );
  EXPECT_EQ( zombies( hwTunnelIdTypeDefault ), Tunnels{ 5 } );
  EXPECT_EQ( helper->getHwTunnelIdCount(), 1u );
  EXPECT_EQ( mapping->notifications(), 1u );

  // As many as the inputs have, whatever the count: segments first.
  count( 6, 3 );
  label( es1, 7 );
  start( 4, 0 );
  EXPECT_EQ( state( 5 ), "none" );
  EXPECT_EQ( state( 6 ), "0:2" );
  EXPECT_EQ( state( 7 ), "0:1" );
}

TEST_F( EvpnHwTunnelIdSmTest, OnlySegmentsTunnelsReclaimZombies ) {
  start( 1, 0 );
  count( 5, 1 );
  count( 6, 1 );
  EXPECT_EQ( state( 6 ), "parked" );
  EXPECT_EQ( scheduler->nextDeadline(), std::nullopt ); // nothing to wait for
  label( es1, 7 );
  EXPECT_EQ( state( 7 ), "0:1" );
  EXPECT_EQ( state( 5 ), "none" );
  label( es1, 6 ); // waits for a zombie now
  EXPECT_EQ( state( 6 ), "parked" );
  unlabel( es1, 7 );
  EXPECT_EQ( zombies( hwTunnelIdTypeDefault ), Tunnels{ 7 } );
  settle();
  EXPECT_EQ( state( 6 ), "0:1" );
  EXPECT_EQ( state( 7 ), "none" );
  // The reclaimed one, counted all the while, is back when its count comes to be 1.
  unlabel( es1, 6 );
  count( 5, 2 );
  EXPECT_EQ( state( 5 ), "none" );
  count( 5, 1 );
  EXPECT_EQ( state( 5 ), "parked" );
}

TEST_F( EvpnHwTunnelIdSmTest, ParkedTunnelWaitsWhileAnyoneNeedsIt ) {
  start( 1, 0 );
  label( es1, 5 );
  for ( const uint64_t tunnelId : { 6, 7, 8 } ) {
    count( tunnelId, 1 );
  }
  label( es2, 6 );
  label( es2, 9 );
  unlabel( es2, 9 );
  EXPECT_EQ( state( 9 ), "none" );
  unlabel( es2, 6 );
  EXPECT_EQ( state( 6 ), "parked" ); // counted still
  count( 6, 0 );
  EXPECT_EQ( state( 6 ), "parked" ); // until the review
  scheduler->workBudgetIs( 1 );
  unlabel( es1, 5 );
  settle();
  EXPECT_EQ( state( 6 ), "none" );
  EXPECT_EQ( state( 5 ), "0:1" ); // the others are counted only
  EXPECT_EQ( state( 7 ) + state( 8 ), "parkedparked" );
  EXPECT_EQ( scheduler->nextDeadline(), std::nullopt );
}

TEST_F( EvpnHwTunnelIdSmTest, WhatIsUsedGetsWhatItLacksOnceThatIsAskedFor ) {
  start( 1, 0 );
  const auto grow = [ & ]( HwTunnelIdType type, uint32_t number ) {
    helper->freeHwTunnelIdIs( type )->hwTunnelIdEnq( { type, number } );
    advance( 5 );
  };
  count( 5, 1 );
  label( es1, 6 );
  sharedEsi( es1, true );
  EXPECT_EQ( state( 5 ), "none" );
  sm->retryLackingTunnelIs( true );
  EXPECT_EQ( state( 5 ), "parked" );
  EXPECT_EQ( state( 6 ), "0:1" ); // kept while it waits for one of its type
  EXPECT_TRUE( sm->unprogrammedTunnelHas( Tunnel::TunnelTable::TunnelId( 6 ) ) );
  grow( hwTunnelIdTypeSharedEsi, 1 );
  EXPECT_EQ( state( 6 ), "1:1" );
  settle();
  EXPECT_EQ( state( 5 ), "0:1" ); // given back
  EXPECT_EQ( scheduler->nextDeadline(), std::nullopt );
  label( es2, 7 );
  EXPECT_EQ( state( 7 ) + " " + state( 5 ), "0:1 parked" );
  grow( hwTunnelIdTypeDefault, 2 );
  EXPECT_EQ( state( 5 ), "0:2" );
  // One that no segment uses any more is content with what it has.
  sharedEsi( es2, true );
  EXPECT_EQ( sm->unprogrammedTunnels(), 1u );
  count( 7, 1 );
  unlabel( es2, 7 );
  EXPECT_EQ( state( 7 ), "0:1" );
  EXPECT_EQ( sm->unprogrammedTunnels(), 0u );
}

TEST_F( EvpnHwTunnelIdSmTest, ReviewThatYieldedPassesNobodyWhoWaits ) {
  start( 2, 0 );
  scheduler->workBudgetIs( 1 );
  label( es1, 4 );
  label( es1, 5 );
  for ( const uint64_t tunnelId : { 6, 7, 8 } ) {
    label( es2, tunnelId );
  }
  unlabel( es1, 4 );
  advance( 0 );
  EXPECT_EQ( state( 6 ), "0:1" );
  // The review was to go on at 7, which goes and waits again, behind 8.
  unlabel( es2, 7 );
  label( es2, 7 );
  helper->freeHwTunnelId( hwTunnelIdTypeDefault )->hwTunnelIdEnq( { hwTunnelIdTypeDefault, 3 } );
  advance( 5 );
  EXPECT_EQ( state( 8 ), "0:3" );
  EXPECT_EQ( state( 7 ), "parked" );
}

TEST_F( EvpnHwTunnelIdSmTest, SharedEsiLabelRetypesFallsBackAndWakesWhatWaits ) {
  start( 1, 1 );
  sharedEsi( es1, true );
  label( es1, 5 );
  label( es1, 6 );
  label( es2, 7 );
  EXPECT_EQ( state( 5 ) + " " + state( 6 ) + " " + state( 7 ), "1:1 0:1 parked" );
  // 5 as a zombie of the shared type has its id reclaimed for 6, whose old one 7 gets.
  unlabel( es1, 5 );
  EXPECT_EQ( zombies( hwTunnelIdTypeSharedEsi ), Tunnels{ 5 } );
  sharedEsi( es1, false );
  EXPECT_EQ( state( 6 ), "0:1" );
  sharedEsi( es1, true );
  EXPECT_EQ( state( 6 ), "1:1" );
  EXPECT_EQ( state( 5 ), "none" );
  EXPECT_EQ( state( 7 ), "parked" );
  settle();
  EXPECT_EQ( state( 7 ), "0:1" );

  // A segment goes, comes and goes: its tunnel is a zombie of the type that its id has.
  for ( int round = 0; round < 2; ++round ) {
    evpnStatus->ethernetSegmentStatusDel( es1 );
    EXPECT_EQ( zombies( hwTunnelIdTypeSharedEsi ), Tunnels{ 6 } );
    const auto arriving = Vex::makePtr< Evpn::EthernetSegmentStatus >( es1 );
    arriving->remoteEsiLabelIs( intf( 6 ), {} );
    arriving->sharedEsiLabelIs( 50u );
    evpnStatus->ethernetSegmentStatusIs( arriving );
    EXPECT_EQ( zombies( hwTunnelIdTypeSharedEsi ), Tunnels() );
  }
  evpnStatus->ethernetSegmentStatusDel( es1 );
  unlabel( es2, 7 );
  // Counted only, it needs the default type and takes no zombie's id; it changes sets with its id.
  count( 6, 1 );
  EXPECT_EQ( state( 6 ), "1:1" );
  helper->freeHwTunnelId( hwTunnelIdTypeDefault )->hwTunnelIdEnq( { hwTunnelIdTypeDefault, 2 } );
  count( 6, 0 );
  count( 6, 1 );
  EXPECT_EQ( state( 6 ), "0:2" );
  EXPECT_EQ( zombies( hwTunnelIdTypeSharedEsi ), Tunnels() );
  EXPECT_EQ( zombies( hwTunnelIdTypeDefault ), ( Tunnels{ 6, 7 } ) );
}

TEST_F( EvpnHwTunnelIdSmTest, IdChangesItsTypeWithWhatAllSegmentsNeed ) {
  start( 1, 1 );
  label( es1, 5 );
  label( es2, 5 );
  sharedEsi( es1, true );
  TraceCapture trace( "KezEvpnHwTunnelIdSm" );
  sharedEsi( es2, true );
  EXPECT_THAT( trace.take(),
               ElementsAre( "8 EvpnHwTunnelIdSm::VexSegmentStatus::handleSharedEsiLabel intfId "
                            "Port-Channel2 sharedEsiLabelValid 1",
                            "8 EvpnHwTunnelIdSm::maybeReprogramHwTunnelId tunnelId 5",
                            "8  tunnelId 5 already has HwTunnelId allocated with type "
                            "hwTunnelIdTypeSharedEsi" ) );
  sharedEsi( es1, false );
  EXPECT_EQ( state( 5 ), "1:1" ); // for es2
  trace.take();
  unlabel( es2, 5 );
  EXPECT_EQ( state( 5 ), "0:1" );
  EXPECT_EQ( trace.take().back(),
             "8  tunnelId 5 oldHwTunnelId 1:1 oldHwTunnelIdType hwTunnelIdTypeSharedEsi "
             "newHwTunnelId 0:1 newHwTunnelIdType hwTunnelIdTypeDefault hwTunnelIdValid 1" );
  label( es2, 5 );
  EXPECT_EQ( state( 5 ), "1:1" );
  trace.take();
  EXPECT_FALSE( sm->releaseOneZombieTunnelId( hwTunnelIdTypeDefault ) );
  EXPECT_THAT( trace.take(), ElementsAre( "8 EvpnHwTunnelIdSm::releaseOneZombieTunnelId"
                                          "hwTunnelIdTypeDefault collection empty " ) );
}

TEST_F( EvpnHwTunnelIdSmTest, MakesUpForWhatChangesUnderAZombieMark ) {
  start( 3, 0 );
  label( es1, 5 );
  sm->vexDoZombieReactors( true );
  unlabel( es1, 5 );
  label( es1, 6 );
  count( 7, 2 );
  EXPECT_EQ( mapping->tunnelIdToHwTunnelIds(), 1u );
  sm->vexDoZombieReactors( false );
  EXPECT_EQ( mapping->tunnelIdToHwTunnelIds(), 3u );
  EXPECT_EQ( zombies( hwTunnelIdTypeDefault ), ( Tunnels{ 5, 7 } ) );
}

TEST_F( EvpnHwTunnelIdSmTest, SegmentWithoutReactorUsesNoTunnelThoughItStands ) {
  start( 1, 0 );
  label( es1, 5 );
  sm->segmentStatusDel( es1 );
  EXPECT_EQ( zombies( hwTunnelIdTypeDefault ), Tunnels{ 5 } );
  label( es2, 6 ); // reclaims it
  EXPECT_FALSE( mapping->tunnelIdToHwTunnelIdHas( 5 ) );
  EXPECT_TRUE( mapping->tunnelIdToHwTunnelIdHas( 6 ) );
  sm->segmentStatusDelAll();
  EXPECT_EQ( sm->tunnelInfos(), 0u );
  EXPECT_EQ( sm->segmentStatuss(), 0u );
}

TEST_F( EvpnHwTunnelIdSmTest, TunnelWithoutRoomInTheTableWaitsAndLosesNoId ) {
  const RookTest::MountDirectory directory;
  mapping = Kez::tunnelIdToHwTunnelIdMappingFactory( "full" );
  start( 2000, 0 );
  uint64_t tunnelId = 0;
  {
    const RookTest::Limit longest( RLIMIT_FSIZE, 64 * 1024 );
    while ( sm->unprogrammedTunnels() == 0 && tunnelId < 2000 ) {
      count( ++tunnelId, 1 );
    }
    ASSERT_EQ( sm->unprogrammedTunnels(), 1u );
    EXPECT_EQ( mapping->tunnelIdToHwTunnelIds(), tunnelId - 1 );
    EXPECT_EQ( helper->freeHwTunnelId( hwTunnelIdTypeDefault )->hwTunnelIds(), 2001 - tunnelId );
    advance( 5 );
    EXPECT_EQ( sm->unprogrammedTunnels(), 1u );
    label( es1, 5000 ); // takes a zombie's place
    EXPECT_TRUE( mapping->tunnelIdToHwTunnelIdHas( 5000 ) );
    EXPECT_FALSE( mapping->tunnelIdToHwTunnelIdHas( 1 ) );
    // A run that has to yield leaves the first tunnel without room behind its bookmark.
    count( tunnelId + 1, 1 );
    scheduler->workBudgetIs( 1 );
    advance( 5 );
    EXPECT_EQ( sm->bookmark(), Tunnel::TunnelTable::TunnelId( tunnelId + 1 ) );
  }
  advance( 10 );
  EXPECT_TRUE( mapping->tunnelIdToHwTunnelIdHas( tunnelId ) );
  EXPECT_TRUE( mapping->tunnelIdToHwTunnelIdHas( tunnelId + 1 ) );
}

TEST_F( EvpnHwTunnelIdSmTest, TracesWhatBecomesOfATunnel ) {
  start( 0, 0 );
  sharedEsi( es1, true );
  TraceCapture trace( "KezEvpnHwTunnelIdSm" );
  label( es1, 5 );
  const auto get = "8 EvpnHwTunnelIdSm::getHwTunnelId hwTunnelIdType ";
  EXPECT_THAT(
      trace.take(),
      ElementsAre(
          "8 handleRemoteEsiLabel tunnelId 5 add 1",
          "8 EvpnHwTunnelIdSm::programHwTunnelId intfId Port-Channel1 tunnelId 5 sharedEsi 1",
          "8 EvpnHwTunnelIdSm::publishHwTunnelId tunnelId 5",
          "8  hwTunnelIdType hwTunnelIdTypeSharedEsi",
          get + std::string( "hwTunnelIdTypeSharedEsi attemptZombieRelease 1" ),
          "8 EvpnHwTunnelIdSm::releaseOneZombieTunnelIdhwTunnelIdTypeSharedEsi not in "
          "zombieTunnelId collection ",
          "5  try allocating for hwTunnelIdTypeDefault for sharedEs",
          get + std::string( "hwTunnelIdTypeDefault attemptZombieRelease 1" ),
          "8 EvpnHwTunnelIdSm::releaseOneZombieTunnelIdhwTunnelIdTypeDefault not in "
          "zombieTunnelId collection ",
          "5 failed to program tunnel" ) );
  unlabel( es1, 5 );
  helper->freeHwTunnelId( hwTunnelIdTypeDefault )->hwTunnelIdEnq( { hwTunnelIdTypeDefault, 3 } );
  Ringlog::traceIs( "KezEvpnHwTunnelIdSm/5" );
  trace.take();
  label( es1, 5 );
  label( es2, 5 );
  unlabel( es1, 5 );
  count( 6, 1 );
  unlabel( es2, 5 );
  EXPECT_THAT( trace.take(),
               ElementsAre( "5  try allocating for hwTunnelIdTypeDefault for sharedEs",
                            "5  allocated HwTunnelId 0:3 for tunnel 5 with "
                            "hwTunnelIdType=hwTunnelIdTypeDefault",
                            "5 tunnel programmed with hw tunnel id 0:3",
                            "5 1 ethernet segments still using tunnelId 5",
                            "5 failed to program tunnel",
                            "5 schedule immediate unprogrammed review" ) );
}

TEST_F( EvpnHwTunnelIdSmTest, BrokenInvariantsAreFatalAndNothingHappensBeforeItStarts ) {
  sm = Kez::evpnHwTunnelIdSmFactory( helper, scheduler, nullptr, evpnStatus, remoteInfo, mapping );
  label( es1, 5 ); // would need a helper
  sharedEsi( es1, true );
  count( 6, 1 );
  evpnStatus->ethernetSegmentStatusDel( es1 );
  sm->vex_handleReviewUnprogrammed_taskRun();
  EXPECT_DEATH( sm->maybeScheduleUnprogrammedReview( true ), "initialized\\(\\)" );
  EXPECT_DEATH( sm->doReviewUnprogrammed(),
                "/src/KezEvpn/KezEvpnHwTunnelIdSm: .*initialized\\(\\)" );
  start( 1, 0 );
  EXPECT_DEATH( sm->publishHwTunnelId( 7 ), "remoteInfo\\(\\)->remoteTunnelIdHas\\( tunnelId \\)" );
}

TEST_F( EvpnHwTunnelIdSmTest, DamagedRecordIsFatal ) {
  const RookTest::MountDirectory directory;
  mapping = Kez::tunnelIdToHwTunnelIdMappingFactory( "damaged" );
  start( 1, 0 );
  count( 5, 1 );
  RookTest::poke( directory.path( "damaged/tunnelIdToHwTunnelId" ), RookTest::recordOffset + 8, 7 );
  EXPECT_DEATH( label( es1, 5 ), "slot 0 is damaged.*KezBaseHelper:[0-9]+: assertion failed: 0" );
}

} // namespace
