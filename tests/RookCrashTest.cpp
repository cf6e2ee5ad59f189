// Writers that are killed at random points, one after the other, while readers look on.
#include "RookTestTypes.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <random>
#include <sys/mman.h>
#include <sys/wait.h>

namespace {

using namespace RookTest;

// The first keys are always there once they are, the others come and go.
constexpr uint64_t standingKeys = 64;
constexpr uint64_t allKeys = 3000;

// What all processes share besides the table.
struct Journal {
  std::atomic< uint64_t > writes;                       // begun
  std::atomic< uint64_t > births;                       // begun
  std::array< std::atomic< uint64_t >, allKeys > begun; // the last write of a key
  std::array< std::atomic< uint64_t >, allKeys > ended; // a write that was over
  std::atomic< bool > over;
  std::atomic< uint64_t > walks;
};

} // namespace

namespace RookTest {

struct Life {
  uint64_t key = 0;
  uint64_t write = 0;
  uint64_t birth = 0;
  uint64_t proof = 0; // tells a record that is put together of two
  VEX_VALUE( Life, "RookTest::Life", key, write, birth, proof )
  Life( uint64_t key, uint64_t write, uint64_t birth )
      : Life( key, write, birth, Vex::foldWord( Vex::foldWord( key + 1, write ), birth ) ) {}
};

} // namespace RookTest

namespace {

using RookTest::Life;

using LifeTable = Rook::Table< &Life::key >;
using LifeReader = Rook::Reader< &Life::key >;

[[noreturn]] void writeUntilKilled( Journal & journal, uint64_t seed ) {
  LifeTable table;
  table.mount( "table" );
  std::mt19937_64 random( seed );
  for ( uint64_t key = 0;; key = random() % allKeys ) {
    const auto present = table.record( key );
    if ( present && key >= standingKeys && random() % 3 == 0 ) {
      table.del( key );
      continue;
    }
    const uint64_t write = ++journal.writes;
    journal.begun[ key ] = write;
    table.put( Life( key, write, present ? present->birth : ++journal.births ) );
    journal.ended[ key ] = write;
    for ( uint64_t standing = 1; key == 0 && !present && standing < standingKeys; ++standing ) {
      table.put( Life( standing, ++journal.writes, ++journal.births ) );
    }
  }
}

void require( bool holds, const char * what, uint64_t key ) {
  if ( !holds ) {
    std::fprintf( stderr, "a reader found: %s, key %lu\n", what, key );
    _exit( 1 );
  }
}

class Watch {
public:
  Watch( Journal & journal, const std::string & path ) : journal_( journal ), reader_( path ) {
    reader_.corruptionHandlerIs( []( const Rook::Corruption & corruption ) { throw corruption; } );
  }

  void lookUp( uint64_t key ) {
    const uint64_t ended = journal_.ended[ key ];
    const auto record = reader_.record( key );
    if ( record ) {
      check( *record );
      require( record->write >= ended, "an old record", key );
    } else {
      require( key >= standingKeys, "a standing record missing", key );
    }
  }

  void walk() {
    std::array< bool, allKeys > met{};
    auto at = reader_.range().begin();
    const uint64_t births = journal_.births;
    for ( ; at.valid(); ++at ) {
      check( *at );
      require( !std::exchange( met[ at.key() ], true ), "a record twice in a walk", at.key() );
      require( ( *at ).birth <= births, "a record born after the walk began", at.key() );
    }
    for ( uint64_t key = 0; key < standingKeys; ++key ) {
      require( met[ key ], "a standing record not met by a walk", key );
    }
    ++journal_.walks;
  }

private:
  void check( const Life & record ) {
    require( record.key < allKeys, "a key that never was", record.key );
    require( record == Life( record.key, record.write, record.birth ), "a torn record",
             record.key );
    if ( record.key >= standingKeys ) {
      require( record.write <= journal_.begun[ record.key ], "a record never written", record.key );
    }
    // One that was seen and is gone was never committed.
    require( record.write >= seen_[ record.key ], "a record that had been replaced", record.key );
    seen_[ record.key ] = record.write;
  }

  Journal & journal_;
  LifeReader reader_;
  std::array< uint64_t, allKeys > seen_{};
};

[[noreturn]] void readUntilOver( Journal & journal, const std::string & path, uint64_t seed ) {
  alarm( 100 ); // ends one that hangs
  try {
    Watch watch( journal, path );
    std::mt19937_64 random( seed );
    while ( !journal.over ) {
      for ( int i = 0; i < 1000; ++i ) {
        watch.lookUp( random() % 4 ? random() % allKeys : random() % standingKeys );
      }
      watch.walk();
    }
  } catch ( const std::exception & error ) {
    require( false, error.what(), 0 );
  }
  _exit( 0 );
}

template< class Action > pid_t inChild( Action && action ) {
  const pid_t child = fork();
  if ( child == 0 ) {
    action();
  }
  return child;
}

int statusOf( pid_t child ) {
  int status = 0;
  waitpid( child, &status, 0 );
  return status;
}

// KEZ_ROOK_KILLS says how many writers are killed.
TEST( RookCrash, ReadersSeeWhatWasCommitted ) {
  const char * const wanted = std::getenv( "KEZ_ROOK_KILLS" );
  const int kills = wanted ? std::atoi( wanted ) : 40;
  std::mt19937_64 random( 7 );
  for ( int killed = 0; killed < kills && !HasFailure(); ) {
    const MountDirectory directory;
    void * const memory = mmap( nullptr, sizeof( Journal ), PROT_READ | PROT_WRITE,
                                MAP_SHARED | MAP_ANONYMOUS, -1, 0 );
    ASSERT_NE( memory, MAP_FAILED );
    auto & journal = *new ( memory ) Journal{};
    // The first writer is left alone until all standing records are there. A table grows in its
    // first rounds alone: after some it is made anew.
    pid_t writer = inChild( [ & ] { writeUntilKilled( journal, random() ); } );
    while ( journal.writes < standingKeys + 10 ) {
      usleep( 100 );
    }
    std::array< pid_t, 2 > readers{};
    for ( auto & reader : readers ) {
      reader = inChild( [ & ] { readUntilOver( journal, directory.path( "table" ), random() ); } );
    }
    for ( int round = 0; round < 20; ++round, ++killed ) {
      usleep( static_cast< useconds_t >( random() % ( round % 2 ? 20000 : 600 ) ) );
      kill( writer, SIGKILL );
      const int status = statusOf( writer );
      EXPECT_TRUE( WIFSIGNALED( status ) && WTERMSIG( status ) == SIGKILL ) << status;
      writer = inChild( [ & ] { writeUntilKilled( journal, random() + killed ); } );
    }
    const uint64_t walks = journal.walks;
    kill( writer, SIGKILL );
    statusOf( writer );
    // Readers go on without a writer.
    for ( int wait = 0; journal.walks < walks + 4 && wait < 1000; ++wait ) {
      usleep( 10000 );
    }
    EXPECT_GE( journal.walks, walks + 4 );
    journal.over = true;
    for ( const pid_t reader : readers ) {
      EXPECT_EQ( statusOf( reader ), 0 );
    }
    munmap( memory, sizeof( Journal ) );
  }
}

} // namespace
