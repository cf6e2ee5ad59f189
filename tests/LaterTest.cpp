#include "KezHelper/EvpnFloodingSmHelperLater.h"
#include "KezHelper/EvpnHwTunnelIdSmHelperLater.h"
#include "agent/Shell.h"
#include "switch/SwitchHwTunnelIdHelper.h"

#include "Vex/Clock.h"

#include <gmock/gmock.h>

#include <sstream>

using Kez::HwProgrammingStatus;
using KezHelper::LateCalls;
using KezHelper::LateOrder;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Answer = HwProgrammingStatus;

// Answers a call when it is told to.
class Chip final : public KezHelper::LateChip< uint32_t, uint32_t, Answer > {
public:
  void create( const uint32_t & key, const uint32_t & data ) override {
    said( "create " + std::to_string( key ) + "=" + std::to_string( data ), key );
  }
  void remove( const uint32_t & key, const uint32_t & data ) override {
    said( "remove " + std::to_string( key ) + "=" + std::to_string( data ), key );
  }
  void cancel( const uint32_t & key ) override {
    calls.push_back( "cancel " + std::to_string( key ) );
  }
  void answerIs( uint32_t key, Answer answer = Answer::programmed ) { this->answer( key, answer ); }

  std::vector< std::string > takeCalls() { return std::exchange( calls, {} ); }

  std::optional< Answer > atOnce;
  std::vector< std::string > calls;

private:
  void said( const std::string & call, uint32_t key ) {
    calls.push_back( call );
    if ( atOnce ) {
      this->answer( key, *atOnce );
    }
  }
};

struct LateTableTest : testing::Test {
  using Table = KezHelper::LateTable< uint32_t, uint32_t, Answer >;

  Vex::Ptr< Loom::TaskScheduler > scheduler = Vex::makePtr< Loom::TaskScheduler >();
  Vex::Ptr< LateCalls > calls = Vex::makePtr< LateCalls >( scheduler );
  Chip chip;
  Table table{ calls, chip, Answer::programmed, nullptr };
  // Answers, and what comes of that in the next turn.
  void answerIs( Chip & of, uint32_t key, Answer answer = Answer::programmed ) {
    of.answerIs( key, answer );
    scheduler->runReady();
  }

  std::vector< uint32_t > lost;
  Table::LossListener listener =
      table.onLost( [ this ]( uint32_t key ) { lost.push_back( key ); } );

  std::map< uint32_t, uint32_t > entries( const Table & of ) {
    std::map< uint32_t, uint32_t > all;
    for ( const auto walk = of.walk(); const auto entry = walk->next(); ) {
      EXPECT_TRUE( all.emplace( entry->key, entry->data ).second ) << entry->key << " comes twice";
    }
    return all;
  }
};

TEST_F( LateTableTest, OneCallAKeyIsOutstandingAndTheNextIsOfWhatIsWantedByThen ) {
  EXPECT_EQ( table.create( 1, 10 ), Answer::programmed );
  EXPECT_EQ( table.create( 2, 20 ), Answer::programmed );
  table.remove( 1, 10 );
  EXPECT_EQ( table.create( 1, 11 ), Answer::programmed );
  table.remove( 1, 11 );
  EXPECT_EQ( table.create( 1, 12 ), Answer::programmed );
  EXPECT_THAT( chip.takeCalls(), ElementsAre( "create 1=10", "create 2=20", "cancel 1" ) );
  EXPECT_THAT( entries( table ), ElementsAre( std::pair( 1, 12 ), std::pair( 2, 20 ) ) );
  answerIs( chip, 1 );
  EXPECT_THAT( chip.takeCalls(), ElementsAre( "remove 1=10" ) );
  answerIs( chip, 2 );
  answerIs( chip, 1 );
  EXPECT_THAT( chip.takeCalls(), ElementsAre( "create 1=12" ) );
  EXPECT_EQ( calls->outstanding(), 1u );
  answerIs( chip, 1 );
  EXPECT_EQ( calls->pending(), 0u );
  EXPECT_FALSE( calls->isUnderWay() );
  EXPECT_THAT( entries( table ), ElementsAre( std::pair( 1, 12 ), std::pair( 2, 20 ) ) );
  // What is wanted again as it is needs no call, and what a machine asks for is called.
  table.remove( 2, 20 );
  chip.takeCalls();
  table.create( 2, 20 );
  table.remove( 2, 20 );
  answerIs( chip, 2 );
  EXPECT_THAT( chip.takeCalls(), IsEmpty() );
  EXPECT_THAT( entries( table ), ElementsAre( std::pair( 1, 12 ) ) );
  table.create( 1, 12 );
  EXPECT_THAT( chip.takeCalls(), ElementsAre( "create 1=12" ) );
}

