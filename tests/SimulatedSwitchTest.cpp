#include "TraceCapture.h"
#include "Vex/Clock.h"
#include "agent/Shell.h"
#include "switch/SwitchFloodingHelper.h"

#include <gmock/gmock.h>

#include <fstream>
#include <functional>
#include <set>
#include <sstream>

namespace {

using Kez::HwProgrammingStatus;
using Switch::Operation;
using Switch::SimulatedSwitch;
using Switch::Strictness;
using Switch::SwitchFloodingHelper;
using testing::ElementsAre;

const Wire::IntfId lag1( "Port-Channel1" );
const Wire::IntfId lag2( "Port-Channel2" );
const Wire::IntfId port( "Ethernet1" );
const Kez::HwTunnelId hwTid( Kez::hwTunnelIdTypeDefault, 7 );

class SimulatedSwitchTest : public testing::Test {
protected:
  // What the tables hold, as paths show it.
  std::string tables() const {
    std::string all;
    for ( const auto * attribute : hardware->fwkType().attributes() ) {
      if ( attribute->id < Vex::AttrId( 40 ) ) {
        attribute->forEach( *hardware, [ & ]( const Vex::ReflectedMember & member ) {
          all += std::string( attribute->name ) + "[" + member.key + "] " + member.value + "\n";
        } );
      }
    }
    return all;
  }
  HwProgrammingStatus createEsi( Kez::HwTunnelId id = hwTid, uint32_t label = 100 ) {
    return helper->createEsiData( lag1, port, 10, 5, id, label, 200 );
  }
  // Which of `n` creations of a VLAN fail, "x", and which do not, ".".
  std::string creations( int n ) {
    std::string marks;
    for ( int i = 0; i < n; ++i ) {
      const auto status = helper->createVlan( 10, 110 );
      marks += status == HwProgrammingStatus::programmed ? '.' : 'x';
    }
    return marks;
  }

