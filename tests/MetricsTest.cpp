#include "shell/Metrics.h"
#include "FileContents.h"
#include "KezEvpn/frame/StateMachine.h"
#include "Vex/Clock.h"
#include "Vex/WholeFile.h"
#include "agent/Shell.h"
#include "shell/Shell.h"

#include <gmock/gmock.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace MetricsTesting {

// One that says of what was refused since when.
class Refusing : public Kez::StateMachine {
  VEX_ENTITY( Refusing, "Test::Refusing", Kez::StateMachine )
  VEX_MAP( 1, refusal, uint64_t, Vex::String )
  VEX_SET( 2, unprogrammedKey, uint64_t )
  VEX_ATTRIBUTES( refusal, unprogrammedKey )

public:
  explicit Refusing( Ringlog::Handle & traceHandle ) : StateMachine( traceHandle ) {}
};

} // namespace MetricsTesting

namespace {

Ringlog::Handle traceHandle( "MetricsTest" );

namespace fs = std::filesystem;
using KezShell::MetricForm;
using KezShell::MetricType;
using testing::HasSubstr;

TEST( MetricsTest, TextIsThatOfTheForm ) {
  Vex::DurationHistogram latency;
  for ( const double seconds : { 0.0, 0.0, 0.001, 0.0011, 1000.0 } ) {
    latency.add( seconds );
  }
  KezShell::Metrics metrics;
  const KezShell::MetricFamily wait{ "kez_wait_seconds", MetricType::gauge, "seconds", "Wait." };
  const KezShell::MetricFamily calls{ "kez_calls", MetricType::counter, "", "Calls." };
  const KezShell::MetricFamily answers{ "kez_answer_seconds", MetricType::histogram, "seconds",
                                        "Answers." };
  metrics.put( wait, { { "of", "a \"b\\c\"\nd" } }, 0.5 );
  metrics.put( calls, {}, uint64_t( 1 ) << 60 );
  metrics.put( answers, { { "to", "x" } }, latency );
  metrics.put( wait, { { "of", "e" } }, 0.0 ); // with the others of its family
  const std::string gauge = "kez_wait_seconds{of=\"a \\\"b\\\\c\\\"\\nd\"} 0.5\n"
                            "kez_wait_seconds{of=\"e\"} 0\n";
  const std::string bucket = "kez_answer_seconds_bucket{to=\"x\",le=\"";
  const auto histogram = bucket + "0.0\"} 2\n" + bucket + "0.0001\"} 2\n" + bucket +
                         "0.001\"} 3\n" + bucket + "0.01\"} 4\n" + bucket + "0.1\"} 4\n" + bucket +
                         "1.0\"} 4\n" + bucket + "10.0\"} 4\n" + bucket + "100.0\"} 4\n" + bucket +
                         "+Inf\"} 5\nkez_answer_seconds_count{to=\"x\"} 5\n"
                         "kez_answer_seconds_sum{to=\"x\"} 1000.0021\n";
  std::ostringstream open, plain;
  metrics.write( open, MetricForm::openMetrics );
  EXPECT_EQ( open.str(), "# TYPE kez_wait_seconds gauge\n# UNIT kez_wait_seconds seconds\n"
                         "# HELP kez_wait_seconds Wait.\n" +
                             gauge +
                             "# TYPE kez_calls counter\n# HELP kez_calls Calls.\n"
                             "kez_calls_total 1152921504606846976\n"
                             "# TYPE kez_answer_seconds histogram\n"
                             "# UNIT kez_answer_seconds seconds\n"
                             "# HELP kez_answer_seconds Answers.\n" +
                             histogram + "# EOF\n" );
  metrics.write( plain, MetricForm::plainText );
  EXPECT_EQ( plain.str(), "# TYPE kez_wait_seconds gauge\n# HELP kez_wait_seconds Wait.\n" + gauge +
                              "# TYPE kez_calls_total counter\n# HELP kez_calls_total Calls.\n"
                              "kez_calls_total 1152921504606846976\n"
                              "# TYPE kez_answer_seconds histogram\n"
                              "# HELP kez_answer_seconds Answers.\n" +
                              histogram );
}

// A machine that nobody knows, in a host with figures of its own.
TEST( MetricsTest, FindsAnyMachineAndTakesWhatItsHostAdds ) {
  class Host : public KezShell::Host {
  public:
    const KezShell::Roots & roots() const override { return roots_; }
    KezShell::Roots roots_;

  private:
    void addMetrics( KezShell::Metrics & metrics ) const override {
      metrics.put( { "kez_own", MetricType::gauge, "", "Own." }, {}, 7 );
    }
  };
  Vex::Clock::virtualIs( 10 );
  Host host;
  const auto machine = host.roots_.rootIs(
      KezShell::Role::machine, "any", Vex::makePtr< MetricsTesting::Refusing >( traceHandle ) );
  const auto text = [ & ] {
    std::ostringstream out;
    metricsOf( host ).write( out, MetricForm::openMetrics );
    return out.str();
  };
  EXPECT_THAT( text(), HasSubstr( "\nkez_machine_oldest_refusal_seconds{machine=\"any\"} 0\n" ) );
  machine->unprogrammedKeyIs( 5 );
  machine->unprogrammedKeyIs( 6 );
  machine->refusalIs( 5, "2 since 3.5, last 8: no room since yesterday" );
  machine->refusalIs( 6, "1 since 9, last 9" );
  const auto all = text();
  EXPECT_THAT( all, HasSubstr( "\nkez_machine_parked{machine=\"any\"} 2\n" ) );
  EXPECT_THAT( all, HasSubstr( "\nkez_machine_refused{machine=\"any\"} 2\n" ) );
  EXPECT_THAT( all, HasSubstr( "\nkez_machine_oldest_refusal_seconds{machine=\"any\"} 6.5\n" ) );
  EXPECT_THAT( all, HasSubstr( "\nkez_own 7\n" ) );
  machine->refusalIs( 5, "3" ); // since when is not told
  EXPECT_THAT( text(), testing::Not( HasSubstr( "kez_machine_oldest" ) ) );
}

class AgentMetricsTest : public testing::Test {
protected:
  AgentMetricsTest() { Vex::Clock::virtualIs( 0 ); }

