#include "TraceCapture.h"
#include "VirtualTime.h"

#include "KezEvpn/KezMacAddrFecRequestSm.h"
#include "KezEvpn/frame/Explain.h"
#include "switch/SwitchMacs.h"

#include <gmock/gmock.h>

#include <random>

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

using L2Rib::Dest;
using L2Rib::LabelObject;
using L2Rib::ObjectId;
using Rook::Fib::FecKind;
using Switch::Operation;

// The machine on its inputs, the simulated switch below it.
class MacAddrFecRequestSmTest : public VirtualTime {
protected:
  using Pair = Bridging::MacVlanPair;
  static constexpr uint64_t firstPath = uint64_t( 0x0C ) << 56;
  static constexpr uint64_t firstLoadBalance = uint64_t( 0x0D ) << 56;

  void hwTunnelIdIs( uint64_t tunnelId, uint32_t number ) {
    mapping->tunnelIdToHwTunnelIdIs( { tunnelId, { Kez::hwTunnelIdTypeDefault, number } } );
  }
  // Chain `object` leads over a tunnel with a label.
  void pathIs( uint64_t object, uint32_t label, uint64_t tunnelId ) {
    hwTunnelIdIs( tunnelId, uint32_t( tunnelId ) );
    output->labelIs( object, { label, object + 1 } );
    output->destIs( object + 1, Dest::ofTunnel( tunnelId ) );
  }
  void makeSm() {
    sm = Kez::kezMacAddrFecRequestSmFactory( output, mapping, toggles, request, response, status,
                                             hwStatus, scheduler );
  }
  void start() {
    makeSm();
    sm->handleInitialized();
    settle();
  }
  // What was queued is looked at, and the invariants hold.
  void settle( double seconds = 1 ) {
    advance( seconds );
    Kez::Findings findings( "sm" );
    sm->check( findings );
    EXPECT_EQ( findings.text(), "" );
  }
  uint64_t calls( Operation operation ) const { return hardware->callCount( operation ); }
  Vex::String viasOf( uint64_t fecId ) const { return Vex::text( request->fec( fecId ).via ); }
  std::string explained( const Pair & host ) const {
    Kez::Explanation out;
    sm->explain( { Kez::VlanMac{ host.vlanId, host.macAddr } }, out );
    return std::string( out.text() );
  }

  const Pair a{ 1, 10 };
  const Pair b{ 2, 10 };
  Vex::Ptr< L2Rib::HostOutput > output = Vex::makePtr< L2Rib::HostOutput >();
  Vex::Ptr< Kez::TunnelIdToHwTunnelIdMapping > mapping =
      Kez::tunnelIdToHwTunnelIdMappingFactory( "mapping" );
  Vex::Ptr< Kez::FeatureToggles > toggles = Vex::makePtr< Kez::FeatureToggles >();
  Vex::Ptr< Kez::FecIdToHwFecIdRequest > request = Kez::fecIdToHwFecIdRequestFactory();
  Vex::Ptr< Kez::FecIdToHwFecIdResponse > response = Kez::fecIdToHwFecIdResponseFactory();
  Vex::Ptr< Kez::MacAddrFecStatus > status = Kez::macAddrFecStatusFactory();
  Vex::Ptr< Kez::MacAddrHwStatus > hwStatus = Kez::macAddrHwStatusFactory();
  Vex::Ptr< Switch::SimulatedSwitch > hardware = [] {
    auto made = Vex::makePtr< Switch::SimulatedSwitch >();
    made->strictnessIs( Switch::Strictness::fatal );
    return made;
  }();
  Vex::Ptr< Switch::SwitchMacs > driver = Vex::makePtr< Switch::SwitchMacs >(
      hardware, scheduler->timerWheel(), request, response, status, hwStatus );
  Vex::Ptr< Kez::KezMacAddrFecRequestSm > sm;
};

