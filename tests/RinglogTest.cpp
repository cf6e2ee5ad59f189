#include "Ringlog/TextTrace.h"
#include "Ringlog/Trace.h"
#include "Vex/Clock.h"
#include "Vex/Value.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <mutex>
#include <thread>

namespace RinglogTypes {

struct Pair {
  uint32_t tunnelId = 0;
  bool add = false;
  VEX_VALUE( Pair, "Test::Pair", tunnelId, add )
};
VEX_ENUM( Answer, "Test::Answer", programmed, notProgrammed )

} // namespace RinglogTypes

namespace {

Ringlog::Handle traceHandle( "RinglogTest" );

// A value whose text form traces, by the same kind of statement as shows the value.
struct Chatty {
  int depth;
};
void appendText( Vex::TextBuffer & out, const Chatty & value ) {
  if ( value.depth > 0 ) {
    TRACE( 1, "inner ", Chatty{ value.depth - 1 }, " end" );
  }
  appendText( out, value.depth );
}

class RinglogTest : public testing::Test {
protected:
  RinglogTest() {
    Vex::Clock::virtualIs( 12.5 );
    Ringlog::traceIs( "RinglogTest" );
    Ringlog::sinkIs( [ this ]( const Ringlog::TextRecord & record ) {
      const std::lock_guard lock( mutex_ );
      texts_.emplace_back( record.text );
    } );
  }
  ~RinglogTest() override {
    Ringlog::sinkIs( {} );
    Ringlog::traceIs( "" );
    Vex::Clock::steadyIs();
  }