  void execute( const std::string & lines ) {
    std::istringstream in( lines );
    for ( std::string line; std::getline( in, line ); ) {
      shell_.execute( line, "test" );
    }
    EXPECT_EQ( err_.str(), "" );
  }
  std::string metrics() {
    out_.str( "" );
    shell_.execute( "metrics", "test" );
    return out_.str();
  }
  // The value of a sample; empty when there is none.
  std::string operator[]( const std::string & sample ) {
    const auto text = metrics();
    const auto at = text.find( "\n" + sample + " " );
    const auto begin = at + sample.size() + 2;
    return at == text.npos ? "" : text.substr( begin, text.find( '\n', begin ) - begin );
  }

private:
  Agent::Wiring wiring_ = Agent::wire();
  std::ostringstream out_, err_;
  Agent::Shell shell_{ wiring_, out_, err_ };
};

constexpr const char * twoPorts =
    "set evpnStatus.vlanToDot1q[10] 110\n"
    "set vlanStatusDir.vlanStatus[10].vlanPortStatus[Ethernet1] forwarding\n"
    "set vlanStatusDir.vlanStatus[10].vlanPortStatus[Ethernet2] forwarding\n";

TEST_F( AgentMetricsTest, CountsWhatHardwareRefusedAndWhatIsTriedAgain ) {
  execute( std::string( twoPorts ) + "set switch.fault[createVlanToDot1qMapping].nextCalls 3\n"
                                     "set switch.capacity[dot1qMapping] 1\nadvance 1" );
  const std::string machine = "{machine=\"evpnFloodingDot1qSm\"}";
  const std::string mapping = "{operation=\"createVlanToDot1qMapping\"";
  auto & value = *this;
  EXPECT_EQ( value[ "kez_machine_parked" + machine ], "2" );
  EXPECT_EQ( value[ "kez_machine_refused" + machine ], "2" );
  EXPECT_EQ( value[ "kez_machine_retries_total" + machine ], "0" );
  execute( "advance 5" ); // one of both is refused again, the other finds room
  EXPECT_EQ( value[ "kez_machine_parked" + machine ], "1" );
  EXPECT_EQ( value[ "kez_machine_retries_total" + machine ], "2" );
  execute( "advance 5" ); // and the former finds none
  EXPECT_EQ( value[ "kez_machine_retries_total" + machine ], "3" );
  EXPECT_EQ( value[ "kez_hardware_calls_total" + mapping + "}" ], "5" );
  EXPECT_EQ( value[ "kez_hardware_answers_total" + mapping + ",answer=\"done\"}" ], "1" );
  EXPECT_EQ( value[ "kez_hardware_answers_total" + mapping + ",answer=\"planned\"}" ], "3" );
  EXPECT_EQ( value[ "kez_hardware_answers_total" + mapping + ",answer=\"full\"}" ], "1" );
  EXPECT_EQ( value[ "kez_hardware_entries{table=\"dot1qMapping\"}" ], "1" );
  EXPECT_EQ( value[ "kez_hardware_capacity{table=\"dot1qMapping\"}" ], "1" );
  EXPECT_EQ( value[ "kez_hardware_capacity{table=\"vlan\"}" ], "" );
  EXPECT_EQ( value[ "kez_members{root=\"evpnFloodingDot1qSm\",collection=\"unprogrammedDot1q\"}" ],
             "1" );
  EXPECT_EQ(
      value[ "kez_task_runs_total{root=\"evpnFloodingDot1qSm\",task=\"reviewUnprogrammed\"}" ],
      "2" );
  EXPECT_EQ( value[ "kez_scheduler_delayed_tasks{root=\"scheduler\"}" ], "1" );
}

// Keys are parked in an output of the machine, which is a shared table.
TEST_F( AgentMetricsTest, FindsWhatIsParkedInATable ) {
  const std::string via = "evpnEthernetSegmentFilter:1";
  execute( "set switch.fault[createEsiPortMap].nextCalls 1\n"
           "set lfibStatus.evpnEthernetSegmentFilterVia[" +
           via + "] " + via +
           ",500,Ethernet1\n"
           "set lfibStatus.viaSet[1] 1," +
           via +
           "\nset lfibStatus.route[100] 100,1\n"
           "set lfibTrackingStatus.routeKeyBacklog[100]" );
  auto & value = *this;
  const std::string table = "{root=\"lfibHwStatus\",collection=\"unprogrammedRoute\"}";
  EXPECT_EQ( value[ "kez_machine_parked{machine=\"esiFilteringDecapSm\"}" ], "1" );
  EXPECT_EQ( value[ "kez_members" + table ], "1" );
  EXPECT_GE( std::stoi( value[ "kez_table_capacity" + table ] ), 1 );
}

TEST_F( AgentMetricsTest, TellsHowLongHardwareTookToAnswer ) {
  auto & value = *this;
  const auto upTo = [ & ]( const std::string & operation, const std::string & bound ) {
    return value[ "kez_hardware_answer_seconds_bucket{operation=\"" + operation + "\",le=\"" +
                  bound + "\"}" ];
  };
  execute( std::string( twoPorts ) + "advance 2" );
  EXPECT_EQ( upTo( "createVlanToDot1qMapping", "0.0" ), "2" );
  // What is carried out late is waited for, and so is what is carried out at once and answered
  // late.
  execute( "set switchAnswers.answerDelay 0.5\n"
           "set vlanStatusDir.vlanStatus[10].vlanPortStatus[Ethernet3] forwarding\nadvance 2\n"
           "set switchAnswers.shuffleSeed 7\n"
           "set vlanStatusDir.vlanStatus[10].vlanPortStatus[Ethernet4] forwarding\n"
           "set vlanStatusDir.vlanStatus[10].vlanPortStatus[Ethernet5] forwarding\n"
           "set vlanStatusDir.vlanStatus[10].vlanPortStatus[Ethernet6] forwarding\nadvance 2" );
  EXPECT_EQ( upTo( "createVlanToDot1qMapping", "0.01" ), "2" );
  EXPECT_EQ( upTo( "createVlanToDot1qMapping", "1.0" ), "6" );
  EXPECT_EQ( upTo( "createVlan", "+Inf" ), "1" );
  // A FEC and its destination each take their time, and what follows from either does not.
  execute( "set switchFloodSets.answerDelay 3\n"
           "set floodSetOutput.vlanFloodSet[10].floodSet[ff:ff:ff:ff:ff:ff].destSet[mpls(,100,5)]\n"
           "advance 10" );
  EXPECT_EQ( value[ "kez_hardware_answer_seconds_sum{operation=\"createFec\"}" ], "3" );
  EXPECT_EQ( value[ "kez_hardware_answer_seconds_sum{operation=\"createFloodSetDest\"}" ], "3" );
  EXPECT_EQ( upTo( "getHwTunnelId", "0.0" ), "1" );
  execute( "del floodSetOutput.vlanFloodSet\nadvance 10" );
  EXPECT_EQ( value[ "kez_hardware_answer_seconds_sum{operation=\"deleteFloodSetDest\"}" ], "3" );
  EXPECT_EQ( value[ "kez_hardware_answer_seconds_sum{operation=\"deleteFec\"}" ], "3" );
}

// A row of the page for each family: name of its samples, type, help.
TEST_F( AgentMetricsTest, ThePageAboutThemSaysWhatTheySay ) {
  execute( "set switch.capacity[vlan] 1" );
  std::set< std::string > rows;
  std::istringstream text( metrics() );
  std::string type;
  for ( std::string line; std::getline( text, line ); ) {
    std::istringstream words( line );
    std::string mark, what, name;
    words >> mark >> what >> name;
    if ( what == "TYPE" ) {
      words >> type;
    } else if ( what == "HELP" ) {
      std::string help;
      std::getline( words >> std::ws, help );
      rows.insert( "| `" + name + ( type == "counter" ? "_total" : "" ) + "` | " + type + " | " +
                   help + " |" );
    }
  }
  std::set< std::string > documented;
  std::istringstream page( contents( KEZ_DOCS "/metrics.md" ) );
  for ( std::string line; std::getline( page, line ); ) {
    if ( line.starts_with( "| `kez_" ) ) {
      // The labels, which are in the third column, are the reader's.
      const auto labels = line.find( " | ", line.find( " | " ) + 3 ) + 3;
      documented.insert( line.erase( labels, line.find( " | ", labels - 1 ) + 3 - labels ) );
    }
  }
  EXPECT_EQ( documented, rows );
}

class WholeFileTest : public testing::Test {
protected:
  WholeFileTest() { fs::create_directory( directory_ ); }
  ~WholeFileTest() override { fs::remove_all( directory_ ); }