TEST_F( MacAddrFecRequestSmTest, HostsShareTheFecOfTheirChain ) {
  pathIs( 1, 100, 5 );
  start();
  output->hostIs( a, 1 );
  output->hostIs( b, 1 );
  EXPECT_EQ( request->fecs(), 0u ); // before the review
  settle();
  EXPECT_EQ( viasOf( firstPath ), "[(DynamicTunnel0.5,100)]" );
  EXPECT_EQ( Vex::briefText( request->hwFecIdRequest( firstPath ).hwTunnelId ), "0:5" );
  EXPECT_EQ( request->fecs(), 1u );
  const Kez::MacFec fec{ firstPath, uint64_t( 1 ) << 32 | 1, "DynamicTunnel0.5" };
  EXPECT_EQ( status->host( a ), fec );
  EXPECT_EQ( status->host( b ), fec );
  EXPECT_EQ( hardware->macEntry( b ), fec.hwFecId );
  EXPECT_EQ( hwStatus->fecHost( firstPath ), 2u );
  EXPECT_EQ( sm->otherChains(), 0u ); // nothing is kept of hosts that have what they refer to
  output->hostDel( a );
  settle();
  EXPECT_EQ( request->fecs(), 1u );
  output->hostDel( b );
  settle();
  EXPECT_EQ( request->fecs() + response->hwFecIdResponses() + hardware->fecs(), 0u );
  EXPECT_EQ( hardware->macEntrys() + status->hosts() + sm->chains() + sm->fecChains(), 0u );
  EXPECT_FALSE( sm->reviewTask()->isScheduled() );
  // Its number rests.
  output->hostIs( a, 1 );
  settle();
  EXPECT_TRUE( request->fecHas( firstPath + 1 ) );
}

// Sets of all sizes up to 400 that grow, shrink and stay as large, against a plain list.
TEST( HostSetTest, HostsStandInTheOrderInWhichTheyCame ) {
  std::mt19937 random( 1 );
  for ( uint32_t hosts = 1; hosts < 400; hosts += 13 ) {
    Kez::HostSet set;
    std::vector< Bridging::MacVlanPair > expected;
    for ( uint32_t step = 0; step < 3000; ++step ) {
      const uint16_t number = random() % hosts;
      const Bridging::MacVlanPair host{ number, number };
      const auto at = std::ranges::find( expected, host );
      ASSERT_EQ( set.has( host ), at != expected.end() );
      const bool add = random() % 3 < step / 1000 || step < 500;
      if ( add && at == expected.end() ) {
        expected.push_back( host );
      } else if ( !add && at != expected.end() ) {
        expected.erase( at );
      }
      add ? set.add( host ) : set.remove( host );
      ASSERT_EQ( set.size(), expected.size() );
      ASSERT_TRUE( step % 20 != 0 || set.all() == expected );
    }
  }
}

TEST_F( MacAddrFecRequestSmTest, AChainMayArriveInAnyOrder ) {
  start();
  output->hostIs( a, 1 );
  settle();
  EXPECT_THAT( explained( a ), HasSubstr( "no FEC: object 1 is missing" ) );
  output->labelIs( 1, { 100, 2 } );
  settle();
  EXPECT_THAT( explained( a ), HasSubstr( "no FEC: object 2 is missing" ) );
  output->destIs( 2, Dest::ofMpls( { {}, {}, 5 } ) );
  settle();
  EXPECT_THAT( explained( a ), HasSubstr( "no FEC: tunnel 5 has no hardware tunnel id" ) );
  EXPECT_EQ( request->fecs() + status->hosts(), 0u );
  hwTunnelIdIs( 5, 7 );
  settle();
  EXPECT_EQ( explained( a ), "refers to chain 1; published with FEC " +
                                 std::to_string( firstPath ) +
                                 " of chain 1, hardware id 4294967297 on DynamicTunnel0.5; in "
                                 "hardware" );
  // What breaks it takes the host away, and what mends it within the interval does not.
  output->labelDel( 1 );
  output->labelIs( 1, { 100, 2 } );
  settle();
  EXPECT_EQ( calls( Operation::deleteMacEntry ), 0u );
  output->destDel( 2 );
  settle();
  EXPECT_EQ( status->hosts() + hardware->macEntrys() + request->fecs(), 0u );
}

