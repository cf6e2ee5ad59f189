#include "Ringlog/Ring.h"
#include "Ringlog/RingReader.h"
#include "Ringlog/TextTrace.h"
#include "Ringlog/Trace.h"
#include "TraceCapture.h"
#include "Vex/Clock.h"
#include "Vex/Value.h"
#include "inspect/Inspect.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace RingTestTypes {

struct Pair {
  uint32_t tunnelId = 0;
  bool add = false;
  VEX_VALUE( Pair, "Test::Pair", tunnelId, add )
};

} // namespace RingTestTypes

namespace {

using Ringlog::smallestRing;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using Texts = std::vector< std::string >;

Ringlog::Handle traceHandle( "RingTest" );

// A value whose text form traces.
struct Tracing {};
void appendText( Vex::TextBuffer & out, Tracing ) {
  TRACE( 2, "inner" );
  out.append( "chatty" );
}

void traceFor( const Ringlog::Handle & traceHandle, int number ) {
  TRACE( 7, "number ", number );
}

class RingTest : public testing::Test {
protected:
  ~RingTest() override {
    Ringlog::ringDel();
    Vex::Clock::steadyIs();
    std::remove( path_.c_str() );
  }

  // The records that a reader finds anew, and the problems it met so far.
  Texts read( Ringlog::RingReader & reader ) {
    Texts texts;
    reader.read( [ & ]( const Ringlog::RingRecord & record ) {
      texts.push_back( std::string( record.handle ) + " " + std::to_string( record.level ) + " " +
                       std::string( record.text ) );
      lastTime_ = record.time;
      lastIsVirtual_ = record.isVirtual;
      lastPlace_ = std::string( record.file ) + ":" + std::to_string( record.line );
    } );
    problems_ = reader.problems();
    return texts;
  }
  Texts read() {
    Ringlog::RingReader reader( path_ );
    return read( reader );
  }
  std::string openError() {
    try {
      Ringlog::RingReader reader( path_ );
    } catch ( const std::runtime_error & error ) {
      return error.what();
    }
    return "";
  }
  std::string mountError( size_t bytes = smallestRing ) {
    try {
      Ringlog::ringIs( path_, bytes );
    } catch ( const std::runtime_error & error ) {
      return error.what();
    }
    return "";
  }
  std::string contents() {
    std::ifstream file( path_ );
    return { std::istreambuf_iterator< char >( file ), {} };
  }
  void contentsAre( std::string_view contents ) { std::ofstream( path_ ) << contents; }

