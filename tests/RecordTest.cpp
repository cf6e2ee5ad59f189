#include "FileContents.h"
#include "Ringlog/TextTrace.h"
#include "Vex/Clock.h"
#include "agent/CommandLine.h"
#include "record/Recorder.h"

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using testing::HasSubstr;
using testing::StartsWith;

struct Result {
  int status;
  std::string out;
  std::string err;
};

class RecordTest : public testing::Test {
protected:
  RecordTest() { std::filesystem::create_directory( directory ); }
  ~RecordTest() override {
    Ringlog::traceIs( "" );
    std::filesystem::remove_all( directory );
  }

  static Result agent( const std::vector< std::string > & arguments,
                       const std::string & lines = "" ) {
    Ringlog::traceIs( "" );
    std::istringstream in( lines );
    std::ostringstream out, err;
    const int status = Agent::kezAgent( arguments, { in, false }, out, err );
    return { status, out.str(), err.str() };
  }
  std::string contents() const { return ::contents( file ); }
  // The record of a run over the lines.
  std::string record( const std::string & lines, const std::string & clock = "virtual" ) {
    std::filesystem::remove( file );
    run = agent( { "run", "--clock", clock, "--record", file, "-" }, lines );
    EXPECT_EQ( run.err, "" );
    return contents();
  }
  Result replay( const std::string & text ) {
    std::ofstream( file, std::ios::trunc ) << text;
    return agent( { "replay", file } );
  }
  // What a replay of the run prints, whose last line is its own.
  void expectSame( const Result & replayed ) {
    EXPECT_EQ( replayed.err, "" );
    EXPECT_EQ( replayed.status, run.status );
    const auto own = replayed.out.find( "replayed as recorded: " );
    ASSERT_NE( own, std::string::npos );
    EXPECT_EQ( replayed.out.substr( 0, own ), run.out );
  }

  const std::string directory = testing::TempDir() + "record-test-" + std::to_string( getpid() );
  const std::string file = directory + "/run.kez";
  Result run;
};

// Every kind of answer, delayed ones and shuffled ones too, over the agent's restart.
std::string story() {
  std::string lines = "trace Kez*/0-9\n"
                      "set switch.capacity[nonDfPort] 1\n"
                      "set switch.capacity[hwTunnelIdTypeDefault] 3\n"
                      "set switch.fault[createVlan].nextCalls 2\n"
                      "set switch.fault[createVlanToDot1qMapping].everyNth 3\n"
                      "set switch.fault[createFloodSetDest].probability 0.5\n"
                      "set switch.fault[createFec].untilTime 2\n"
                      "set switch.fault[createEsiPortMap].answer tableFull\n"
                      "set switchFloodSets.shuffleSeed 3\n"
                      "set switchFloodSets.answerDelay 0.5\n"
                      "set evpnStatus.vlanToDot1q[10] 110\n";
  for ( const auto n : { "1", "2", "3", "4", "5" } ) {
    const std::string number( n );
    lines += "set vlanStatusDir.vlanStatus[10].vlanPortStatus[Ethernet" + number +
             "] forwarding\n"
             "set evpnStatus.evpnVlanFloodStatus[10].floodFilter[Ethernet" +
             number +
             "]\n"
             "set floodSetOutput.vlanFloodSet[10].floodSet[ff:ff:ff:ff:ff:ff].destSet[mpls(,100," +
             number + ")]\n";
  }
  for ( const auto * table : { "vlan", "dot1qMapping", "nonDfPort", "fec", "floodSetDest" } ) {
    lines += "advance 6\nshow switch." + std::string( table ) + "\n";
    lines += table == std::string( "nonDfPort" ) ? "restart\n" : "";
    lines += "call evpnFloodingDot1qSm.reviewUnprogrammed.scheduleNow\n";
  }
  return lines + "show switch.callCount\nshow switch.faultCount\nshow switch.fullCount\n"
                 "expect no switch.refusalCount\n";
}