TEST_F( MacAddrFecRequestSmTest, WhatIsNoChainSaysWhy ) {
  pathIs( 1, 100, 5 );
  start();
  const auto lackOf = [ & ]( ObjectId first ) {
    output->hostIs( a, first );
    settle();
    const auto text = explained( a );
    const auto at = text.find( "no FEC: " );
    return at == std::string::npos ? "" : text.substr( at + 8, text.find( ';', at ) - at - 8 );
  };
  output->destIs( 10, Dest::ofIntf( "Ethernet1" ) );
  output->destIs( 11, Dest::ofMpls( { {}, 200, 5 } ) );
  output->destIs( 12, Dest::ofMpls( { {}, 200, {} } ) );
  output->labelIs( 20, { 100, 20 } );
  output->labelIs( 21, { 100, 11 } );
  output->labelIs( 22, { 100, 40 } );
  output->labelIs( 30, { 100, 2 } );
  output->loadBalanceIs( 30, { 2 } );
  output->loadBalanceIs( 40, {} );
  output->loadBalanceIs( 41, { 1 } );
  EXPECT_EQ( lackOf( 10 ), "intf(Ethernet1) is reached by no FEC" );
  EXPECT_EQ( lackOf( 11 ), "" );
  EXPECT_EQ( lackOf( 12 ), "mpls(,200,0) is reached by no FEC" );
  EXPECT_EQ( lackOf( 20 ), "it turns back to object 20" );
  EXPECT_EQ( lackOf( 21 ), "object 11 gives a second label" );
  EXPECT_EQ( lackOf( 22 ), "object 40 shares out among none" );
  EXPECT_EQ( lackOf( 30 ), "object 30 stands in two tables" );
  EXPECT_EQ( lackOf( 41 ), "object 2 makes it too long" );
  sm->maxChainLengthIs( 3 );
  settle();
  EXPECT_EQ( lackOf( 41 ), "" );
  for ( const uint32_t wrong : { 0, 1, 4 } ) {
    try {
      sm->maxChainLengthIs( wrong );
      ADD_FAILURE() << wrong;
    } catch ( const Vex::RangeError & error ) {
      EXPECT_STREQ( error.what(), "KezMacAddrFecRequestSm::maxChainLength < 2 or > 3 not allowed" );
    }
  }
  sm->maxChainLengthIs( 2 );
  settle();
  EXPECT_EQ( lackOf( 41 ), "object 2 makes it too long" );
}

TEST_F( MacAddrFecRequestSmTest, AHostKeepsItsFecUntilTheNewOneIsAnswered ) {
  pathIs( 1, 100, 5 );
  pathIs( 3, 100, 6 );
  output->hostIs( a, 1 );
  start();
  driver->answerDelayIs( 2 );
  hardware->faultIs( Operation::createMacEntry )->nextCallsIs( 1 );
  output->hostIs( a, 3 );
  settle( 1 ); // requested, and not answered
  EXPECT_EQ( status->host( a ).fecId, firstPath );
  EXPECT_THAT( explained( a ), HasSubstr( "waiting for hardware's answer for FEC " ) );
  settle( 2.2 ); // answered, and published anew
  EXPECT_EQ( status->host( a ).fecId, firstPath + 1 );
  settle( 2 ); // hardware has refused the entry: it still has the old FEC
  EXPECT_EQ( hardware->faultCount( Operation::createMacEntry ), 1u );
  EXPECT_THAT( explained( a ), HasSubstr( "in hardware still with FEC " ) );
  EXPECT_TRUE( request->fecHas( firstPath ) );
  settle( 6 );
  EXPECT_THAT( explained( a ), HasSubstr( "in hardware" ) );
  EXPECT_FALSE( request->fecHas( firstPath ) );
  EXPECT_EQ( sm->fecChains(), 2u ); // until the answer is taken back
  settle( 3 );
  EXPECT_EQ( sm->fecChains(), 1u );
  EXPECT_EQ( calls( Operation::deleteMacEntry ), 0u );
  // To what is no chain yet it does not move either, unless its own is lost.
  output->hostIs( a, 99 );
  settle( 6 );
  EXPECT_EQ( hardware->macEntrys(), 1u );
  output->destDel( 4 );
  settle( 6 );
  EXPECT_EQ( hardware->macEntrys() + hardware->fecs(), 0u );
}