  const Vex::Ptr< SimulatedSwitch > hardware = Vex::makePtr< SimulatedSwitch >();
  const Vex::Ptr< SwitchFloodingHelper > helper =
      Vex::makePtr< SwitchFloodingHelper >( "helper", hardware );
};

TEST_F( SimulatedSwitchTest, TablesHoldWhatIsProgrammed ) {
  helper->updateSupportedOnCreateEsiDataIs( true );
  const auto programmed = HwProgrammingStatus::programmed;
  EXPECT_EQ( helper->createVlan( 10, 110 ), programmed );
  EXPECT_EQ( helper->createVlan( 10, 110 ), programmed );
  // A port that moves between LAGs is there for both meanwhile.
  EXPECT_EQ( helper->createVlanToDot1qMapping( lag1, port, 10, 110 ), programmed );
  EXPECT_EQ( helper->createVlanToDot1qMapping( lag2, port, 10, 110 ), programmed );
  EXPECT_EQ( helper->createNonDfPort( port, port, 20 ), programmed );
  EXPECT_EQ( createEsi(), programmed );
  EXPECT_EQ( createEsi( hwTid, 101 ), programmed );
  EXPECT_EQ( tables(), "vlan[10] 110\n"
                       "dot1qMapping[Port-Channel1,Ethernet1,10] 110\n"
                       "dot1qMapping[Port-Channel2,Ethernet1,10] 110\n"
                       "nonDfPort[Ethernet1,Ethernet1,20] \n"
                       "esiData[Port-Channel1,Ethernet1,10] 5,0:7,101,200\n" );

  // Mappings outlive their VLAN; ESI data is found without its tunnel.
  helper->deleteVlan( 10, 110 );
  helper->deleteVlanToDot1qMapping( lag1, port, 10, 110 );
  helper->deleteNonDfPort( port, port, 20 );
  helper->deleteEsiData( lag1, port, 10, 0, {} );
  EXPECT_EQ( tables(), "dot1qMapping[Port-Channel2,Ethernet1,10] 110\n" );
  EXPECT_EQ( hardware->refusalCounts(), 0u ) << hardware->lastRefusal();
}

TEST_F( SimulatedSwitchTest, WrongCallsAreSeen ) {
  struct Case {
    std::string refusal;
    std::function< HwProgrammingStatus() > call;
    HwProgrammingStatus answer = HwProgrammingStatus::notProgrammed;
  };
  const auto none = HwProgrammingStatus::programmed; // a deletion answers nothing
  const Case cases[] = {
    { "createVlan 10 dot1q 120: it has dot1q 110",
      [ & ] { return helper->createVlan( 10, 120 ); } },
    { "deleteVlan 10 dot1q 120: it has dot1q 110",
      [ & ] { return helper->deleteVlan( 10, 120 ), none; }, none },
    { "deleteVlan 11 dot1q 0: it is not there",
      [ & ] { return helper->deleteVlan( 11, {} ), none; }, none },
    { "createVlanToDot1qMapping Port-Channel1,Ethernet1,10 dot1q 110: it is there",
      [ & ] { return helper->createVlanToDot1qMapping( lag1, port, 10, 110 ); } },
    { "createVlanToDot1qMapping Port-Channel1,Ethernet1,11 dot1q 111: VLAN 11 is not there",
      [ & ] { return helper->createVlanToDot1qMapping( lag1, port, 11, 111 ); } },
    { "deleteVlanToDot1qMapping Port-Channel1,Ethernet1,10 dot1q 120: it has dot1q 110",
      [ & ] { return helper->deleteVlanToDot1qMapping( lag1, port, 10, 120 ), none; }, none },
    { "deleteVlanToDot1qMapping Port-Channel2,Ethernet1,10 dot1q 0: it is not there",
      [ & ] { return helper->deleteVlanToDot1qMapping( lag2, port, 10, {} ), none; }, none },
    { "createNonDfPort Port-Channel1,Ethernet1,10: it is there",
      [ & ] { return helper->createNonDfPort( lag1, port, 10 ); } },
    { "deleteNonDfPort Port-Channel2,Ethernet1,10: it is not there",
      [ & ] { return helper->deleteNonDfPort( lag2, port, 10 ), none; }, none },
    { "createEsiData Port-Channel1,Ethernet1,10 5,0:7,101,200: it is there",
      [ & ] { return createEsi( hwTid, 101 ); } },
    { "createEsiData Port-Channel1,Ethernet1,10 5,0:0,100,200: its hardware tunnel id is not valid",
      [ & ] { return createEsi( {} ); }, HwProgrammingStatus::invalidHwId },
    { "deleteEsiData Port-Channel2,Ethernet1,10: it is not there",
      [ & ] { return helper->deleteEsiData( lag2, port, 10, 0, {} ), none; }, none },
  };
  helper->createVlan( 10, 110 );
  helper->createVlanToDot1qMapping( lag1, port, 10, 110 );
  helper->createNonDfPort( lag1, port, 10 );
  createEsi();
  const auto before = tables();
  hardware->successCountDelAll();
  for ( const auto & each : cases ) {
    EXPECT_EQ( each.call(), each.answer ) << each.refusal;
    EXPECT_EQ( hardware->lastRefusal(), each.refusal );
    EXPECT_EQ( tables(), before ) << each.refusal;
  }
  EXPECT_EQ( hardware->refusalCount( Operation::createVlanToDot1qMapping ), 2u );
  EXPECT_EQ( hardware->refusalCounts(), 8u );
  EXPECT_EQ( hardware->successCounts(), 0u );

  // Counted alone, they are carried out as far as they can be.
  hardware->strictnessIs( Strictness::count );
  EXPECT_EQ( helper->createVlan( 10, 120 ), HwProgrammingStatus::programmed );
  EXPECT_EQ( helper->createVlanToDot1qMapping( lag2, port, 11, 111 ),
             HwProgrammingStatus::programmed );
  helper->deleteVlanToDot1qMapping( lag1, port, 10, 120 );
  helper->deleteNonDfPort( lag2, port, 10 );
  EXPECT_EQ( createEsi( hwTid, 101 ), HwProgrammingStatus::programmed );
  EXPECT_EQ( tables(), "vlan[10] 120\n"
                       "dot1qMapping[Port-Channel2,Ethernet1,11] 111\n"
                       "nonDfPort[Port-Channel1,Ethernet1,10] \n"
                       "esiData[Port-Channel1,Ethernet1,10] 5,0:7,101,200\n" );
  EXPECT_EQ( hardware->refusalCount( Operation::createVlan ), 2u );

  hardware->strictnessIs( Strictness::fatal );
  EXPECT_DEATH( helper->deleteVlan( 12, 12 ),
                "wrong call deleteVlan 12 dot1q 12: it is not there\n.*assertion failed: 0" );
}

TEST_F( SimulatedSwitchTest, PlansSayWhichCallsFail ) {
  Vex::Clock::virtualIs( 0 );
  EXPECT_EQ( creations( 3 ), "..." );
  const auto plan = hardware->faultIs( Operation::createVlan );
  EXPECT_EQ( creations( 3 ), "..." );
  plan->nextCallsIs( 2 );
  EXPECT_EQ( creations( 4 ), "xx.." );
  plan->callsSeenIs( 0 );
  plan->everyNthIs( 3 );
  EXPECT_EQ( creations( 7 ), "..x..x." );
  plan->everyNthIs( 0 );
  plan->untilTimeIs( 10 );
  Vex::Clock::advanceTo( 9.5 );
  EXPECT_EQ( creations( 1 ), "x" );
  Vex::Clock::advanceTo( 10 );
  EXPECT_EQ( creations( 1 ), "." );

  // By chance: as often as is said, the same again from the same seed, other calls from another.
  plan->probabilityIs( 0.25 );
  const auto drawn = [ & ]( uint64_t seed ) {
    plan->seedIs( seed );
    plan->callsSeenIs( 0 );
    return creations( 4000 );
  };
  const auto marks = drawn( 1 );
  EXPECT_NEAR( std::count( marks.begin(), marks.end(), 'x' ), 1000, 100 );
  EXPECT_EQ( marks, drawn( 1 ) );
  EXPECT_NE( marks, drawn( 2 ) );

  // A plan is of one operation, and answers what that operation can answer.
  hardware->faultDelAll();
  for ( const auto operation : { Operation::createVlan, Operation::createEsiData } ) {
    hardware->faultIs( operation )->nextCallsIs( 1 );
    hardware->fault( operation )->answerIs( Switch::Failure::invalidHwId );
  }
  EXPECT_EQ( helper->createNonDfPort( lag1, port, 10 ), HwProgrammingStatus::programmed );
  EXPECT_EQ( helper->createVlan( 20, 120 ), HwProgrammingStatus::notProgrammed );
  EXPECT_EQ( createEsi(), HwProgrammingStatus::invalidHwId );
  EXPECT_EQ( tables(), "vlan[10] 110\nnonDfPort[Port-Channel1,Ethernet1,10] \n" );
}

TEST_F( SimulatedSwitchTest, FullTableTakesNoMoreUntilThereIsRoom ) {
  helper->updateSupportedOnCreateEsiDataIs( true );
  hardware->capacityIs( Switch::Table::esiData, 1 );
  hardware->capacityIs( Switch::Table::vlan, 0 );
  EXPECT_EQ( creations( 1 ), "x" );
  const auto other = [ & ] { return helper->createEsiData( lag2, port, 10, 5, hwTid, 100, 200 ); };
  EXPECT_EQ( createEsi(), HwProgrammingStatus::programmed );
  EXPECT_EQ( other(), HwProgrammingStatus::notProgrammed );
  EXPECT_EQ( createEsi( hwTid, 101 ), HwProgrammingStatus::programmed ); // an update needs no room
  helper->deleteEsiData( lag1, port, 10, 0, {} );
  EXPECT_EQ( other(), HwProgrammingStatus::programmed );
  EXPECT_EQ( tables(), "esiData[Port-Channel2,Ethernet1,10] 5,0:7,100,200\n" );
}

TEST_F( SimulatedSwitchTest, EveryCallIsCountedAndTraced ) {
  TraceCapture trace( "KezS*/0-5" );
  hardware->faultIs( Operation::createVlan )->nextCallsIs( 1 );
  hardware->capacityIs( Switch::Table::vlan, 1 );
  creations( 2 );
  helper->createVlan( 20, 120 );
  helper->createVlan( 10, 120 );
  helper->deleteVlan( 10, 110 );
  EXPECT_THAT(
      trace.take(),
      ElementsAre( "2 createVlan fails as planned", "5 createVlan 10 dot1q 110: notProgrammed",
                   "5 createVlan 10 dot1q 110: programmed", "2 createVlan finds no room",
                   "5 createVlan 20 dot1q 120: notProgrammed",
                   "1 wrong call createVlan 10 dot1q 120: it has dot1q 110",
                   "5 createVlan 10 dot1q 120: notProgrammed", "5 deleteVlan 10 dot1q 110" ) );
  EXPECT_EQ( hardware->callCount( Operation::createVlan ), 4u );
  EXPECT_EQ( hardware->successCount( Operation::createVlan ), 1u );
  EXPECT_EQ( hardware->faultCount( Operation::createVlan ), 1u );
  EXPECT_EQ( hardware->fullCount( Operation::createVlan ), 1u );
  EXPECT_EQ( hardware->refusalCount( Operation::createVlan ), 1u );
  EXPECT_EQ( hardware->successCount( Operation::deleteVlan ), 1u );
}

TEST( SimulatedSwitchOperations, AreThoseThatTheManualLists ) {
  std::string rows;
  for ( const auto & each : Switch::operationTypes ) {
    rows += "| `" + stringValue( each.operation ) + "` | `" + stringValue( each.table ) + "` |";
    for ( size_t i = 0; i < each.failureCount; ++i ) {
      rows += ( i ? ", `" : " `" ) + stringValue( each.failures[ i ] ) + "`";
    }
    rows += " |\n";
  }
  std::stringstream manual;
  manual << std::ifstream( KEZ_DOCS "/agent.md" ).rdbuf();
  EXPECT_THAT( manual.str(), testing::HasSubstr( "| --- | --- | --- |\n" + rows + "\n" ) );
}

// As a scenario writes them.
TEST( SimulatedSwitchPaths, AgentHasSwitchAndHelperAtTheirRoots ) {
  Vex::Clock::virtualIs( 0 );
  auto wiring = Agent::wire();
  std::ostringstream out, err;
  Agent::Shell shell( wiring, out, err );
  const auto execute = [ & ]( const char * line ) { shell.execute( line, "test:1" ); };
  execute( "set floodingHelper.updateSupportedOnCreateEsiData 1" );
  execute( "set switch.fault[createVlan].probability 0.1" );
  execute( "set switch.capacity[dot1qMapping] 100" );
  execute( "set switch.dot1qMapping[Port-Channel1,Ethernet1/1,10] 110" );
  execute( "expect switch.dot1qMapping[Port-Channel1,Ethernet1/1,10] 110" );
  execute( "expect floodingHelper.simulatedSwitch.capacity[dot1qMapping] 100" );
  execute( "expect no switch.refusalCount" );
  EXPECT_EQ( shell.failures(), 0u ) << err.str();
  EXPECT_THROW( execute( "set switch.fault[deleteVlan].nextCalls 1" ), Agent::BadLine );

  for ( const char * path :
        { "evpnHwTunnelIdSm.defaultUnprogrammedRetryInterval",
          "evpnFloodingDot1qSm.defaultIntfVlanDelay", "switchFloodSets.answerDelay",
          "switchFloodSets.retryInterval", "scheduler.timeSlice", "scheduler.workBudget",
          "switch.fault[createVlan].probability", "switch.fault[createFec].untilTime" } ) {
    for ( const char * value : { "-1", "nan", "inf", "1e400" } ) {
      EXPECT_THROW( execute( ( std::string( "set " ) + path + " " + value ).c_str() ),
                    Agent::BadLine )
          << path << value;
    }
  }
  for ( const char * line :
        { "set scheduler.workBudget 0", "set scheduler.timeSlice 0",
          "set switchFloodSets.retryInterval 0", "set switch.fault[createFec].probability 1.1" } ) {
    EXPECT_THROW( execute( line ), Agent::BadLine ) << line;
  }
  execute( "set switchFloodSets.answerDelay 0" );
  execute( "set evpnFloodingDot1qSm.defaultIntfVlanDelay 0" );
  execute( "expect no switch.fault[createFec]" );
  EXPECT_EQ( shell.failures(), 0u ) << err.str();
}

// A duration that is none, or a probability above 1, would be found out late, or never.
TEST( SimulatedSwitchPaths, EveryFigureThatMayBeWrittenSaysItsRange ) {
  auto wiring = Agent::wire();
  std::set< const Vex::EntityType * > seen;
  const std::function< void( const Vex::EntityType & ) > look = [ & ]( const auto & type ) {
    if ( !seen.insert( &type ).second ) {
      return;
    }
    for ( const auto * attribute : type.attributes() ) {
      const bool written = attribute->access == Vex::Access::writable;
      EXPECT_FALSE( written && attribute->valueType == "number" ) << type.name << attribute->name;
      if ( attribute->entityType() ) {
        look( *attribute->entityType() );
      }
    }
  };
  for ( const auto & root : wiring.roots ) {
    look( root.entity->fwkType() );
  }
  EXPECT_GT( seen.size(), 20u );
}

} // namespace
