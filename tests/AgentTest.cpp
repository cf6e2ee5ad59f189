#include "FileContents.h"
#include "KezEvpn/KezEvpn.h"
#include "Loom/Task.h"
#include "Ringlog/Ring.h"
#include "Ringlog/Trace.h"
#include "Vex/Clock.h"
#include "agent/Shell.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace AgentTesting {

class Slot : public Vex::Entity {
  VEX_ENTITY( Slot, "Test::Slot" )
  VEX_KEY( Slot, place, Kez::IntfVlanKey )
  VEX_ATTRIBUTE( 1, label, Vex::String )
  VEX_MAP( 2, weight, Wire::IntfId, uint8_t )
  VEX_SET( 3, vlan, Bridging::VlanId )
  VEX_ATTRIBUTES( label, weight, vlan )
};

class Rack : public Vex::Entity {
  VEX_ENTITY( Rack, "Test::Rack" )
  VEX_ENTITIES( 1, slot, Slot )
  VEX_ATTRIBUTES( slot )
};

// Runs every `interval` seconds and notes when; with an interval of 0 it never rests.
class Ticker : public Loom::Task {
  VEX_ENTITY( Ticker, "Test::Ticker", Loom::Task )
  VEX_TUNABLE( 1, interval, double, 2.0 )
  VEX_MAP( 2, ticks, double, bool )
  VEX_INPUT( 3, rack, Rack )
  VEX_ATTRIBUTES( interval, ticks, rack )
  VEX_OPERATIONS( VEX_OPERATION( note, intfId, ports ) )

public:
  uint64_t note( Wire::IntfId intfId, const Kez::KezPortList & ports ) {
    ticksIs( -1.0, ports.portHas( intfId ) );
    return ports.ports();
  }

  Ticker( const Vex::Ptr< Loom::TaskScheduler > & scheduler, const Vex::Ptr< const Rack > & rack )
      : Task( scheduler, 0, "ticker" ), rack_( rack ) {
    scheduleAfter( interval() );
  }

private:
  void run() override {
    VEX_ASSERT( interval() >= 0 );
    ticksIs( Vex::Clock::now(), true );
    scheduleAfter( interval() );
  }
};

} // namespace AgentTesting

namespace {

Ringlog::Handle traceHandle( "AgentTest" );

using AgentTesting::Rack;
using AgentTesting::Ticker;

class AgentTest : public testing::Test {
protected:
  // What is wrong with the line, "<column>: <what>"; empty when nothing is.
  std::string line( const std::string & text ) {
    try {
      shell.execute( text, "test:7" );
      return "";
    } catch ( const Agent::BadLine & error ) {
      return std::to_string( error.column ) + ": " + error.what();
    }
  }
  std::string output( const std::string & text ) {
    out.str( "" );
    EXPECT_EQ( line( text ), "" );
    return out.str();
  }
  std::string dump() {
    std::string all;
    for ( const auto * root : { "rack", "made", "ticker" } ) {
      all += output( std::string( "show " ) + root );
    }
    return all;
  }

  static Agent::Wiring wire() {
    Vex::Clock::virtualIs( 0 );
    Agent::Wiring wiring;
    wiring.scheduler = Vex::makePtr< Loom::TaskScheduler >();
    const auto rack = wiring.roots.rootIs( Agent::Role::input, "rack", Vex::makePtr< Rack >() );
    wiring.roots.rootIs( Agent::Role::output, "made", Vex::makePtr< Rack >() );
    wiring.roots.rootIs( Agent::Role::machine, "ticker",
                         Vex::makePtr< Ticker >( wiring.scheduler, rack ) );
    return wiring;
  }