TEST_F( MacAddrFecRequestSmTest, AChangeInPlaceCostsOneRequestAndNoHost ) {
  for ( const uint64_t tunnel : { 5, 6, 7 } ) {
    hwTunnelIdIs( tunnel, uint32_t( tunnel ) );
    output->destIs( tunnel, Dest::ofMpls( { {}, 100, tunnel } ) );
  }
  output->loadBalanceIs( 1, { 5, 6 } );
  for ( uint64_t mac = 1; mac <= 50; ++mac ) {
    output->hostIs( { mac, 10 }, 1 );
  }
  start();
  EXPECT_EQ( viasOf( firstLoadBalance ), "[(DynamicTunnel0.5,100),(DynamicTunnel0.6,100)]" );
  const auto expectOneRequest = [ & ]( const char * vias, const char * hwTunnelIds ) {
    const auto requests = calls( Operation::createFec );
    TraceCapture trace( "KezMacAddrFecRequestSm/8" );
    settle();
    EXPECT_THAT( trace.take(), Not( Contains( HasSubstr( "processHost" ) ) ) );
    EXPECT_EQ( viasOf( firstLoadBalance ), vias );
    EXPECT_EQ( Vex::text( hardware->fec( Switch::hwFecIdOf( firstLoadBalance ) ).hwTunnelId ),
               hwTunnelIds );
    EXPECT_EQ( calls( Operation::createFec ), requests + 1 );
    EXPECT_EQ( calls( Operation::createMacEntry ), 50u );
  };
  output->loadBalanceIs( 1, { 6 } );
  expectOneRequest( "[(DynamicTunnel0.6,100)]", "0:6" );
  output->loadBalanceIs( 1, { 6, 7 } );
  expectOneRequest( "[(DynamicTunnel0.6,100),(DynamicTunnel0.7,100)]", "[0:6,0:7]" );
  output->loadBalanceIs( 1, { 5, 7 } );
  expectOneRequest( "[(DynamicTunnel0.5,100),(DynamicTunnel0.7,100)]", "[0:5,0:7]" );
  hwTunnelIdIs( 7, 9 );
  expectOneRequest( "[(DynamicTunnel0.5,100),(DynamicTunnel0.7,100)]", "[0:5,0:9]" );
  output->destIs( 5, Dest::ofMpls( { {}, 101, 5 } ) );
  expectOneRequest( "[(DynamicTunnel0.5,101),(DynamicTunnel0.7,100)]", "[0:5,0:9]" );
}