  std::mutex mutex_;
  std::vector< std::string > texts_;
};

using Texts = std::vector< std::string >;

TEST_F( RinglogTest, TextIsThePiecesAndAStatementThatIsOffEvaluatesNone ) {
  int evaluated = 0;
  const auto count = [ & ] { return ++evaluated; };
  const std::string name = "Ethernet1";
  const char * text = "";
  TRACE( 5, "  key ", RinglogTypes::Pair( 7, true ), " on ", true, " off ", false, ' ' == 'x',
         " n ", -3, " d ", 0.25, " s ", name, text, " e ", RinglogTypes::Answer::notProgrammed, " ",
         uint8_t( 65 ), " " );
  TRACE( 0, count() );
  Ringlog::traceIs( "RinglogTest/0-4+6-9" );
  if ( evaluated == 1 )
    TRACE( 5, count() );
  else
    TRACE( 9, "else of the outer if" );
  EXPECT_EQ( evaluated, 1 );
  EXPECT_EQ( texts_, ( Texts{ "  key Value('Test::Pair', ** {'tunnelId': 7, 'add': 1}) on 1 off 00"
                              " n -3 d 0.25 s Ethernet1 e notProgrammed 65 ",
                              "1" } ) );
}

TEST_F( RinglogTest, SettingsChooseLevelsByNamePattern ) {
  constexpr uint32_t all = 0x3ff;
  struct Case {
    const char * setting;
    uint32_t lagSm;
    uint32_t lagHelper;
  };
  const Case cases[] = {
    { "", 0, 0 },
    { "*", all, all },
    { "KezLagSm", all, 0 },
    { "KezLag", 0, 0 },
    { "Kez*/5", 1 << 5, 1 << 5 },
    { "*Sm/0-5", 0x3f, 0 },
    { "Ke?Lag?m/1+5+8-9", 0x322, 0 },
    { "K*a*S*m*/9-9", 1 << 9, 0 },
    { "*L*Helpe?/0", 0, 1 },
    { "Kez*/8,*Sm/1,*Helper/8,Other", 0x102, 0x100 },
  };
  const auto levels = []( const Ringlog::Handle & handle ) {
    uint32_t on = 0;
    for ( int level = 0; level <= Ringlog::highestLevel; ++level ) {
      on |= uint32_t( handle.isOn( level ) ) << level;
    }
    return on;
  };
  const Ringlog::Handle lagSm( "KezLagSm" );
  for ( const auto & [ setting, lagSmLevels, lagHelperLevels ] : cases ) {
    SCOPED_TRACE( setting );
    Ringlog::traceIs( setting );
    EXPECT_EQ( Ringlog::trace(), setting );
    const Ringlog::Handle later( "KezLagHelper" );
    EXPECT_EQ( levels( lagSm ), lagSmLevels );
    EXPECT_EQ( levels( later ), lagHelperLevels );
    const auto names = Ringlog::handleNames();
    EXPECT_EQ( std::count( names.begin(), names.end(), "KezLagHelper" ), 1 );
  }
  const auto names = Ringlog::handleNames();
  EXPECT_EQ( std::count( names.begin(), names.end(), "KezLagHelper" ), 0 );
  EXPECT_TRUE( std::is_sorted( names.begin(), names.end() ) );
}

TEST_F( RinglogTest, BadSettingSaysWhereAndWhatAndChangesNothing ) {
  struct Case {
    const char * setting;
    size_t offset;
    const char * message;
  };
  const Case cases[] = {
    { "Kez*/12", 5, "expected a level from 0 to 9, found '12'" },
    { "Kez*/", 5, "expected a level from 0 to 9, found nothing" },
    { "*,Kez*/5-3", 9, "expected a level from 5 to 9, found '3'" },
    { "*/1+", 4, "expected a level from 0 to 9, found nothing" },
    { "*/5;Kez*", 3, "expected '+', ',' or the end, found ';Kez*'" },
    { "Kez*:5", 4, "expected '/', ',' or the end, found ':5'" },
    { "Kez*,", 5, "expected a handle name or pattern, found nothing" },
    { "/5", 0, "expected a handle name or pattern, found '/5'" },
  };
  for ( const auto & [ setting, offset, message ] : cases ) {
    SCOPED_TRACE( setting );
    try {
      Ringlog::traceIs( setting );
      ADD_FAILURE() << "accepted";
    } catch ( const Vex::ParseError & error ) {
      EXPECT_EQ( error.offset(), offset );
      EXPECT_STREQ( error.what(), message );
    }
    EXPECT_EQ( Ringlog::trace(), "RinglogTest" );
    EXPECT_TRUE( traceHandle.isOn( 0 ) );
  }
}

// The environment is read before main: the death test's process is started with it.
TEST( RinglogEnvironmentTest, EntriesThatParseApply ) {
  GTEST_FLAG_SET( death_test_style, "threadsafe" );
  setenv( "KEZ_TRACE", "Ringlog*/3,Kez/x,Other", 1 );
  EXPECT_EXIT( std::exit( Ringlog::trace() == "Ringlog*/3,Other" && traceHandle.isOn( 3 ) &&
                                  !traceHandle.isOn( 4 )
                              ? 0
                              : 1 ),
               testing::ExitedWithCode( 0 ),
               "KEZ_TRACE: entry 'Kez/x' is left out: expected a level from 0 to 9, found 'x'" );
  unsetenv( "KEZ_TRACE" );
}

TEST_F( RinglogTest, NestedTracesStayWhole ) {
  TRACE( 2, "outer ", Chatty{ 1 }, " end" );
  EXPECT_EQ( texts_, ( Texts{ "inner 0 end", "outer 1 end" } ) );

  // What a sink traces goes to standard error and does not call the sink again.
  std::string line;
  Ringlog::sinkIs( [ & ]( const Ringlog::TextRecord & record ) {
    TRACE( 7, "in sink" );
    Vex::TextBuffer out;
    appendLine( out, record );
    line = out.str();
  } );
  testing::internal::CaptureStderr();
  TRACE( 2, "outer ", 2 );
  EXPECT_EQ( line, "     12.500000 RinglogTest                  2 outer 2" );
  EXPECT_EQ( testing::internal::GetCapturedStderr(),
             "     12.500000 RinglogTest                  7 in sink\n" );
}

TEST_F( RinglogTest, ThreadsTraceWhileTheSettingChanges ) {
  const auto run = []( int number ) {
    for ( int i = 0; i < 500; ++i ) {
      TRACE( 4, "thread ", number, " ends" );
    }
  };
  std::array threads{ std::thread( run, 1 ), std::thread( run, 2 ) };
  for ( int i = 0; i < 100; ++i ) {
    Ringlog::traceIs( i % 2 ? "Ringlog*" : "RinglogTest/4" );
    const Ringlog::Handle shortLived( "RinglogTestShortLived" );
  }
  for ( auto & thread : threads ) {
    thread.join();
  }
  EXPECT_EQ( std::count( texts_.begin(), texts_.end(), "thread 1 ends" ), 500 );
  EXPECT_EQ( std::count( texts_.begin(), texts_.end(), "thread 2 ends" ), 500 );
}

} // namespace