TEST_F( RecordTest, ReplaysToTheSameTraceAndTablesWithTheRecordsAnswers ) {
  const auto text = record( story() );
  EXPECT_THAT( text, StartsWith( "#= record 1, virtual clock at 0\ntrace" ) );
  EXPECT_THAT( text, HasSubstr( "#= getHwTunnelId hwTunnelIdTypeDefault -> done 0:3\n" ) );
  EXPECT_THAT( text, HasSubstr( "#= getHwTunnelId hwTunnelIdTypeDefault -> no room\n" ) );
  EXPECT_THAT( text, HasSubstr( " -> notProgrammed as planned\n" ) );
  expectSame( replay( text ) );
  // Nothing but the record tells the switch now what to refuse.
  const auto bare =
      std::regex_replace( text, std::regex( "set switch\\.(capacity|fault).*\n" ), "" );
  ASSERT_LT( bare.size(), text.size() );
  expectSame( replay( bare ) );
  // With its own answers the switch is another one, and what it is recorded with is a new record.
  const auto again = record( bare );
  EXPECT_NE( again, text );
  EXPECT_EQ( again.find( "planned" ), std::string::npos );
}

TEST_F( RecordTest, StopsBeforeALine ) {
  const auto page = directory + "/page.html";
  record( "set evpnStatus.vlanToDot1q[10] 110\nadvance 5\nset evpnStatus.vlanToDot1q[20] 120\n"
          "advance 5\n" );
  const auto text = contents();
  const auto before = text.substr( 0, text.find( "set evpnStatus.vlanToDot1q[20]" ) );
  const auto line = std::to_string( std::count( before.begin(), before.end(), '\n' ) + 1 );
  const auto stopped = agent( { "replay", "--until", line, "--report", page, file } );
  EXPECT_EQ( stopped.err, "" );
  EXPECT_EQ( stopped.status, 0 );
  EXPECT_EQ( stopped.out, "stopped before line " + line + "\n" );
  EXPECT_THAT( ::contents( page ), HasSubstr( "vlanToDot1q[10]" ) );
  EXPECT_THAT( ::contents( page ), Not( HasSubstr( "vlanToDot1q[20]" ) ) );
}

TEST_F( RecordTest, SteadyRunIsReplayedTurnByTurn ) {
  std::string lines = "trace Kez*/0-9\n"
                      "set scheduler.timeSlice 0.000001\n"
                      "set evpnFloodingDot1qSm.defaultIntfVlanDelay 0.1\n"
                      "set evpnFloodingDot1qSm.defaultUnprogrammedRetryInterval 0.03\n"
                      "set switch.fault[createVlanToDot1qMapping].everyNth 3\n"
                      "set switchFloodSets.answerDelay 0.01\n"
                      "set evpnStatus.vlanToDot1q[10] 110\n"
                      "set floodSetOutput.vlanFloodSet[10].floodSet[ff:ff:ff:ff:ff:ff]."
                      "destSet[mpls(,100,5)]\n";
  for ( int i = 1; i <= 60; ++i ) {
    lines += "set vlanStatusDir.vlanStatus[10].vlanPortStatus[Ethernet" + std::to_string( i ) +
             "] forwarding\n";
  }
  const auto text =
      record( lines + "advance 0.3\nrestart\nshow switch\nadvance 0.1\nshow\n", "steady" );
  EXPECT_THAT( text, HasSubstr( "#= turn\n" ) );
  EXPECT_THAT( text, testing::ContainsRegex( "#= yield 1 [0-9]+ reviewIntfVlan\n" ) );
  expectSame( replay( text ) );
}

TEST_F( RecordTest, RecordThatBeginsLateHasTheSwitchAnswerUntilThen ) {
  auto lines = story();
  lines.insert( lines.find( "advance" ), "record " + file + "\n" );
  std::filesystem::remove( file );
  run = agent( { "run", "-" }, lines );
  EXPECT_THAT( contents(), StartsWith( "trace" ) );
  EXPECT_THAT( contents(), HasSubstr( "#= record 1, virtual clock at 0\nadvance 6\n" ) );
  expectSame( replay( contents() ) );
  EXPECT_EQ( agent( { "shell", "--clock", "steady" }, "record " + file + "2\n" ).err,
             "stdin:1:8: expected the option --record: a session on the steady clock is recorded "
             "from its beginning\n" );
}