TEST_F( MacAddrFecRequestSmTest, ALoadBalanceFecHasTheSmallestPaths ) {
  for ( const uint64_t tunnel : { 9, 8, 7, 6, 5 } ) {
    hwTunnelIdIs( tunnel, uint32_t( tunnel ) );
    output->destIs( 20 - tunnel, Dest::ofTunnel( tunnel ) );
  }
  output->destIs( 16, Dest::ofTunnel( 5 ) ); // once more
  output->loadBalanceIs( 1, { 11, 12, 13, 14, 15, 16 } );
  output->hostIs( a, 1 );
  start();
  const std::string two = "[(DynamicTunnel0.5,1048576),(DynamicTunnel0.6,1048576)]";
  EXPECT_EQ( viasOf( firstLoadBalance ), two );
  toggles->toggleIs( "KezEvpnVxlan4WayL2Ecmp", true );
  settle();
  EXPECT_EQ( viasOf( firstLoadBalance ),
             "[(DynamicTunnel0.5,1048576),(DynamicTunnel0.6,1048576),(DynamicTunnel0.7,1048576),("
             "DynamicTunnel0.8,1048576)]" );
  toggles->toggleDel( "KezEvpnVxlan4WayL2Ecmp" );
  settle();
  EXPECT_EQ( viasOf( firstLoadBalance ), two );
  output->destIs( 11, Dest::ofVxlan( 0x0a000001 ) );
  output->loadBalanceIs( 1, { 11 } );
  settle();
  EXPECT_EQ( viasOf( firstLoadBalance ), "[(Vtep10.0.0.1,1048576)]" );
}

TEST_F( MacAddrFecRequestSmTest, AFecOfAnotherKindTakesThePlaceOfTheOldOne ) {
  pathIs( 1, 100, 5 );
  output->loadBalanceIs( 3, { 2 } );
  output->hostIs( a, 1 );
  start();
  sm->maxChainLengthIs( 3 );
  driver->answerDelayIs( 2 );
  output->labelIs( 1, { 100, 3 } );
  settle( 1 );
  EXPECT_EQ( status->host( a ).fecId, firstPath );
  settle( 8 );
  EXPECT_EQ( status->host( a ).fecId, firstLoadBalance + 1 );
  EXPECT_FALSE( sm->fecChainHas( firstPath ) );
  EXPECT_EQ( calls( Operation::deleteMacEntry ), 0u );
  // What goes and comes back while hardware has not let go has the id that it had.
  output->hostDel( a );
  settle( 1 );
  output->hostIs( a, 1 );
  settle( 8 );
  EXPECT_EQ( status->host( a ).fecId, firstLoadBalance + 1 );
}

TEST_F( MacAddrFecRequestSmTest, AReviewTakesChainsFirstAndGoesOnWhereItWas ) {
  pathIs( 1, 100, 5 );
  pathIs( 3, 100, 6 );
  output->hostIs( a, 1 );
  output->hostIs( b, 3 );
  start();
  EXPECT_EQ( sm->reviewTask()->taskName(), "reviewTask" );
  EXPECT_EQ( Vex::text( sm->reviewTask()->taskPriority() ), Vex::text( Loom::TaskPriority( 2 ) ) );
  scheduler->workBudgetIs( 1 );
  TraceCapture trace( "KezMacAddrFecRequestSm/8" );
  output->hostIs( a, 3 );
  output->hostIs( b, 1 );
  output->hostIs( a, 3 );
  output->labelIs( 3, { 101, 4 } );
  output->labelIs( 3, { 102, 4 } );
  output->labelIs( 1, { 101, 2 } );
  EXPECT_EQ( sm->hostQueues() + sm->chainQueues(), 4u );
  trace.take();
  advance( 0.4 );
  EXPECT_THAT( trace.take(), ElementsAre() );
  settle( 0.2 );
  std::vector< std::string > lines;
  for ( const auto & line : trace.take() ) {
    if ( line.starts_with( "8 process" ) || line == "8 doReview" ) {
      lines.push_back( line.substr( 2, line.find( ':' ) - 2 ) + line.substr( line.size() - 1 ) );
    }
  }
  EXPECT_THAT( lines, ElementsAre( "doRevieww", "processChain 3e", "doRevieww", "processChain 1e",
                                   "processHost mac3", "doRevieww", "processHost mac1",
                                   "processChain 1e" ) );
  EXPECT_FALSE( sm->reviewTask()->isScheduled() );
}

