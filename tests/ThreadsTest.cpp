// What several threads may share, made for the thread sanitizer: a race fails there, a lost count
// in any build.
#include "Ringlog/TextTrace.h"
#include "Ringlog/Trace.h"
#include "Vex/Ptr.h"
#include "Wire/IntfId.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

template< class Work > void onThreads( Work && work ) {
  std::vector< std::thread > threads;
  for ( int thread = 0; thread < 4; ++thread ) {
    threads.emplace_back( [ &work, thread ] { work( thread ); } );
  }
  for ( auto & thread : threads ) {
    thread.join();
  }
}

class Shared : public Vex::PtrInterface {
public:
  explicit Shared( std::atomic< int > & ended ) : ended_( ended ) {}
  ~Shared() override { ++ended_; }

  int written = 0;

private:
  std::atomic< int > & ended_;
};

class Threads : public testing::Test {
protected:
  Threads() { Vex::threadSafePtrsIs( true ); }
  ~Threads() override { Vex::threadSafePtrsIs( false ); }
};

TEST_F( Threads, ShareAnObjectThatEndsOnceWithItsLastPtr ) {
  for ( int round = 0; round < 50; ++round ) {
    std::atomic< int > ended{ 0 };
    auto shared = Vex::makePtr< Shared >( ended );
    shared->written = 1;
    std::vector< Vex::Ptr< Shared > > last( 4, shared );
    shared = nullptr;
    onThreads( [ & ]( int thread ) {
      auto mine = std::move( last[ static_cast< size_t >( thread ) ] );
      for ( int i = 0; i < 1000; ++i ) {
        const Vex::Ptr< const Shared > copy = mine;
        EXPECT_EQ( copy->written, 1 );
      }
    } );
    EXPECT_EQ( ended, 1 );
  }
}

TEST_F( Threads, InternTheSameNamesToTheSameIds ) {
  std::vector< std::vector< Wire::IntfId > > ids( 4 );
  onThreads( [ & ]( int thread ) {
    for ( int i = 0; i < 500; ++i ) {
      const auto name = "swp" + std::to_string( i );
      ids[ static_cast< size_t >( thread ) ].emplace_back( name );
      EXPECT_EQ( Vex::text( ids[ static_cast< size_t >( thread ) ].back() ), name );
    }
  } );
  EXPECT_EQ( ids[ 0 ], ids[ 1 ] );
  EXPECT_EQ( ids[ 0 ], ids[ 3 ] );
}

TEST_F( Threads, TraceWhileTheSettingChanges ) {
  std::atomic< int > lines{ 0 };
  Ringlog::sinkIs( [ & ]( const Ringlog::TextRecord & record ) {
    lines += record.text.starts_with( "thread " );
  } );
  Ringlog::Handle traceHandle( "Threads" );
  onThreads( [ & ]( int thread ) {
    for ( int i = 0; i < 200; ++i ) {
      if ( thread == 0 ) {
        Ringlog::traceIs( i % 2 ? "Threads/5" : "" );
      } else {
        TRACE( 5, "thread ", thread, " line ", i );
      }
    }
  } );
  Ringlog::traceIs( "Threads/5" );
  const int before = lines;
  TRACE( 5, "thread ", 0 );
  EXPECT_EQ( lines, before + 1 );
  Ringlog::traceIs( "" );
  Ringlog::sinkIs( {} );
}

} // namespace
