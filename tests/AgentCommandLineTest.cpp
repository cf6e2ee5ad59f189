#include "FailingNew.h"
#include "FileContents.h"
#include "KezEvpn/KezEvpn.h"
#include "Mpls/Lfib.h"
#include "RookTestTypes.h"
#include "Vex/FatalEnd.h"
#include "agent/CommandLine.h"
#include "agent/Shell.h"
#include "client/Terminal.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <unistd.h>

namespace {

TEST( TerminalTest, LongLinesGoOnBelowTheirLastColumn ) {
  const struct {
    const char * line;
    size_t width;
    const char * expected;
  } cases[] = {
    { "  machine  says one thing; says another", 22,
      "  machine  says one\n           thing; says\n           another" },
    { "  machine  says one thing; says another", 0, "  machine  says one thing; says another" },
    { "machine that says one thing", 14, "machine that\n    says one\n    thing" },
    { "  a column that is far to the right  word by word", 30,
      "  a column that is far to the\n    right  word by word" },
    { "  anAddressThatIsLonger thanAllOfThis", 10, "  anAddressThatIsLonger\n    thanAllOfThis" },
    { "exactly ten", 11, "exactly ten" },
    { "{\"path\":\"switch\", \"of\":2}", 10, "{\"path\":\"switch\", \"of\":2}" },
  };
  for ( const auto & [ line, width, expected ] : cases ) {
    EXPECT_EQ( Agent::wrapped( line, width ), expected );
  }
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
  EXPECT_THAT( contents( report ), testing::HasSubstr( wrong.substr( 0, wrong.size() - 1 ) ) );
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
  const auto failWithoutMemory = [] {
    const FailingNew none( 0 );
    const bool memory = false;
    VEX_ASSERT( memory );
  };
  EXPECT_DEATH( failWithoutMemory(), "AgentCommandLineTest:[0-9]+: assertion failed: memory" );
}

// Input whose lines are made as they are read; the end is an empty one.
class MadeInput : public std::streambuf {
public:
  explicit MadeInput( std::function< std::string() > next ) : next_( std::move( next ) ) {}

private:
  int underflow() override {
    line_ = next_();
    setg( line_.data(), line_.data(), line_.data() + line_.size() );
    return line_.empty() ? traits_type::eof() : traits_type::to_int_type( line_[ 0 ] );
  }
  const std::function< std::string() > next_;
  std::string line_;
};

// For want of room, over a damaged table, without the file of another; the session goes on.
TEST( AgentCommandLineTest, LinesThatFailSayWhereAndLeaveAnAgentOrItsInputs ) {
  const RookTest::MountDirectory directory;
  const auto tables = directory.path( "" ), page = tables + "page.html";
  const auto route = tables + "/lfibStatus/route";
  const auto mapping = tables + "/tunnelIdHwTunnelId/tunnelIdToHwTunnelId";
  const auto spoil = [ & ] {
    std::filesystem::remove( mapping );
    std::ofstream( mapping ) << "a text of somebody's";
  };
  const Rook::Format::Layout layout( sizeof( Mpls::LfibRoute ),
                                     static_cast< uint64_t >( getpagesize() ) );
  const size_t version = layout.level( 0 ).slots + 4;
  std::optional< RookTest::Limit > longest;
  char check = 0;
  const std::pair< std::function< void() >, std::string > steps[] = {
    { [ & ] { longest.emplace( RLIMIT_FSIZE, Rook::Format::headSize ); },
      "set lfibStatus.route[100] 100,1" },
    { [ & ] { longest.reset(); }, "set lfibStatus.route[100] 100,1" },
    { [ & ] {
       check = contents( route )[ version ];
       RookTest::poke( route, version, static_cast< char >( ~check ) );
     },
      "expect lfibStatus.route[100]" },
    { [ & ] {
       RookTest::poke( route, version, check );
       spoil();
     },
      "restart" },
    { [] {}, "expect lfibStatus.route count 1" },
    { [] {}, "expect evpnLagMemberInfo" },
    { [ & ] { std::filesystem::remove( mapping ); }, "restart" },
    { [] {}, "expect evpnLagMemberInfo" },
    { spoil, "restart" },
    { [] {}, "send Ethernet1 to ff:ff:ff:ff:ff:ff" },
  };
  size_t at = 0;
  MadeInput lines( [ & ] {
    if ( at == std::size( steps ) ) {
      return std::string();
    }
    steps[ at ].first();
    return steps[ at++ ].second + "\n";
  } );
  std::istream in( &lines );
  std::ostringstream out, err;
  EXPECT_EQ(
      Agent::kezAgent( { "shell", "--report", page, "--tables", tables }, { in, false }, out, err ),
      0 );
  const auto spoilt = ": " + mapping + " is no table: expected it to begin with ROOKTBL\n";
  EXPECT_EQ(
      err.str(),
      "stdin:1: no room for " + route + ": File too large\nstdin:3: " + route +
          ": the record in slot 0 is damaged\nstdin:4" + spoilt +
          "stdin:6:8: expected a root (evpnMplsConfig, evpnStatus, lagConfigDir; show lists all 12), found "
          "'evpnLagMemberInfo'\nstdin:9" +
          spoilt + "stdin:10:1: there is no agent, which restart makes\n" );
  EXPECT_THAT( contents( page ), testing::HasSubstr( "stdin:9: " ) );
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
  const auto journal = testing::TempDir() + "journal-" + std::to_string( getpid() );
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
      "kez-agent: cannot read not/there.json: No such file or directory\n" },
    { { "run", "--journal", journal, "-" },
      "inputs complete\nset evpnStatus.vlanToDot1q[10] 110\n"
      "set evpnStatus.evpnVlanFloodStatus[10].floodFilter[swp3]\n"
      "expect switch.callCount count 2\n",
      0,
      "all 1 expectations hold\n",
      "" },
    // What nobody asks for stays until the inputs are complete, and hardware is empty after a
    // restart, for the next process too.
    { { "run", "--journal", journal, "-" },
      "set evpnStatus.vlanToDot1q[10] 110\nadvance 10\nexpect switch.nonDfPort[swp3,swp3,10]\n"
      "expect no switch.callCount\ninputs completely\n",
      2,
      "",
      "stdin:5:8: expected complete, found 'completely'\n" },
    { { "run", "--journal", journal, "-" },
      "set evpnStatus.vlanToDot1q[10] 110\ninputs complete\nadvance 1\n"
      "expect no switch.nonDfPort\nexpect switch.callCount count 1\n"
      "expect switch.callCount[deleteNonDfPort] 1\nexpect takeover.kept 1\n"
      "del evpnStatus.vlanToDot1q\nset switch.vlan[20] 120\nrestart\nexpect no switch.vlan\n",
      0,
      "all 5 expectations hold\n",
      "" },
    { { "run", "--journal", journal, "-" },
      "set evpnStatus.vlanToDot1q[10] 110\ndel evpnStatus.vlanToDot1q\n"
      "expect no switch.vlan\nexpect switch.callCount count 2\n",
      0,
      "all 2 expectations hold\n",
      "" },
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
    { { "run", "--echo=1" },
      "",
      2,
      "",
      "kez-agent: --echo: expected no value\ntry kez-agent help\n" },
    { { "attach", "--", "show", "--version" },
      "",
      2,
      "",
      "kez-agent: cannot connect to /run/kez-agent/control: No such file or directory\n" },
    { { "replay", "x", "--version" }, "", 0, "kez-agent 1.0.0\n", "" },
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
  EXPECT_TRUE( std::filesystem::remove( toggles ) );
  std::filesystem::remove_all( journal );
}

} // namespace