TEST_F( MacAddrFecRequestSmTest, AFullTableIsTriedAgain ) {
  pathIs( 1, 100, 5 );
  hardware->capacityIs( Switch::Table::macEntry, 1 );
  output->hostIs( a, 1 );
  output->hostIs( b, 1 );
  start();
  EXPECT_EQ( hardware->macEntrys(), 1u );
  EXPECT_THAT( explained( b ), HasSubstr( "not in hardware, which tries again by itself" ) );
  output->hostDel( a );
  settle( 6 );
  EXPECT_TRUE( hardware->macEntryHas( b ) );
}

TEST_F( MacAddrFecRequestSmTest, ANewMachinePutsRightWhatAnEarlierOneLeft ) {
  pathIs( 1, 100, 5 );
  pathIs( 3, 100, 6 );
  output->hostIs( a, 1 );
  output->hostIs( b, 3 );
  start();
  driver->answerDelayIs( 2 );
  sm = nullptr;
  output->hostDel( b );
  start();
  EXPECT_EQ( request->fecs(), 3u ); // two that hardware still has hosts on
  settle( 20 );
  EXPECT_EQ( request->fecs() + hardware->fecs() + hardware->macEntrys(), 3u );
  EXPECT_EQ( status->host( a ).fecId, firstPath + 2 );
  EXPECT_EQ( hwStatus->host( a ), firstPath + 2 );
}

TEST_F( MacAddrFecRequestSmTest, MakesUpForWhatItDidNotHear ) {
  pathIs( 1, 100, 5 );
  pathIs( 3, 100, 6 );
  output->hostIs( a, 1 );
  output->hostIs( b, 1 );
  start();
  sm->vexDoZombieReactors( true );
  sm->hasNotificationActiveIs( false );
  output->hostIs( a, 3 );
  output->hostDel( b );
  output->labelIs( 1, { 101, 2 } );
  response->hwFecIdResponseDel( firstPath );
  sm->hasNotificationActiveIs( true );
  sm->vexDoZombieReactors( false );
  settle();
  EXPECT_EQ( status->hosts(), 1u );
  EXPECT_EQ( viasOf( status->host( a ).fecId.value() ), "[(DynamicTunnel0.6,100)]" );
  EXPECT_EQ( request->fecs(), 1u );
}

TEST( TogglesTest, ADamagedFileSaysWhere ) {
  EXPECT_EQ( Kez::parseToggles( " { \"a\" : true,\n\"b\":false } \n" ),
             ( std::map< Vex::String, bool >{ { "a", true }, { "b", false } } ) );
  EXPECT_TRUE( Kez::parseToggles( "{}" ).empty() );
  const std::pair< const char *, const char * > damaged[] = {
    { "", "line 1, column 1: expected {, found the end" },
    { "{ \"a\": 1 }", "line 1, column 8: expected true or false, found '1'" },
    { "{ \"a\": true,\n  }", "line 2, column 3: expected a name in double quotes, found '}'" },
    { "{ \"a\": true\n\"b\": true }", "line 2, column 1: expected ',' or '}', found '\"b'" },
    { "{ \"a\": true } x", "line 1, column 15: expected the end, found 'x'" },
    { "{ \"a\": truely }", "line 1, column 12: expected ',' or '}', found 'ly'" },
    { "{ \"a\": true, \"a\": false }",
      "line 1, column 14: expected another name, a stands already, found '\"a'" },
    { "{ \"a\\n\": true }",
      "line 1, column 5: expected a name without escapes, brackets and control characters, found '\\n'" },
    { "{ \"a", "line 1, column 5: expected '\"', found the end" },
  };
  for ( const auto & [ text, message ] : damaged ) {
    try {
      Kez::parseToggles( text );
      ADD_FAILURE() << text;
    } catch ( const std::runtime_error & error ) {
      EXPECT_STREQ( error.what(), message );
    }
  }
}

} // namespace