TEST_F( LateTableTest, ACreationThatIsRefusedLateIsLostUnlessItIsWantedNoMore ) {
  table.create( 1, 10 );
  answerIs( chip, 1, Answer::notProgrammed );
  EXPECT_THAT( lost, ElementsAre( 1 ) );
  EXPECT_FALSE( table.find( 1 ) );
  EXPECT_EQ( calls->pending(), 0u );
  EXPECT_EQ( calls->lost(), 1u );
  table.create( 1, 10 );
  table.remove( 1, 10 );
  chip.takeCalls();
  answerIs( chip, 1, Answer::notProgrammed );
  EXPECT_THAT( chip.takeCalls(), IsEmpty() );
  EXPECT_EQ( lost.size(), 1u );
  // What a machine withdraws or asks for anew before it is told is lost no more.
  table.create( 1, 10 );
  chip.answerIs( 1, Answer::notProgrammed );
  table.remove( 1, 10 );
  scheduler->runReady();
  table.create( 1, 10 );
  chip.answerIs( 1, Answer::notProgrammed );
  table.create( 1, 10 );
  answerIs( chip, 1 );
  table.remove( 1, 10 );
  answerIs( chip, 1 );
  EXPECT_THAT( chip.takeCalls(),
               ElementsAre( "create 1=10", "create 1=10", "create 1=10", "remove 1=10" ) );
  EXPECT_EQ( lost.size(), 1u );
  // A machine that updates what is lost, and is refused at once, is still to hear of it.
  table.create( 1, 10 );
  chip.answerIs( 1, Answer::notProgrammed );
  chip.atOnce = Answer::notProgrammed;
  EXPECT_EQ( table.create( 1, 11 ), Answer::notProgrammed );
  scheduler->runReady();
  EXPECT_EQ( lost.size(), 2u );
  chip.atOnce.reset();
  lost.pop_back();
  // Wanted again meanwhile, it is tried again.
  table.create( 1, 10 );
  table.remove( 1, 10 );
  table.create( 1, 10 );
  chip.takeCalls();
  answerIs( chip, 1, Answer::notProgrammed );
  EXPECT_THAT( chip.takeCalls(), ElementsAre( "create 1=10" ) );
  EXPECT_EQ( lost.size(), 1u );
  // Within the call it is an answer like others.
  answerIs( chip, 1 );
  chip.atOnce = Answer::notProgrammed;
  EXPECT_EQ( table.create( 2, 20 ), Answer::notProgrammed );
  EXPECT_EQ( lost.size(), 1u );
  EXPECT_EQ( calls->pending(), 0u );
}

TEST_F( LateTableTest, WhatStoodUnderALostUpdateIsRemoved ) {
  LateOrder< uint32_t, uint32_t > order;
  order.writesOver = [] { return true; };
  Chip other;
  Table over( calls, other, Answer::programmed, nullptr, order );
  over.create( 3, 30 );
  answerIs( other, 3 );
  over.create( 3, 31 );
  other.takeCalls();
  answerIs( other, 3, Answer::notProgrammed );
  EXPECT_THAT( other.takeCalls(), ElementsAre( "remove 3=30" ) );
  over.create( 3, 32 );
  answerIs( other, 3 );
  EXPECT_THAT( other.takeCalls(), ElementsAre( "create 3=32" ) );
  // An update that comes to be wanted meanwhile is written over, not removed first.
  over.create( 3, 33 );
  answerIs( other, 3 );
  over.create( 3, 34 );
  over.create( 3, 35 );
  other.takeCalls();
  answerIs( other, 3 );
  EXPECT_THAT( other.takeCalls(), ElementsAre( "create 3=35" ) );
}

TEST_F( LateTableTest, WhatOthersUseIsRemovedAfterAllThatWasAcceptedBefore ) {
  Chip shared;
  LateOrder< uint32_t, uint32_t > order;
  order.isUsedByOthers = true;
  Table used( calls, shared, Answer::programmed, nullptr, order );
  shared.atOnce = Answer::programmed;
  used.create( 1, 1 );
  shared.takeCalls();
  table.create( 5, 50 );
  table.create( 6, 60 );
  used.remove( 1, 1 );
  table.create( 7, 70 );
  table.remove( 6, 60 );
  EXPECT_THAT( shared.takeCalls(), IsEmpty() );
  answerIs( chip, 6 );
  EXPECT_THAT( shared.takeCalls(), IsEmpty() );
  answerIs( chip, 5 );
  EXPECT_THAT( shared.takeCalls(), ElementsAre( "remove 1=1" ) );
  EXPECT_EQ( calls->pending(), 2u ); // the later creation and removal
  // Wanted again before its turn it stays.
  used.create( 2, 2 );
  used.remove( 2, 2 );
  used.create( 2, 2 );
  answerIs( chip, 6 );
  answerIs( chip, 7 );
  EXPECT_THAT( shared.takeCalls(), ElementsAre( "create 2=2" ) );
  EXPECT_EQ( calls->pending(), 0u );
}