TEST_F( RecordTest, WhatDiffersOrIsNoRecordIsToldWithItsPlace ) {
  const auto text = record( "set evpnStatus.evpnVlanFloodStatus[10].floodFilter[Ethernet1]\n"
                            "set evpnStatus.evpnVlanFloodStatus[10].floodFilter[Ethernet2]\n"
                            "advance 5\n"
                            "del evpnStatus.evpnVlanFloodStatus\n" );
  const std::string first = "#= createNonDfPort Ethernet1,Ethernet1,10\n";
  const std::string second = "#= createNonDfPort Ethernet2,Ethernet2,10\n";
  const std::string differs = ": the replay differs from the record\n  recorded  ";
  struct Case {
    std::string find;
    std::string put;
    int status;
    std::string err; // after the file's name
  };
  const Case cases[] = {
    { second, "#= createNonDfPort Ethernet2,Ethernet2,11\n", 1,
      ":5" + differs +
          "createNonDfPort Ethernet2,Ethernet2,11 -> done, at 0 s\n"
          "  replayed  createNonDfPort Ethernet2,Ethernet2,10 -> done, at 0 s\n" },
    { first, "", 1,
      ":3" + differs +
          "the line set evpnStatus.evpnVlanFloodStatus[10].floodFilter[Ethernet2]\n"
          "  replayed  createNonDfPort Ethernet1,Ethernet1,10 -> done, at 0 s\n" },
    { first, "#= 2 x " + first.substr( 3 ), 1,
      ":3" + differs +
          "createNonDfPort Ethernet1,Ethernet1,10 -> done, at 0 s\n"
          "  replayed  the line set evpnStatus.evpnVlanFloodStatus[10].floodFilter[Ethernet2]\n" },
    { first, "#= createNonDfPort Ethernet1,Ethernet1,10 -> refused, wrong: it is there\n", 1,
      ":3" + differs +
          "createNonDfPort Ethernet1,Ethernet1,10 -> refused, wrong: it is there, at 0 s\n"
          "  replayed  createNonDfPort Ethernet1,Ethernet1,10 -> done, at 0 s\n" },
    { "#= time 5\n", "#= time 6\n", 1,
      ":9" + differs +
          "deleteNonDfPort Ethernet1,Ethernet1,10 -> done, at 6 s\n"
          "  replayed  deleteNonDfPort Ethernet1,Ethernet1,10 -> done, at 5 s\n" },
    { "#= deleteNonDfPort Ethernet2,Ethernet2,10\n", "", 1,
      ":9" + differs +
          "nothing more\n  replayed  deleteNonDfPort Ethernet2,Ethernet2,10 -> done, at 5 s\n" },
    { "advance 5\n", "advance five\n", 2,
      ":6:9: expected seconds, 0 to 1000000000, found 'five'\n" },
    { first, "#= createNonDfPort Ethernet1,Ethernet1,10 -> soon\n", 2,
      ":3:46: expected one of notProgrammed invalidHwId tableFull (or its number), found 'soon'\n" },
    { first, "#= createNonDfProt Ethernet1,Ethernet1,10\n", 2,
      ":3:4: expected time, turn, yield or an operation of the switch, found 'createNonDfProt'\n" },
    { "time 5", "time early", 2, ":8:9: expected a number, found 'early'\n" },
    { "#= time", "#= 0 x time", 2, ":8:4: expected a count of 1 or more, found '0'\n" },
    { "del evpnStatus", "#= record 1, virtual clock at 0\ndel evpnStatus", 2,
      ":7:1: expected one start of a record, found another\n" },
    { "#= record 1, virtual clock at 0\n", "", 2,
      ":2:1: expected the start of a record before its entries\n" },
    { text, "expect acsd\n", 2,
      ":1:1: expected a record, which has a line '#= record 1, virtual clock at ...'; run plays "
      "lines alone\n" },
    { text, text.substr( 0, text.size() - 1 ), 2,
      ":10:42: expected the end of the line, found nothing\n" },
  };
  for ( const auto & each : cases ) {
    auto damaged = text;
    ASSERT_NE( damaged.find( each.find ), std::string::npos ) << each.find;
    damaged.replace( damaged.find( each.find ), each.find.size(), each.put );
    const auto result = replay( damaged );
    EXPECT_EQ( result.status, each.status ) << each.put;
    EXPECT_THAT( result.err, testing::EndsWith( file + each.err ) ) << each.put;
  }
}