  const std::string path_ = testing::TempDir() + "RingTest." + std::to_string( getpid() ) + ".ring";
  Texts problems_;
  // Of the last record that was read.
  double lastTime_ = 0;
  bool lastIsVirtual_ = false;
  std::string lastPlace_;
};

TEST_F( RingTest, RecordsReadAsTheStatementsSay ) {
  Ringlog::ringIs( path_, smallestRing );
  Vex::Clock::virtualIs( 3.25 );
  const std::string name = "Ethernet12/3";
  const std::string longName( 600, 'x' );
  const char * text = "";
  TRACE( 5, " b ", true, false, " n ", -3, uint8_t( 200 ), " ", UINT64_MAX, " ", INT64_MIN, " d ",
         0.25, " s ", name, text, name.substr( 0, 8 ), std::string_view( "seven77" ) );
  TRACE( 0, RingTestTypes::Pair( 7, true ), Ringlog::either( " id", " id:" ), " ", Tracing{} );
  TRACE( 1, longName );
  const Ringlog::Handle other( "RingTestOther" );
  for ( int number = 1; number <= 2; ++number ) {
    traceFor( traceHandle, number );
    traceFor( other, number );
  }
  const auto many = [ & ] {
    TRACE( 9, "many ", longName, longName, longName, longName, longName, longName, longName,
           longName, longName, longName );
  };
  many();
  EXPECT_THAT(
      read(),
      ElementsAre( "RingTest 5  b 10 n -3200 18446744073709551615 -9223372036854775808 d "
                   "0.25 s Ethernet12/3Ethernetseven77",
                   "RingTest 2 inner",
                   "RingTest 0 Value('Test::Pair', ** {'tunnelId': 7, 'add': 1}) id: chatty",
                   "RingTest 1 " + longName.substr( 0, 512 ) + "...", "RingTest 7 number 1",
                   "RingTestOther 7 number 1", "RingTest 7 number 2", "RingTestOther 7 number 2",
                   "RingTest 9 many " + longName.substr( 0, 507 ) + "..." ) );
  EXPECT_EQ( lastTime_, 3.25 );
  EXPECT_TRUE( lastIsVirtual_ );
  EXPECT_THAT( problems_, IsEmpty() );

  Vex::Clock::steadyIs();
  const double before = Vex::Clock::now();
  TRACE( 3, "steady" );
  const double after = Vex::Clock::now();
  read();
  EXPECT_GT( lastTime_, before - 1e-4 );
  EXPECT_LT( lastTime_, after + 1e-4 );
}

TEST_F( RingTest, RingAndTextLevelsAreEachTheirOwn ) {
  TraceCapture text( "RingTest/5" );
  const auto trace = [] {
    for ( int i = 0; i < 2; ++i ) {
      TRACE( 5, Ringlog::either( "text", "ring" ) );
      TRACE( 6, "six" );
    }
  };
  Ringlog::ringIs( path_, smallestRing );
  trace();
  Ringlog::traceIs( "RingTest/6" );
  trace();
  EXPECT_EQ( read(), ( Texts{ "RingTest 5 ring", "RingTest 6 six", "RingTest 5 ring",
                              "RingTest 6 six", "RingTest 5 ring", "RingTest 6 six",
                              "RingTest 5 ring", "RingTest 6 six" } ) );
  Ringlog::ringDel();
  EXPECT_FALSE( traceHandle.isOn( 5 ) );
  trace();
  EXPECT_EQ( read().size(), 8u );
  EXPECT_EQ( text.take(), ( Texts{ "5 text", "5 text", "6 six", "6 six", "6 six", "6 six" } ) );
}

TEST_F( RingTest, LatestRecordsStayAndAFollowerSeesEachOnce ) {
  constexpr int count = 20000;
  Ringlog::ringIs( path_, smallestRing );
  Ringlog::RingReader follower( path_ );
  int followed = 0;
  for ( int i = 0; i < count; ++i ) {
    traceFor( traceHandle, i );
    if ( i % 100 == 0 ) {
      for ( const auto & text : read( follower ) ) {
        EXPECT_EQ( text, "RingTest 7 number " + std::to_string( followed++ ) );
      }
    }
  }
  EXPECT_EQ( followed, count - 99 );
  const auto texts = read();
  ASSERT_GT( texts.size(), 96 * 1024 / 40u );
  for ( size_t i = 0; i < texts.size(); ++i ) {
    EXPECT_EQ( texts[ i ], "RingTest 7 number " + std::to_string( count - texts.size() + i ) );
  }
  Ringlog::ringIs( path_, smallestRing );
  EXPECT_TRUE( follower.isReplaced() );
  EXPECT_THAT( read(), IsEmpty() );
}

TEST_F( RingTest, ThreadsWriteAtOnceAndLeaveTheirBlocksToLaterOnes ) {
  Ringlog::ringIs( path_, 1 << 20 );
  const auto run = []( int number ) {
    for ( int i = 0; i < 3000; ++i ) {
      TRACE( 4, "thread ", number, " ", i );
    }
  };
  std::vector< std::thread > threads;
  for ( int number = 0; number < 4; ++number ) {
    threads.emplace_back( run, number );
  }
  for ( auto & thread : threads ) {
    thread.join();
  }
  for ( int i = 0; i < 200; ++i ) {
    std::thread( [ i ] { traceFor( traceHandle, i ); } ).join();
  }
  const auto texts = read();
  EXPECT_EQ( texts.size(), 4 * 3000 + 200u );
  EXPECT_THAT( texts, testing::IsSupersetOf( { "RingTest 4 thread 0 0", "RingTest 4 thread 3 2999",
                                               "RingTest 7 number 0" } ) );
  EXPECT_THAT( problems_, IsEmpty() );
}

TEST_F( RingTest, RingsComeAndGoWhileThreadsTrace ) {
  std::atomic< bool > over{ false };
  const auto run = [ & ]( int number ) {
    for ( int i = 0; !over; ++i ) {
      TRACE( 4, "thread ", number, " ", i );
      traceFor( traceHandle, i );
    }
  };
  TraceCapture text( "" );
  std::jthread one( run, 1 );
  std::jthread other( run, 2 );
  for ( int i = 0; i < 30; ++i ) {
    ASSERT_EQ( mountError(), "" );
    for ( int wait = 0; wait < 10000 && read().empty(); ++wait ) {
      usleep( 500 );
    }
    if ( i % 2 == 0 ) {
      Ringlog::ringDel();
    }
    EXPECT_THAT( read(), testing::Not( IsEmpty() ) );
    EXPECT_THAT( problems_, IsEmpty() );
  }
  over = true;
}

template< int number > void traceOwnSite() {
  TRACE( 6, "a site of its own with a text that takes its room in the table of call sites ",
         number );
}
template< int... numbers > void traceManySites( std::integer_sequence< int, numbers... > ) {
  ( traceOwnSite< numbers >(), ... );
}

TEST_F( RingTest, CallSitesBeyondTheTableAreWrittenAsText ) {
  Ringlog::ringIs( path_, smallestRing );
  traceManySites( std::make_integer_sequence< int, 160 >() );
  const auto texts = read();
  ASSERT_EQ( texts.size(), 160u );
  for ( int i = 0; i < 160; ++i ) {
    EXPECT_EQ( texts[ i ], "RingTest 6 a site of its own with a text that takes its room in the "
                           "table of call sites " +
                               std::to_string( i ) );
  }
  EXPECT_THAT( lastPlace_, testing::MatchesRegex( ".*RingTest.cpp:[0-9]+" ) );
}

// The child tells in memory that it shares how far it is: a record before it is begun and after.
TEST_F( RingTest, KilledWriterLeavesWholeRecordsAndAllItCommitted ) {
  using Count = std::atomic< int64_t >;
  auto * done = static_cast< Count * >(
      mmap( nullptr, sizeof( Count ), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0 ) );
  std::mt19937 random( 1 );
  for ( int round = 0; round < 40; ++round ) {
    done->store( 0 );
    const auto child = fork();
    if ( child == 0 ) {
      Ringlog::ringIs( path_, smallestRing );
      for ( int64_t i = 0;; ++i ) {
        TRACE( 8, "count ", i, " of ", std::string_view( "abcdefghijklmnop", i % 17 ), " ", -i );
        done->store( i + 1 );
      }
    }
    while ( done->load() == 0 ) {
      usleep( 100 );
    }
    usleep( random() % 3000 );
    Ringlog::RingReader live( path_ );
    read( live );
    EXPECT_THAT( problems_, IsEmpty() );
    EXPECT_EQ( mountError(), path_ + " is being written by another process" );
    kill( child, SIGKILL );
    waitpid( child, nullptr, 0 );
    const auto texts = read();
    EXPECT_THAT( problems_, IsEmpty() );
    const int64_t committed = done->load();
    ASSERT_GE( static_cast< int64_t >( texts.size() ), std::min< int64_t >( committed, 1000 ) );
    int64_t number = std::stoll( texts.back().substr( texts.back().find( "count " ) + 6 ) );
    EXPECT_GE( number, committed - 1 );
    EXPECT_LE( number, committed );
    for ( size_t i = texts.size(); i-- > 0; --number ) {
      ASSERT_EQ( texts[ i ], "RingTest 8 count " + std::to_string( number ) + " of " +
                                 std::string( "abcdefghijklmnop" ).substr( 0, number % 17 ) + " " +
                                 std::to_string( -number ) );
    }
  }
  munmap( done, sizeof( Count ) );
}

TEST_F( RingTest, DamageIsToldAndTheRestIsRead ) {
  Ringlog::ringIs( path_, smallestRing );
  for ( int i = 0; i < 500; ++i ) {
    traceFor( traceHandle, i );
  }
  Ringlog::ringDel();
  const auto whole = contents();
  const auto all = read();
  const auto flip = [ & ]( size_t byte, int bit ) {
    auto damaged = whole;
    damaged[ byte ] = static_cast< char >( damaged[ byte ] ^ ( 1 << bit ) );
    contentsAre( damaged );
  };
  const size_t table = Ringlog::RingFormat::headerSize;
  const size_t block = table + 16384;

  flip( 16, 3 );
  EXPECT_EQ( read(), all );
  EXPECT_THAT( problems_, ElementsAre( "the header is damaged at byte 0" ) );
  flip( block + 16 + 400, 0 );
  EXPECT_EQ( read().size(), all.size() - 1 );
  EXPECT_THAT( problems_, ElementsAre( StartsWith( "block 0: " ) ) );
  flip( table + 40, 2 );
  EXPECT_THAT( read(), IsEmpty() );
  EXPECT_THAT( problems_, ElementsAre( StartsWith( "the call-site table: " ),
                                       HasSubstr( "which the table does not have" ) ) );
  contentsAre( whole.substr( 0, block + 16 + 2001 ) );
  EXPECT_EQ( read().size(), 61u );
  EXPECT_THAT( problems_, testing::Contains( StartsWith( "the file is cut short: " ) ) );

  auto later = whole;
  Ringlog::RingFormat::Header header{};
  std::memcpy( &header, whole.data(), sizeof( header ) );
  header.layoutVersion = 2;
  header.check = checkOfHeader( header );
  std::memcpy( later.data(), &header, sizeof( header ) );
  contentsAre( later );
  EXPECT_EQ( openError(), path_ + " is a ring of layout 2; this reader knows layout 1" );
  contentsAre( "no ring" );
  EXPECT_EQ( openError(), path_ + " is no ring" );

  // Whatever is damaged, nothing is invented and nothing breaks.
  std::mt19937 random( 2 );
  const std::set< std::string > known( all.begin(), all.end() );
  for ( int round = 0; round < 300; ++round ) {
    auto damaged = whole;
    for ( int i = 0; i < 20; ++i ) {
      damaged[ random() % ( block + 16384 ) ] ^= static_cast< char >( 1 << random() % 8 );
    }
    contentsAre( damaged.substr( 0, round % 2 ? damaged.size() : random() % damaged.size() ) );
    if ( openError().empty() ) {
      for ( const auto & text : read() ) {
        EXPECT_TRUE( known.contains( text ) ) << text;
      }
    }
  }
}

TEST_F( RingTest, InspectorFiltersAndAnswersWithAStatus ) {
  Ringlog::ringIs( path_, smallestRing );
  const Ringlog::Handle other( "RingTestOther" );
  for ( int i = 0; i < 3; ++i ) {
    Vex::Clock::virtualIs( i );
    traceFor( other, i );
    TRACE( 5, "five ", i );
  }
  struct Case {
    std::vector< std::string > arguments;
    int status;
    std::string shown; // each text's first and last character
    std::string error;
  };
  const Case cases[] = {
    { { "ring", path_ }, 0, "n0f0n1f1n2f2", "" },
    { { "ring", path_, "--handle", "*Test", "--from", "0.5" }, 0, "f1f2", "" },
    { { "ring", "--to", "1", path_, "--level", "6-7+9" }, 0, "n0n1", "" },
    { { "ring", path_, "--level", "5,6" }, 2, "", "kez-inspect: --level: expected nothing more" },
    { { "ring", path_, "--from", "x" }, 2, "", "kez-inspect: --from: expected a number" },
    { { "ring", path_, "--handle=Foo*" },
      1,
      "",
      path_ + ": no handle is like Foo*; it has records of RingTest RingTestOther" },
    { { "ring" }, 2, "", "kez-inspect: ring: expected a file" },
    { { "table", path_ },
      2,
      "",
      "kez-inspect: " + path_ + " is a ring, which kez-inspect ring shows" },
    { { "ring", "/dev/null" }, 2, "", "kez-inspect: /dev/null is no file" },
    { { "list" }, 2, "", "kez-inspect: expected ring, table, help or --version, found 'list'" },
  };
  for ( const auto & each : cases ) {
    std::stringstream out;
    std::stringstream err;
    EXPECT_EQ( Inspect::kezInspect( each.arguments, out, err ), each.status );
    EXPECT_THAT( err.str(), StartsWith( each.error ) );
    std::string shown;
    for ( std::string line; std::getline( out, line ); ) {
      if ( !line.starts_with( '#' ) ) {
        shown += { line.at( 46 ), line.back() };
      }
    }
    EXPECT_EQ( shown, each.shown );
  }
  Ringlog::ringDel();
  const auto whole = contents();
  contentsAre( whole.substr( 0, whole.size() - 1 ) );
  std::stringstream out;
  std::stringstream err;
  EXPECT_EQ( Inspect::kezInspect( { "ring", path_, "--source" }, out, err ), 1 );
  EXPECT_THAT( out.str(), testing::ContainsRegex( "five 2  .*RingTest.cpp:[0-9]+\\]\n$" ) );
  EXPECT_THAT( err.str(), HasSubstr( "the file is cut short" ) );
}

TEST_F( RingTest, MountingLeavesOtherFilesAlone ) {
  EXPECT_EQ( mountError( 1000 ), "a ring takes at least 131072 bytes, not 1000" );
  contentsAre( "a letter" );
  EXPECT_EQ( mountError(), path_ + " is there and is no ring, so it is left alone" );
  EXPECT_EQ( contents(), "a letter" );
  EXPECT_FALSE( traceHandle.isOn( 1 ) );
  contentsAre( "" );
  EXPECT_EQ( mountError(), "" );
  TRACE( 1, "first" );
  // One that fails leaves the mounted one.
  EXPECT_THROW( Ringlog::ringIs( path_ + "/none", smallestRing ), std::runtime_error );
  TRACE( 1, "second" );
  EXPECT_EQ( read(), ( Texts{ "RingTest 1 first", "RingTest 1 second" } ) );
  if ( fork() == 0 ) {
    TRACE( 1, "in the child" );
    _exit( 0 );
  }
  wait( nullptr );
  TRACE( 1, "third" );
  EXPECT_EQ( read().size(), 3u );
}

} // namespace