TEST_F( LateTableTest, WhatStandsUnderALostUpdateIsUnderWayUntilItIsGone ) {
  LateOrder< uint32_t, uint32_t > order;
  order.writesOver = [] { return true; };
  Chip other;
  Table over( calls, other, Answer::programmed, nullptr, order );
  LateOrder< uint32_t, uint32_t > sharedOrder;
  sharedOrder.isUsedByOthers = true;
  Chip shared;
  Table used( calls, shared, Answer::programmed, nullptr, sharedOrder );
  used.create( 1, 1 );
  answerIs( shared, 1 );
  over.create( 3, 30 );
  answerIs( other, 3 );
  over.create( 3, 31 );
  used.remove( 1, 1 );
  shared.takeCalls();
  answerIs( other, 3, Answer::notProgrammed );
  EXPECT_THAT( shared.takeCalls(), IsEmpty() );
  answerIs( other, 3 );
  EXPECT_THAT( shared.takeCalls(), ElementsAre( "remove 1=1" ) );
}

TEST_F( LateTableTest, AWalkComesOnceToWhatSettlesMeanwhile ) {
  for ( uint32_t key = 1; key <= 4; ++key ) {
    table.create( key, key );
  }
  answerIs( chip, 4 );
  const auto walk = table.walk();
  EXPECT_EQ( walk->next()->key, 1u );
  for ( uint32_t key = 1; key <= 3; ++key ) {
    answerIs( chip, key );
  }
  std::vector< uint32_t > rest;
  while ( const auto entry = walk->next() ) {
    rest.push_back( entry->key );
  }
  EXPECT_THAT( rest, testing::UnorderedElementsAre( 2, 3, 4 ) );
}

// What an adapter leaves is waited for no more, and its chip answers another one.
TEST_F( LateTableTest, ATableMayEndWithCallsOutstanding ) {
  Chip shared;
  LateOrder< uint32_t, uint32_t > order;
  order.isUsedByOthers = true;
  Table used( calls, shared, Answer::programmed, nullptr, order );
  used.create( 1, 1 );
  answerIs( shared, 1 );
  Chip other;
  {
    Table earlier( calls, other, Answer::programmed, nullptr );
    earlier.create( 2, 2 );
    used.remove( 1, 1 );
    other.answerIs( 2, Answer::notProgrammed );
    earlier.create( 3, 3 );
  }
  scheduler->runReady();
  EXPECT_THAT( shared.takeCalls(), ElementsAre( "create 1=1", "remove 1=1" ) );
  EXPECT_EQ( calls->outstanding(), 1u );
  EXPECT_EQ( calls->pending(), 1u );
}

TEST_F( LateTableTest, AnAnswerNeedsACall ) {
  EXPECT_DEATH( chip.answerIs( 9 ), "an answer for 9, of which no call is outstanding" );
  chip.atOnce = Answer::notProgrammed;
  EXPECT_DEATH( table.remove( 1, 10 ), "the removal of 1 was refused" );
}

// Ids rest until nothing that was accepted before names them, and tunnels keep theirs meanwhile.
TEST_F( LateTableTest, AHardwareTunnelIdRests ) {
  const auto hardware = Vex::makePtr< Switch::SimulatedSwitch >();
  const auto pools = Vex::makePtr< Switch::SwitchHwTunnelIdHelper >( "ids", hardware );
  const auto later = Vex::makePtr< KezHelper::EvpnHwTunnelIdSmHelperLater >( "ids", calls, pools );
  const auto first = later->getHwTunnelIdForTunnel( Kez::hwTunnelIdTypeDefault, 1 );
  const auto second = later->getHwTunnelIdForTunnel( Kez::hwTunnelIdTypeDefault, 2 );
  later->releaseHwTunnelId( first );
  EXPECT_FALSE( later->idsStay() );
  table.create( 1, 10 );
  later->releaseHwTunnelId( second );
  EXPECT_TRUE( later->idsStay() );
  EXPECT_FALSE( later->hwTunnelIdsInUse()->find( second ) );
  EXPECT_FALSE( later->hwTunnelIdsInUse()->walk()->next() );
  EXPECT_EQ( later->getHwTunnelIdForTunnel( Kez::hwTunnelIdTypeDefault, 3 ), first );
  answerIs( chip, 1 );
  EXPECT_FALSE( later->idsStay() );
  EXPECT_EQ( later->getHwTunnelIdForTunnel( Kez::hwTunnelIdTypeDefault, 4 ), second );
  EXPECT_EQ( hardware->refusalCounts(), 0u );
}