TEST_F( RecordTest, FileHoldsWhatWasAcceptedAndCountsWhatRecurs ) {
  const std::string line = "switch.lastRefusal " + std::string( 300'000, 'e' ) + "\n";
  std::filesystem::remove( file );
  agent( { "shell", "--record", file }, "set " + line + "del " + line + "expect acsd\n" );
  EXPECT_TRUE( contents() == "#= record 1, virtual clock at 0\nset " + line + "expect acsd\n" )
      << "a bad line, which is longer than what is written at once, was not taken back";

  std::filesystem::remove( file );
  {
    Vex::Clock::virtualIs( 0 );
    Agent::Recorder recorder;
    recorder.fileIs( file );
    Switch::SwitchCall call{ Switch::Operation::deleteVlan, "10", {} };
    for ( int i = 0; i < 12; ++i ) {
      recorder.hear( call );
    }
    recorder.lineIs( "advance 1" );
    recorder.hear( call );
  }
  EXPECT_EQ( contents(), "#= record 1, virtual clock at 0\n#= 12 x deleteVlan 10\nadvance 1\n"
                         "#= deleteVlan 10\n" );
}

TEST_F( RecordTest, LinesOfAnEndedRecordStandInTheNext ) {
  const std::string second = directory + "/second.kez";
  const std::string third = directory + "/third.kez";
  const std::string filter = "set evpnStatus.evpnVlanFloodStatus[10].floodFilter[Ethernet1]\n";
  const std::string call = "#= createNonDfPort Ethernet1,Ethernet1,10\n";
  const std::string start = "#= record 1, virtual clock at 0\n";
  agent( { "shell" }, "show\nrecord " + file + "\n" + filter + "record " + second +
                          "\n# once more\nrecord off\nshow acl\nrecord " + third + "\nhelp\n" );
  const auto textOf = [ & ]( const std::string & name ) {
    std::filesystem::rename( name, file );
    return contents();
  };
  EXPECT_EQ( contents(), "show\n" + start + filter + call );
  EXPECT_EQ( textOf( second ), "show\n" + filter + start + "# once more\n" );
  EXPECT_EQ( textOf( third ), "show\n" + filter + "# once more\n" + start + "help\n" );
}

TEST_F( RecordTest, FileThatCannotGrowEndsWithALineAndTheSessionGoesOn ) {
  rlimit before{};
  ASSERT_EQ( getrlimit( RLIMIT_FSIZE, &before ), 0 );
  auto * const handler = std::signal( SIGXFSZ, SIG_IGN );
  const rlimit room{ 600'000, before.rlim_max };
  ASSERT_EQ( setrlimit( RLIMIT_FSIZE, &room ), 0 );
  const std::string comment = "#" + std::string( 149'998, 'c' ) + "\n";
  const std::string next = directory + "/next.kez";
  const auto result = agent( { "shell" }, "record " + file + "\n" + comment + comment + comment +
                                              comment + "help\nrecord " + next + "\nshow\n" );
  setrlimit( RLIMIT_FSIZE, &before );
  std::signal( SIGXFSZ, handler );
  EXPECT_EQ( result.err, "stdin:5:1: cannot write " + file +
                             ": File too large; the record ends before this line\n" );
  const std::string start = "#= record 1, virtual clock at 0\n";
  EXPECT_TRUE( contents() == start + comment + comment + comment );
  std::filesystem::rename( next, file );
  EXPECT_TRUE( contents() == comment + comment + comment + "help\n" + start + "show\n" );
}

} // namespace