  Agent::Wiring wiring = wire();
  std::ostringstream out, err;
  Agent::Shell shell{ wiring, out, err };
};

TEST_F( AgentTest, BadLineSaysWhereAndWhatAndChangesNothing ) {
  EXPECT_EQ( line( "set rack.slot[Ethernet1,10].weight[Ethernet2] 5" ), "" );
  const auto before = dump();
  using namespace std::string_literals;
  const std::string slot = "set rack.slot[Ethernet1,11]."; // not there: it must not be made
  const std::pair< std::string, const char * > lines[] = {
    { "sett rack",
      "1: expected a command (set, del, show, watch, history, expect, send, explain, check, metrics, audit, advance, call, "
      "restart, inputs, trace, json, record, help, quit, exit), found 'sett'" },
    { "set", "4: expected a root (rack, made, ticker), found nothing" },
    { "  set rak.slot 5", "7: expected a root (rack, made, ticker), found 'rak'" },
    { "set rack", "9: expected '.' and an attribute of Test::Rack" },
    { "set rack.slots[Ethernet1,10]",
      "10: expected an attribute of Test::Rack (slot), found 'slots'" },
    { "set rack.slot", "14: expected '[' and a key of slot" },
    { "set rack.slot.label x", "14: expected '[' and a key of slot, found '.label'" },
    { "set rack.slot[Ethernet1,5000]",
      "25: field 'vlanId': expected a VLAN id, 1 to 4094, found '5000'" },
    { "set rack.slot[Ethernet1,11", "27: expected ']', found nothing" },
    { "set rack.slot[Ethernet1,11]x", "28: expected '.', a blank or the end of the line, found "
                                      "'x'" },
    { slot + "colour red",
      "29: expected an attribute of Test::Slot (label, weight, vlan), found 'colour'" },
    { slot + "label[x] red", "34: expected no key, since label is no collection, found '['" },
    { slot + "label.x red", "34: expected the end of the path, since rack.slot[Ethernet1,11]."
                            "label is no entity, found '.'" },
    { slot + "weight[Ethernet2] 256",
      "47: expected a whole number of 8 bits, not negative, found '256'" },
    { slot + "weight[Ethernet2]",
      "46: expected a whole number of 8 bits, not negative, found nothing" },
    { slot + "weight[Ethernet2] 007",
      "47: expected a whole number of 8 bits, not negative, found '007'" },
    { "set rack.slot[Ethernet1,1\0001]"s,
      "25: field 'vlanId': expected a VLAN id, 1 to 4094, found '1\\x001'" },
    { "del rack.sl\0ot[Ethernet1,1] now"s,
      "10: expected an attribute of Test::Rack (slot), found 'sl\\x00ot'" },
    { slot + "vlan[10] 1", "38: expected nothing more, found '1'" },
    { slot + "vlan[]", "34: expected a key, Bridging::VlanId, found ']'" },
    { "set made.slot[Ethernet1,10]",
      "5: expected something that may be written; made is an output" },
    { "del made.slot", "5: expected something that may be written; made is an output" },
    { "set ticker.ticks[1] 1", "12: expected something that may be written; ticks is read-only" },
    { "set ticker.rack.slot[Ethernet1,11]",
      "12: expected something that may be written; rack is a reference" },
    { "expect rack.slot 1", "18: expected 'count' and a number" },
    { "expect rack.slot count x",
      "24: expected a whole number of 64 bits, not negative, found 'x'" },
    { "expect no rack.slot 1", "21: expected nothing more, found '1'" },
    { "expect rack 1", "13: expected nothing more, since rack has no value" },
    { "advance -1", "9: expected seconds, 0 to 1000000000, found '-1'" },
    { "advance 1e300", "9: expected seconds, 0 to 1000000000, found '1e300'" },
    { "call ticker", "12: expected '.' and an operation of Test::Ticker, found nothing" },
    { "call ticker.ticks", "18: expected an operation of an entity, which ticker.ticks is not, "
                           "found nothing" },
    { "call ticker.pause",
      "13: expected an operation of Test::Ticker (scheduleNow, note), found 'pause'" },
    { "call ticker.rack.slot[Ethernet9,1].paint",
      "36: expected an operation of Test::Slot (it has none), found 'paint'" },
    { "call ticker.note.x", "17: expected a blank or the end of the line, found '.x'" },
    { "call ticker.note", "17: argument 'intfId': expected Wire::IntfId, found nothing" },
    { "call ticker.note Ethernet1 ,", "28: argument 'ports': expected a port's name, found ','" },
    { "call ticker.scheduleNow 5", "25: expected nothing more, found '5'" },
    { "trace Kez/5,x y", "14: expected '/', ',' or the end, found ' '" },
  };
  for ( const auto & [ text, what ] : lines ) {
    EXPECT_EQ( line( text ), what ) << text;
    EXPECT_EQ( dump(), before ) << text;
  }
}

TEST_F( AgentTest, WritesAndShowsWhatPathsName ) {
  for ( const auto * text :
        { "set rack.slot[Value('Kez::IntfVlanKey', ** {'intfId': Ethernet1, 'vlanId': 10})].label "
          " to the left ",
          "set rack.slot[Ethernet1,10].weight[Ethernet2] 7", "set rack.slot[Ethernet2,10]",
          "set rack.slot[Ethernet1,10].weight[swp3] 1", "del rack.slot[Ethernet1,10].weight[swp3]",
          "set rack.slot[Ethernet1,10].vlan[20]", "set rack.slot[Ethernet1,10].vlan[10]",
          "set ticker.interval 2.50" } ) {
    EXPECT_EQ( line( text ), "" ) << text;
  }
  EXPECT_EQ( output( "show ticker.rack" ), R"(ticker.rack (Test::Rack)
  slot (2)
    Ethernet1,10
      label = to the left
      weight (1)
        Ethernet2 = 7
      vlan (2)  20  10
    Ethernet2,10
      label =
      weight (0)
      vlan (0)
)" );
  EXPECT_EQ( output( "show ticker.interval" ), "ticker.interval = 2.5\n" );
  EXPECT_EQ( output( "show rack.slot[Ethernet9,1].weight" ),
             "rack.slot[Ethernet9,1].weight: none\n" );
  EXPECT_EQ( output( "del rack.slot[Ethernet9,1].weight[Ethernet1]" ),
             "rack.slot[Ethernet9,1].weight[Ethernet1]: none\n" );
  EXPECT_EQ( output( "help ticker.rack.slot" ), R"(ticker.rack.slot[Kez::IntfVlanKey] (Test::Slot)
  attribute               kind   value         access
  label                   value  text          read-only
  weight[Wire::IntfId]    map    whole number  read-only
  vlan[Bridging::VlanId]  set                  read-only
)" );
  EXPECT_EQ( line( "del rack.slot[Ethernet1,10].label" ), "" );
  EXPECT_EQ( line( "del rack.slot[Ethernet1,10].vlan" ), "" );
  EXPECT_EQ( output( "show rack.slot[Ethernet1,10]" ), R"(rack.slot[Ethernet1,10] (Test::Slot)
  label =
  weight (1)
    Ethernet2 = 7
  vlan (0)
)" );
}

TEST_F( AgentTest, CallsWhatAnEntityOffers ) {
  EXPECT_EQ( output( "call ticker.note \tEthernet2\tEthernet1,Ethernet2" ), "2\n" );
  EXPECT_EQ( output( "show ticker.ticks[-1]" ), "ticker.ticks[-1] = 1\n" );
  EXPECT_EQ( output( "call ticker.note Ethernet2" ), "0\n" );
  EXPECT_EQ( output( "call ticker.scheduleNow" ), "" );
  EXPECT_EQ( line( "expect ticker.ticks[0] 1" ), "" );
  EXPECT_EQ( shell.failures(), 0u );
  EXPECT_THAT( output( "help ticker" ),
               testing::EndsWith( "  call scheduleNow\n"
                                  "  call note intfId:Wire::IntfId ports:Kez::KezPortList\n" ) );
}

TEST_F( AgentTest, ExpectationsHoldOrShowBothValues ) {
  EXPECT_EQ( line( "set rack.slot[Ethernet1,10].weight[Ethernet2] 7" ), "" );
  EXPECT_EQ( line( "set rack.slot[Ethernet1,10].vlan[30]" ), "" );
  const auto expect = [ & ]( const std::string & text ) {
    err.str( "" );
    EXPECT_EQ( line( "expect " + text ), "" ) << text;
    return err.str();
  };
  for ( const auto * text :
        { "rack", "rack.slot", "rack.slot[Ethernet1,10]", "no rack.slot[Ethernet1,11]",
          "no made.slot", "rack.slot count 1", "no rack.slot[Ethernet1,11].weight[Ethernet2]",
          "rack.slot[Ethernet1,10].weight[Ethernet2] 7", "rack.slot[Ethernet1,10].vlan[30]",
          "no rack.slot[Ethernet1,10].vlan[31]", "ticker.rack.slot[Ethernet1, 10].vlan count 1",
          "rack.slot[Ethernet9,1].vlan count 0", "ticker.nextRun 2.0" } ) {
    EXPECT_EQ( expect( text ), "" );
  }
  const std::tuple< const char *, const char *, const char * > failures[] = {
    { "rack.slot[Ethernet1,10].weight[Ethernet2] 8", "8", "7" },
    { "rack.slot[Ethernet1,10].weight[Ethernet3] 0", "0", "none" },
    { "rack.slot[Ethernet1,11]", "there", "none" },
    { "no rack.slot[Ethernet1,10]", "none", "there" },
    { "no rack.slot[Ethernet1,10].weight[Ethernet2]", "none", "7" },
    { "rack.slot count 2", "count 2", "count 1" },
    { "no rack.slot", "none", "count 1" },
    { "made.slot", "there", "count 0" },
  };
  for ( const auto & [ text, expected, found ] : failures ) {
    EXPECT_THAT( expect( text ), testing::MatchesRegex(
                                     std::string( "test:7: expectation failed: .*\n  expected  " ) +
                                     expected + "\n  found     " + found + "\n" ) );
  }
  EXPECT_EQ( shell.failures(), std::size( failures ) );
}

TEST_F( AgentTest, AConsoleTellsWhatHasChangedAfterEachLine ) {
  const auto told = [ & ]( const std::string & text ) {
    output( text );
    shell.console().conclude();
    return out.str();
  };
  EXPECT_EQ( line( "watch rack.slot[Ethernet1,10]" ),
             "7: expected what is there; rack.slot[Ethernet1,10] is not" );
  EXPECT_EQ( line( "watch ticker.runs" ),
             "18: expected an attribute that tells of its changes, which ticker.runs does not: it "
             "is computed" );
  EXPECT_EQ( told( "set rack.slot[Ethernet1,10].label a" ), "" );
  EXPECT_EQ( told( "watch ticker.ticks" ), "" );
  EXPECT_EQ( told( "advance 5" ), "      2.000000  ticks[2] = 1\n      4.000000  ticks[4] = 1\n" );
  EXPECT_EQ( told( "--json watch rack.slot[Ethernet1,10]" ),
             "{\"status\":\"ok\",\"place\":\"test:7\",\"time\":5}\n" );
  EXPECT_EQ( told( "set rack.slot[Ethernet1,10].label b" ),
             "{\"time\":5,\"path\":\"rack.slot[Ethernet1,10].label\",\"there\":true,"
             "\"value\":\"b\"}\n" );
  EXPECT_EQ( told( "del rack.slot[Ethernet1,10]" ),
             "{\"time\":5,\"path\":\"rack.slot[Ethernet1,10]\",\"there\":false}\n" );
  EXPECT_EQ( told( "set rack.slot[Ethernet1,10].label c" ), "" );
  EXPECT_EQ( told( "watch rack" ), "" );
  EXPECT_EQ( told( "set rack.slot[Ethernet1,11]" ), "      5.000000  slot[Ethernet1,11]\n" );
  EXPECT_EQ( told( "watch off" ), "" );
  EXPECT_EQ( told( "del rack.slot" ), "" );
}

TEST_F( AgentTest, HistoryIsWhatTheRingHasOfAllKeys ) {
  EXPECT_EQ( line( "history rack.slot" ), "18: expected '[' and a key, by which it is looked for" );
  const std::string asked = "history rack.slot[Ethernet1,10].vlan[30]";
  EXPECT_THAT( line( asked ), testing::HasSubstr( "expected a host that writes a ring" ) );
  const auto ring = testing::TempDir() + "agent-test-ring-" + std::to_string( getpid() );
  Ringlog::ringIs( ring, Ringlog::smallestRing );
  EXPECT_EQ( output( asked ), "the ring has nothing of it\n" );
  const Kez::IntfVlanKey key( Vex::parse< Wire::IntfId >( "Ethernet1" ), 10 );
  // More than one part of the ring.
  for ( int i = 0; i < 1000; ++i ) {
    TRACE( 7, "step ", i, " of ", key, " via 30" );
    TRACE( 7, "step ", i, " of ", key, " via 301" );
    TRACE( 7, "step ", i, " of Ethernet1 via 30" );
  }
  const std::string of =
      " AgentTest                    7 step 999 of " + Vex::text( key ) + " via 30\n";
  EXPECT_EQ( output( asked + " limit 1" ), "      0.000000" + of );
  EXPECT_THAT( output( asked ),
               testing::AllOf( testing::HasSubstr( " step 980 of" ), testing::EndsWith( of ),
                               testing::Not( testing::HasSubstr( "979" ) ) ) );
  EXPECT_THAT( line( asked + " limit 0" ), testing::StartsWith( "48: " ) );
  Ringlog::ringDel();
  std::filesystem::remove( ring );
}

TEST_F( AgentTest, TasksRunAtTheirTimeAndMustRest ) {
  EXPECT_EQ( line( "advance 5" ), "" );
  EXPECT_EQ( output( "show ticker.ticks" ), "ticker.ticks (2)\n  2 = 1\n  4 = 1\n" );
  EXPECT_THAT( output( "show" ), testing::StartsWith( "time 5 s, virtual\n" ) );
  EXPECT_EQ( line( "set ticker.interval 0" ), "" );
  EXPECT_EQ( line( "advance 1" ), "" );
  EXPECT_EQ( err.str(), "test:7: tasks are still ready after 1000000 turns of the scheduler\n" );
  EXPECT_EQ( shell.failures(), 1 );
}

TEST_F( AgentTest, RecordReplaysToTheSameState ) {
  const auto name = testing::TempDir() + "agent-test-" + std::to_string( getpid() ) + ".kez";
  EXPECT_EQ( line( "set rack.slot[Ethernet1,10].weight[Ethernet2] 7" ), "" );
  EXPECT_EQ( line( "record " + name ), "" );
  EXPECT_NE( line( "record " + name ), "" ) << "what a file holds is kept";
  EXPECT_EQ( line( "# between" ), "" );
  EXPECT_NE( line( "set rack.slot[Ethernet1,10].weight[Ethernet2] x" ), "" );
  EXPECT_EQ( line( "advance 3" ), "" );
  EXPECT_EQ( line( "del rack.slot[Ethernet1,10].weight" ), "" );
  const auto state = dump(); // by lines of the session, which print it again when replayed
  EXPECT_EQ( line( "record off" ), "" );
  EXPECT_EQ( line( "set rack.slot[Ethernet1,12]" ), "" );

  auto fresh = wire();
  Agent::Shell replayed( fresh, out, err );
  std::ifstream file( name );
  out.str( "" );
  for ( std::string text; std::getline( file, text ); ) {
    replayed.execute( text, "replay" );
  }
  EXPECT_TRUE( std::filesystem::remove( name ) );
  EXPECT_EQ( out.str(), state );
}

TEST_F( AgentTest, LineThatEndsTheProcessIsInTheRecord ) {
  const auto name = testing::TempDir() + "agent-test-fatal-" + std::to_string( getpid() ) + ".kez";
  EXPECT_EQ( line( "set ticker.interval -1" ), "" );
  EXPECT_EQ( line( "record " + name ), "" );
  EXPECT_DEATH( line( "advance 9" ), "assertion failed: interval\\(\\) >= 0" );
  EXPECT_THAT( contents( name ),
               testing::MatchesRegex( "set ticker.interval -1\n#= record 1, virtual "
                                      "clock at 0\nadvance 9\n+" ) );
  EXPECT_TRUE( std::filesystem::remove( name ) );
}

} // namespace