// The agent over a switch that answers later.
struct LateAgentTest : testing::Test {
  LateAgentTest() : wiring( wireAtZero() ), shell( wiring, out, errors ) {}
  static Agent::Wiring wireAtZero() {
    Vex::Clock::virtualIs( 0 );
    return Agent::wire();
  }
  void execute( const char * line ) {
    shell.execute( line, line );
    EXPECT_EQ( errors.str(), "" ) << line;
  }

  Agent::Wiring wiring;
  std::ostringstream out;
  std::ostringstream errors;
  Agent::Shell shell;
};

TEST_F( LateAgentTest, WhatIsRefusedLaterIsTriedAgainAsIfItHadBeenRefused ) {
  execute( "set switchAnswers.answerDelay 1" );
  execute( "set evpnStatus.evpnVlanFloodStatus[10].floodFilter[Ethernet3]" );
  execute( "set evpnStatus.vlanToDot1q[10] 110" );
  const auto & hardware = *wiring.hardware;
  const KezHelper::PortVlanKey port( Wire::IntfId( "Ethernet3" ), Wire::IntfId( "Ethernet3" ), 10 );
  EXPECT_FALSE( hardware.nonDfPort( port ) );
  execute( "expect kezEvpnFloodFilterSm.programmedStatus[Ethernet3,10].programmed[Ethernet3]" );
  execute( "set switch.fault[createNonDfPort].nextCalls 1" );
  execute( "set switch.fault[createVlan].nextCalls 1" );
  execute( "advance 1" );
  execute( "expect kezEvpnFloodFilterSm.unprogrammedFilter[Ethernet3,10]" );
  execute( "expect no switch.vlan[10]" );
  execute( "audit" );
  execute( "advance 7" );
  EXPECT_TRUE( hardware.nonDfPort( port ) );
  execute( "expect switch.vlan[10] 110" );
  execute( "expect lateCalls.lost 2" );
  // An agent that ends with calls outstanding leaves what hardware makes of them to the next one.
  execute( "set evpnStatus.evpnVlanFloodStatus[10].floodFilter[Ethernet4]" );
  execute( "restart hitless" );
  execute( "advance 10" );
  execute( "expect switch.nonDfPort[Ethernet4,Ethernet4,10]" );
  execute( "expect lateCalls.made 0" );
}

TEST_F( LateAgentTest, AMappingWaitsForItsVlanAndIsLostWithIt ) {
  execute( "set switch.capacity[vlan] 0" );
  execute( "set vlanStatusDir.vlanStatus[2].vlanPortStatus[Port-Channel1] blocking" );
  execute( "set switchAnswers.answerDelay 0.5" );
  execute( "set evpnStatus.vlanToDot1q[2] 0" );
  execute( "advance 5" );
  execute( "set lagConfigDir.lagConfig[Port-Channel1].member[Ethernet2] portProgRx" );
  execute( "advance 7" );
  execute( "expect no switch.dot1qMapping" );
  execute( "expect no switch.refusalCount" );
  execute( "del switch.capacity" );
  execute( "advance 20" );
  execute( "expect switch.dot1qMapping[Port-Channel1,Ethernet2,2] 0" );
  // A VLAN that goes is removed after its mappings, whatever the switch does first.
  execute( "set switchAnswers.shuffleSeed 8" );
  execute( "del evpnStatus.vlanToDot1q[2]" );
  execute( "advance 0.1" );
  execute( "set evpnStatus.vlanToDot1q[2] 0" );
  execute( "advance 20" );
  execute( "expect switch.dot1qMapping[Port-Channel1,Ethernet2,2] 0" );
  execute( "expect no switch.refusalCount" );
  execute( "expect lateCalls.pending 0" );
}

// The VLAN of a mapping that waits is created with another tag, and refused at once.
TEST_F( LateAgentTest, AMappingDoesNotWaitForAVlanThatIsWantedNoMore ) {
  execute( "set vlanStatusDir.vlanStatus[1].vlanPortStatus[Ethernet1] forwarding" );
  execute( "set switch.capacity[vlan] 0" );
  execute( "set switchAnswers.answerDelay 1.5" );
  execute( "set evpnStatus.vlanToDot1q[1] 200" );
  execute( "set switchAnswers.shuffleSeed 9" ); // leaves out what is wanted no more
  execute( "advance 1" );
  execute( "expect lateCalls.pending 2" );
  execute( "set switchAnswers.answerDelay 0" );
  execute( "set evpnStatus.vlanToDot1q[1] 100" );
  execute( "advance 10" );
  execute( "expect lateCalls.pending 0" );
  execute( "audit" );
  execute( "expect no audit.difference" );
  execute( "del switch.capacity" );
  execute( "advance 10" );
  execute( "expect switch.dot1qMapping[Ethernet1,Ethernet1,1] 100" );
}

} // namespace
