#include "RookTestTypes.h"
#include "TraceCapture.h"
#include "VirtualTime.h"

#include "KezEvpn/KezEvpnHwTunnelIdSm.h"
#include "KezHelper/EvpnHwTunnelIdSmHelperStub.h"

#include <gmock/gmock.h>

#include <map>
#include <random>
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
  static constexpr auto types = { hwTunnelIdTypeDefault, hwTunnelIdTypeSharedEsi };

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
  EXPECT_DEATH( sm->doReviewUnprogrammed(), "KezEvpnHwTunnelIdSm:[0-9]+: .*initialized\\(\\)" );
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

// --- Random events, and what holds after each

class EvpnHwTunnelIdSmRandomTest : public EvpnHwTunnelIdSmTest {
protected:
  using Users = std::map< uint64_t, std::set< Wire::IntfId > >;

  // Both kinds of interface lead to the tunnel.
  Wire::IntfId anyIntf() {
    const uint64_t tunnelId = random() % 6 + 1;
    return random() % 2 ? intf( tunnelId ) : Wire::FecIdIntfId::srTePolicyIntfId( tunnelId );
  }
  void event();
  void expectStateOfInputs();
  void expectIds();
  void expectNothingLeftToGet();

  std::mt19937 random;
  Users users, sharedUsers; // by tunnel, as the segments' labels say
};

void EvpnHwTunnelIdSmRandomTest::event() {
  const auto es = random() % 2 ? es1 : es2;
  const uint64_t tunnelId = random() % 6 + 1;
  switch ( random() % 12 ) {
  case 0:
  case 1:
  case 2:
    evpnStatus->ethernetSegmentStatusIs( es )->remoteEsiLabelIs( anyIntf(), {} );
    break;
  case 3:
  case 4:
    evpnStatus->ethernetSegmentStatusIs( es )->remoteEsiLabelDel( anyIntf() );
    break;
  case 5:
    sharedEsi( es, random() % 2 );
    break;
  case 6:
    evpnStatus->ethernetSegmentStatusDel( es );
    break;
  case 7: { // a segment comes with all that it has, in another's place perhaps
    const auto status = Vex::makePtr< Evpn::EthernetSegmentStatus >( es );
    for ( auto n = random() % 4; n > 0; --n ) {
      status->remoteEsiLabelIs( anyIntf(), {} );
    }
    status->sharedEsiLabelIs( random() % 2 ? 50u : Wire::MplsLabel() );
    evpnStatus->ethernetSegmentStatusIs( status );
    break;
  }
  case 8:
  case 9:
    count( tunnelId, random() % 3 );
    break;
  case 10:
    advance( random() % 4 );
    break;
  default: // by itself takes no segment's tunnel its id, even for a moment
    std::map< uint64_t, std::string > before;
    for ( const auto & [ used, segments ] : users ) {
      before[ used ] = state( used );
    }
    sm->vexDoZombieReactors( true );
    if ( random() % 2 ) {
      before.clear();
      event();
    }
    sm->vexDoZombieReactors( false );
    for ( const auto & [ used, was ] : before ) {
      EXPECT_TRUE( was == "parked" || state( used ) != "parked" ) << used;
    }
  }
}

void EvpnHwTunnelIdSmRandomTest::expectStateOfInputs() {
  users.clear();
  sharedUsers.clear();
  for ( const auto & [ es, status ] : evpnStatus->ethernetSegmentStatus() ) {
    for ( const auto & [ labelIntf, value ] : status->remoteEsiLabel() ) {
      users[ labelIntf.tunnelId().value() ].insert( es );
      if ( status->sharedEsiLabelValid() ) {
        sharedUsers[ labelIntf.tunnelId().value() ].insert( es );
      }
    }
  }
  Users infoUsers, infoShared, setUsers;
  for ( const auto & [ tunnelId, info ] : sm->tunnelInfo() ) {
    infoUsers[ tunnelId.value() ];
    for ( const auto es : info->intfId() ) {
      infoUsers[ tunnelId.value() ].insert( es );
    }
    for ( const auto es : info->sharedEsiLabelConfiguredIntf() ) {
      infoShared[ tunnelId.value() ].insert( es );
    }
  }
  for ( const auto & [ es, tunnels ] : sm->intfTunnelSet() ) {
    EXPECT_GT( tunnels->tunnelIds(), 0u );
    for ( const auto tunnelId : tunnels->tunnelId() ) {
      setUsers[ tunnelId.value() ].insert( es );
    }
  }
  EXPECT_EQ( infoUsers, users );
  EXPECT_EQ( infoShared, sharedUsers );
  EXPECT_EQ( setUsers, users );
}

