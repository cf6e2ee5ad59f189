#include "KezEvpn/KezEvpn.h"
#include "Loom/Task.h"
#include "Vex/Clock.h"
#include "Vex/FatalEnd.h"
#include "agent/CommandLine.h"
#include "agent/Shell.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
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
  VEX_OPERATIONS( VEX_SAFE( note, intfId, ports ), VEX_UNSAFE( cancel ) )

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

std::string contents( const std::string & name ) {
  std::stringstream text;
  text << std::ifstream( name ).rdbuf();
  return text.str();
}

TEST_F( AgentTest, BadLineSaysWhereAndWhatAndChangesNothing ) {
  EXPECT_EQ( line( "set rack.slot[Ethernet1,10].weight[Ethernet2] 5" ), "" );
  const auto before = dump();
  using namespace std::string_literals;
  const std::string slot = "set rack.slot[Ethernet1,11]."; // not there: it must not be made
  const std::pair< std::string, const char * > lines[] = {
    { "sett rack",
      "1: expected a command (set, del, show, expect, explain, check, advance, call, restart, trace, "
      "record, help), found 'sett'" },
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
      "13: expected an operation of Test::Ticker (scheduleNow, note, cancel), found 'pause'" },
    { "call ticker.rack.slot[Ethernet9,1].paint",
      "36: expected an operation of Test::Slot (it has none), found 'paint'" },
    { "call ticker.cancel",
      "13: expected an operation that may be called at any time; cancel may not" },
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
  EXPECT_EQ( output( "help ticker.rack.slot" ), R"(ticker.rack.slot (Test::Slot)
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
  EXPECT_EQ( output( "call ticker.note  Ethernet2 Ethernet1,Ethernet2" ), "2\n" );
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

TEST( AgentProcessTest, AFailedAssertionTakesNothingWithItThatWasSaid ) {
  const auto name = testing::TempDir() + "agent-test-end-" + std::to_string( getpid() );
  const auto lines = name + ".kez", report = name + ".html", file = name + ".txt";
  std::ofstream( lines ) << "set switch.vlan[10] 110\nset switch.strictness fatal\n"
                            "trace KezSimulatedSwitch\nset evpnStatus.vlanToDot1q[10] 120\n";
  const auto command =
      "ulimit -c 0; exec " KEZ_AGENT " run --echo --report " + report + " " + lines;
  const std::string wrong = "wrong call createVlan 10 dot1q 120: it has dot1q 110\n";
  const auto said = testing::MatchesRegex(
      "> set switch.vlan.10. 110\n> set switch.strictness fatal\n> trace KezSimulatedSwitch\n"
      "> set evpnStatus.vlanToDot1q.10. 120\n +0.000000 KezSimulatedSwitch +1 " +
      wrong + wrong + "/usr/include/Kez/KezBaseHelper:[0-9]+: assertion failed: 0\n" );
  EXPECT_NE( std::system( ( command + " >" + file + " 2>&1" ).c_str() ), 0 );
  EXPECT_THAT( contents( file ), said );
  EXPECT_THAT( contents( report ), testing::HasSubstr( "ended by a failed assertion" ) );
  auto * const pipe = popen( ( command + " 2>&1" ).c_str(), "r" );
  std::string piped;
  for ( int c; ( c = fgetc( pipe ) ) != EOF; ) {
    piped += static_cast< char >( c );
  }
  EXPECT_NE( pclose( pipe ), 0 );
  EXPECT_THAT( piped, said );
  for ( const auto & each : { lines, report, file } ) {
    EXPECT_TRUE( std::filesystem::remove( each ) );
  }
}

// What a host does in the end may fail, in each of the ways that code has.
class FailingEnd : public Vex::FatalEnd {
public:
  const char * flushes = "";

private:
  void flush() override { VEX_ASSERT( "flushed" == nullptr ); }
  void conclude( std::string_view message ) override {
    std::cerr << "concluded with " << message << std::endl;
    throw std::runtime_error( "concluded" );
  }
};

TEST( AgentProcessTest, AnEndThatFailsIsTheEndAllTheSame ) {
  const auto fail = [] {
    FailingEnd end;
    Vex::fatalEndIs( &end );
    VEX_ASSERT( end.flushes == nullptr );
  };
  EXPECT_DEATH( fail(), "assertion failed: .*flushes.*\n.*assertion failed: .*flushed.*\n"
                        "concluded with .*flushed" );
}

TEST( AgentCommandLineTest, TellsWhatHappenedByStatusAndStreams ) {
  struct Call {
    std::vector< std::string > arguments;
    const char * input;
    int status;
    const char * out;
    const char * err;
  };
  const auto toggles = testing::TempDir() + "toggles-" + std::to_string( getpid() ) + ".json";
  std::ofstream( toggles ) << "{ \"a\": true, \"b\": false }\n";
  const Call calls[] = {
    { { "run", "-" },
      "# fine\n\nexpect no lagConfigDir.lagConfig",
      0,
      "all 1 expectations hold\n",
      "" },
    { { "run", "-", "--echo" },
      "# a story\n expect evpnLagMemberInfo.lagToPort count 0\r\nexpect acsd\nexpect no acsd\n",
      1,
      "# a story\n> expect evpnLagMemberInfo.lagToPort count 0\n> expect acsd\n> expect no acsd\n"
      "1 failed, 3 expectations\n",
      "stdin:4: expectation failed: acsd\n  expected  none\n  found     there\n" },
    { { "run", "-" },
      "expect no acsd\n\tset bridgingConfig.x\nshow acsd\n",
      2,
      "",
      "stdin:1: expectation failed: acsd\n  expected  none\n  found     there\n"
      "stdin:2:21: expected an attribute of Bridging::Config (vlanConfig), found 'x'\n" },
    { { "shell" },
      "set evpnStatus.ethernetSegmentStatus[Port-Channel1].remoteEsiLabel[Ethernet1] 2:100\n"
      "set evpnStatus.ethernetSegmentStatus[Port-Channel1].designatedForwarderTep[10] Ethernet1\n"
      "show evpnStatus.ethernetSegmentStatus\n",
      0,
      "evpnStatus.ethernetSegmentStatus (0)\n",
      "stdin:1:68: TunnelId::value < TunnelId::minValue or > TunnelId::maxValue not allowed\n"
      "stdin:2:80: TunnelId::value < TunnelId::minValue or > TunnelId::maxValue not allowed\n" },
    { { "shell" },
      "show acsd]\nshow acsd\nquit\nshow acsd\n",
      0,
      "acsd (Kez::KezCommonSmData)\n",
      "stdin:1:10: expected '.', a blank or the end of the line, found ']'\n" },
    { { "run", "--trace=KezEvpnLagSm/5", "-" },
      "set lagConfigDir.lagConfig[Port-Channel1]\ntrace off\nset scheduler.timeSlice 1\n",
      0,
      "      0.000000 KezEvpnLagSm                 5 EvpnLagSm::handleLagConfig lagIntfId "
      "Port-Channel1 add 1\n"
      "      0.000000 KezEvpnLagSm                 5 EvpnLagSm::publishEvpnLagMemberInfo "
      "deleting lagIntfId Port-Channel1\n",
      "" },
    { { "run", "--trace", "Kez/11", "-" },
      "show",
      2,
      "",
      "kez-agent: --trace: expected a level from 0 to 9, found '11'\ntry kez-agent help\n" },
    { { "run", "-", "not/there.kez" },
      "show",
      2,
      "",
      "kez-agent: cannot read not/there.kez: No such file or directory\n" },
    { { "run", "--toggles", toggles, "-" },
      "expect toggles.toggle[a] true\nexpect toggles.toggle[b] false\nexpect toggles.toggle count 2",
      0,
      "all 3 expectations hold\n",
      "" },
    { { "run", "--toggles", "not/there.json", "-" },
      "show",
      2,
      "",
      "kez-agent: cannot read not/there.json\n" },
    { { "run" },
      "show",
      2,
      "",
      "kez-agent: run: expected a file, or - for standard input\ntry kez-agent help\n" },
    { { "run", "--ring=" },
      "",
      2,
      "",
      "kez-agent: --ring: expected a value\ntry kez-agent help\n" },
    { { "run", "--clock" },
      "",
      2,
      "",
      "kez-agent: --clock: expected a value\ntry kez-agent help\n" },
  };
  for ( const auto & call : calls ) {
    std::istringstream in( call.input );
    std::ostringstream out, err;
    EXPECT_EQ( Agent::kezAgent( call.arguments, { in, false }, out, err ), call.status );
    EXPECT_EQ( out.str(), call.out );
    EXPECT_EQ( err.str(), call.err );
  }
  std::istringstream in( "show" );
  std::ofstream full( "/dev/full" );
  std::ostringstream err;
  EXPECT_EQ( Agent::kezAgent( { "run", "-" }, { in, false }, full, err ), 2 );
  EXPECT_EQ( err.str(), "kez-agent: cannot write standard output: No space left on device\n" );
}

} // namespace