  void put( const std::string & text ) const {
    Vex::WholeFile file( path_ );
    file.write( text );
    file.commit();
  }
  size_t filesThere() const {
    return static_cast< size_t >(
        std::distance( fs::directory_iterator( directory_ ), fs::directory_iterator() ) );
  }

  const std::string directory_ = testing::TempDir() + "whole-" + std::to_string( getpid() );
  const std::string path_ = directory_ + "/file";
};

TEST_F( WholeFileTest, NobodyEverReadsAHalf ) {
  const std::string texts[] = { std::string( 200'000, 'a' ), std::string( 70'000, 'b' ) };
  put( texts[ 0 ] );
  std::atomic< bool > ended = false;
  std::set< std::string > read;
  std::thread reader( [ & ] {
    while ( !ended ) {
      read.insert( contents( path_ ) );
    }
  } );
  for ( int i = 0; i < 300; ++i ) {
    put( texts[ i % 2 ] );
  }
  ended = true;
  reader.join();
  for ( const auto & text : read ) {
    EXPECT_TRUE( text == texts[ 0 ] || text == texts[ 1 ] ) << text.size() << " bytes";
  }
  EXPECT_EQ( filesThere(), 1U );
}

TEST_F( WholeFileTest, WhatStandsStaysUntilAllIsWritten ) {
  put( "old" );
  {
    Vex::WholeFile file( path_ );
    file.write( "half" );
    EXPECT_EQ( contents( path_ ), "old" );
  }
  EXPECT_EQ( contents( path_ ), "old" );
  EXPECT_EQ( filesThere(), 1U );
}

TEST_F( WholeFileTest, LeavesAloneWhatIsNoFile ) {
  ASSERT_EQ( mkfifo( path_.c_str(), 0600 ), 0 );
  EXPECT_THAT( [ & ] { put( "other" ); },
               testing::ThrowsMessage< std::runtime_error >( "cannot write " + path_ +
                                                             ": it is there and is no file" ) );
  EXPECT_TRUE( fs::is_fifo( path_ ) );
  EXPECT_THAT( [ & ] { Vex::WholeFile( directory_ + "/none/file" ); },
               testing::ThrowsMessage< std::runtime_error >(
                   "cannot make " + directory_ + "/none/file." + std::to_string( getpid() ) +
                   ".0: No such file or directory" ) );
}

} // namespace