void EvpnHwTunnelIdSmRandomTest::expectIds() {
  std::map< HwTunnelIdType, std::multiset< uint32_t > > all, numbers;
  std::map< HwTunnelIdType, Tunnels > unused;
  for ( const auto type : types ) {
    for ( const auto & [ index, id ] : helper->freeHwTunnelId( type )->hwTunnelId() ) {
      numbers[ type ].insert( id.number() );
    }
    for ( uint32_t number = 1; number <= poolSizes[ type ]; ++number ) {
      all[ type ].insert( number );
    }
  }
  for ( const auto & [ tunnelId, id ] : mapping->tunnelIdToHwTunnelId() ) {
    numbers[ id.hwTunnelIdType() ].insert( id.number() );
    EXPECT_FALSE( sm->unprogrammedTunnelHas( tunnelId ) );
    if ( !users.contains( tunnelId.value() ) ) {
      unused[ id.hwTunnelIdType() ].insert( tunnelId.value() );
    }
  }
  EXPECT_EQ( numbers, all );
  for ( const auto type : types ) {
    EXPECT_EQ( zombies( type ), unused[ type ] );
  }
}

// At rest no segment's tunnel waits while there is an id that it may have, or could reclaim.
void EvpnHwTunnelIdSmRandomTest::expectNothingLeftToGet() {
  for ( const auto & [ tunnelId, segments ] : users ) {
    EXPECT_NE( state( tunnelId ), "none" );
    for ( const auto type : types ) {
      const bool usable = type == hwTunnelIdTypeDefault || sharedUsers.contains( tunnelId );
      if ( state( tunnelId ) == "parked" && usable ) {
        EXPECT_EQ( helper->freeHwTunnelId( type )->hwTunnelIds(), 0u );
        EXPECT_EQ( zombies( type ), Tunnels() );
      }
    }
  }
  for ( const auto tunnelId : sm->unprogrammedTunnel() ) {
    EXPECT_EQ( helper->freeHwTunnelId( hwTunnelIdTypeDefault )->hwTunnelIds(), 0u ) << tunnelId;
  }
}

TEST_F( EvpnHwTunnelIdSmRandomTest, AfterAnyEventStateIdsAndZombiesAreExact ) {
  std::map< std::string, int > seen;
  for ( uint32_t seed = 1; seed <= 60; ++seed ) {
    random.seed( seed );
    evpnStatus->ethernetSegmentStatusDelAll();
    remoteInfo->remoteTunnelIdDelAll();
    start( seed % 5, seed % 3 );
    scheduler->workBudgetIs( seed % 2 ? 1 : 1000 );
    for ( int i = 0; i < 400; ++i ) {
      event();
      expectStateOfInputs();
      expectIds();
      if ( i % 16 == 0 ) {
        settle();
        expectIds();
        expectNothingLeftToGet();
        EXPECT_EQ( scheduler->nextDeadline(), std::nullopt );
        for ( const auto & [ tunnelId, segments ] : users ) {
          ++seen[ state( tunnelId ).substr( 0, 1 ) ];
        }
      }
      ASSERT_FALSE( HasFailure() ) << "seed " << seed << " event " << i;
    }
  }
  EXPECT_EQ( seen.size(), 3u ); // either type, and parked
}

} // namespace
