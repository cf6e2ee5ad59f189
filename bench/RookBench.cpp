// A shared table against the least that does the same for a fixed number of records: an open
// addressing table of half load in shared memory, with a sequence lock a slot. Look-ups are from
// another process than the writer's, which is idle or writes as fast as it can; they are in
// random order.
#include "Ratio.h"

#include "Ringlog/Ticks.h"
#include "Rook/Reader.h"
#include "Rook/Table.h"

#include <csignal>
#include <filesystem>
#include <random>
#include <span>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Bench {

struct Small {
  uint64_t key = 0;
  uint64_t value = 0;
  VEX_VALUE( Small, "Bench::Small", key, value )
};
struct Large {
  uint64_t key = 0;
  uint64_t value = 0;
  uint64_t c = 0, d = 0, e = 0, f = 0, g = 0, h = 0;
  VEX_VALUE( Large, "Bench::Large", key, value, c, d, e, f, g, h )
};

} // namespace Bench

namespace {

using Bench::Large;
using Bench::Small;
static_assert( sizeof( Small ) == 16 && sizeof( Large ) == 64 );

template< class Record > Record recordOf( uint64_t key, uint64_t value ) {
  Record record;
  record.key = key;
  record.value = value;
  return record;
}

// A record under a sequence lock; the sequence is odd during a write, 0 without a record.
template< class Record > class Locked {
public:
  void put( const Record & record ) {
    const auto words = Rook::RecordOf< &Record::key >::wordsFrom( record );
    const uint64_t sequence = sequence_.load( std::memory_order_relaxed );
    sequence_.store( sequence + 1, std::memory_order_release );
    for ( size_t i = 0; i < words.size(); ++i ) {
      words_[ i ].store( words[ i ], std::memory_order_release );
    }
    sequence_.store( sequence + 2, std::memory_order_release );
  }
  // False when there is none.
  bool get( Record & record ) const {
    typename Rook::RecordOf< &Record::key >::Words words;
    while ( true ) {
      const uint64_t sequence = sequence_.load( std::memory_order_acquire );
      for ( size_t i = 0; i < words.size(); ++i ) {
        words[ i ] = words_[ i ].load( std::memory_order_acquire );
      }
      if ( sequence % 2 == 0 && sequence_.load( std::memory_order_relaxed ) == sequence ) {
        record = Rook::RecordOf< &Record::key >::record( words );
        return sequence != 0;
      }
    }
  }

private:
  std::atomic< uint64_t > sequence_;
  std::atomic< uint64_t > words_[ sizeof( Record ) / 8 ];
};

// Shared with the processes forked later.
template< class T > class SharedArray {
public:
  explicit SharedArray( size_t count ) : bytes_( count * sizeof( T ) ) {
    memory_ = mmap( nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0 );
  }
  ~SharedArray() { munmap( memory_, bytes_ ); }
  SharedArray( const SharedArray & ) = delete;
  SharedArray & operator=( const SharedArray & ) = delete;
  T & operator[]( size_t at ) const { return static_cast< T * >( memory_ )[ at ]; }

private:
  const size_t bytes_;
  void * memory_;
};

template< class Record > class Floor {
public:
  explicit Floor( size_t records )
      : bits_( std::bit_width( 2 * records - 1 ) ), slots_( size_t( 1 ) << bits_ ) {}

  void put( const Record & record ) {
    Record found;
    size_t at = begin( record.key );
    while ( slots_[ at ].get( found ) && found.key != record.key ) {
      at = after( at );
    }
    slots_[ at ].put( record );
  }
  bool find( uint64_t key, Record & record ) const {
    for ( size_t at = begin( key ); slots_[ at ].get( record ); at = after( at ) ) {
      if ( record.key == key ) {
        return true;
      }
    }
    return false;
  }
  size_t bytes() const { return sizeof( Locked< Record > ) << bits_; }

private:
  size_t begin( uint64_t key ) const { return key * Vex::goldenRatio >> ( 64 - bits_ ); }
  size_t after( size_t at ) const { return ( at + 1 ) & ( ( size_t( 1 ) << bits_ ) - 1 ); }

  const int bits_;
  SharedArray< Locked< Record > > slots_;
};

constexpr int64_t few = 1 << 16;
constexpr int64_t many = 1 << 20;

// Rounds are over a part of the keys, the next one each time: short enough to fit into the time
// slices of a busy machine.
constexpr size_t roundKeys = 4096;

class Rounds {
public:
  explicit Rounds( const std::vector< uint64_t > & keys ) : keys_( keys ) {}
  std::span< const uint64_t > next() {
    at_ = ( at_ + roundKeys ) % keys_.size();
    return { &keys_[ at_ ], roundKeys };
  }

private:
  const std::vector< uint64_t > & keys_;
  size_t at_ = 0;
};

std::vector< uint64_t > randomKeys( size_t count ) {
  std::mt19937_64 random( 3 );
  std::vector< uint64_t > keys( count );
  for ( auto & key : keys ) {
    key = random();
  }
  return keys;
}

// Both tables, filled.
template< class Record > struct Tables {
  explicit Tables( size_t count ) : keys( randomKeys( count ) ), floor( count ) {
    Rook::mountDirectoryIs( directory );
    table.mount( "table" );
    for ( const uint64_t key : keys ) {
      table.put( recordOf< Record >( key, 1 ) );
      floor.put( recordOf< Record >( key, 1 ) );
    }
    std::shuffle( keys.begin(), keys.end(), std::mt19937_64( 4 ) );
  }
  ~Tables() {
    table.unmount();
    std::filesystem::remove_all( directory );
  }

  const std::string directory = "/dev/shm/rook-bench-" + std::to_string( getpid() );
  const std::string path = directory + "/table";
  std::vector< uint64_t > keys;
  Rook::Table< &Record::key > table;
  Floor< Record > floor;
};

template< class Record > void put( benchmark::State & state ) {
  Tables< Record > all( state.range( 0 ) );
  uint64_t value = 0;
  const auto write = [ & ]( auto & to ) {
    return [ &, rounds = Rounds( all.keys ) ]() mutable {
      return [ &, keys = rounds.next() ] {
        ++value;
        for ( const uint64_t key : keys ) {
          to.put( recordOf< Record >( key, value ) );
        }
      };
    };
  };
  Bench::compareWith( state, roundKeys, { "ratio" }, write( all.table ), write( all.floor ) );
  struct stat file {};
  stat( all.path.c_str(), &file );
  state.counters[ "bytes_ratio" ] =
      static_cast< double >( file.st_blocks ) * 512 / static_cast< double >( all.floor.bytes() );
}

// The other process, which writes to what it is told.
template< class Record > class OtherWriter {
public:
  enum Target : int { none, table, floor };

  OtherWriter( Tables< Record > & all, bool busy ) : busy_( busy ), target_( 1 ) {
    child_ = fork();
    if ( child_ == 0 ) {
      for ( uint64_t value = 2;; ++value ) {
        for ( const uint64_t key : all.keys ) {
          int target = target_[ 0 ];
          for ( ; target == none; target = target_[ 0 ] ) {
            usleep( 100 );
          }
          target == table ? all.table.put( recordOf< Record >( key, value ) )
                          : all.floor.put( recordOf< Record >( key, value ) );
        }
      }
    }
  }
  ~OtherWriter() {
    kill( child_, SIGKILL );
    waitpid( child_, nullptr, 0 );
  }
  OtherWriter( const OtherWriter & ) = delete;
  OtherWriter & operator=( const OtherWriter & ) = delete;

  void writeTo( Target target ) { target_[ 0 ] = busy_ ? target : none; }

private:
  const bool busy_;
  const SharedArray< std::atomic< int > > target_;
  pid_t child_;
};

// Of a round's look-ups, in ticks: the 99th percentile and the longest.
struct Latency {
  double p99;
  double longest;
};
template< class Find > Latency latencyOf( const Find & find, std::span< const uint64_t > round ) {
  std::vector< uint64_t > ticks;
  for ( const uint64_t key : round ) {
    const auto start = Ringlog::ticks();
    find( key );
    ticks.push_back( Ringlog::ticks() - start );
  }
  std::sort( ticks.begin(), ticks.end() );
  return { static_cast< double >( ticks[ round.size() * 99 / 100 ] ),
           static_cast< double >( ticks.back() ) };
}

// The middle of the rounds' ratios of the 99th percentiles stands beside that of the whole times.
template< class Record > void lookUp( benchmark::State & state ) {
  Tables< Record > all( state.range( 0 ) );
  // In another order than the writer's.
  auto keys = all.keys;
  std::shuffle( keys.begin(), keys.end(), std::mt19937_64( 5 ) );
  OtherWriter< Record > writer( all, state.range( 1 ) );
  const Rook::Reader< &Record::key > reader( all.path );
  uint64_t sum = 0;
  const auto inTable = [ & ]( uint64_t key ) { sum += reader.record( key )->value; };
  const auto inFloor = [ & ]( uint64_t key ) {
    Record record;
    sum += all.floor.find( key, record ) ? record.value : 0;
  };
  // The 99th percentile is of the round before the one that is timed as a whole.
  const auto rounds = [ & ]( auto target, const auto & find, std::vector< double > & p99s ) {
    return [ &, target, rounds = Rounds( keys ) ]() mutable {
      writer.writeTo( target );
      p99s.push_back( latencyOf( find, rounds.next() ).p99 );
      return [ &, round = rounds.next() ] {
        for ( const uint64_t key : round ) {
          find( key );
        }
      };
    };
  };
  std::vector< double > tableP99s;
  std::vector< double > floorP99s;
  Bench::compareWith( state, roundKeys, { "ratio" }, rounds( writer.table, inTable, tableP99s ),
                      rounds( writer.floor, inFloor, floorP99s ) );
  state.counters[ "p99_ratio" ] = Bench::median( tableP99s ) / Bench::median( floorP99s );
  benchmark::DoNotOptimize( sum );
}

// Look-ups of a few records while the writer inserts many more and removes them, so that the table
// grows and its index is made anew, against the same while the writer is stopped wherever it is.
// The longest ones are the middle of the rounds'.
template< class Record > void lookUpInGrowth( benchmark::State & state ) {
  Tables< Record > all( few );
  const pid_t writer = fork();
  if ( writer == 0 ) {
    while ( true ) {
      for ( uint64_t key = 0; key < many; ++key ) {
        all.table.put( recordOf< Record >( key, 1 ) );
      }
      for ( uint64_t key = 0; key < many; ++key ) {
        all.table.del( key );
      }
    }
  }
  const Rook::Reader< &Record::key > reader( all.path );
  uint64_t sum = 0;
  Rounds rounds( all.keys );
  std::vector< double > p99s[ 2 ];
  std::vector< double > longest[ 2 ];
  for ( auto _ : state ) {
    for ( const bool growing : { false, true } ) {
      kill( writer, growing ? SIGCONT : SIGSTOP );
      const auto latency =
          latencyOf( [ & ]( uint64_t key ) { sum += reader.record( key )->value; }, rounds.next() );
      p99s[ growing ].push_back( latency.p99 );
      longest[ growing ].push_back( latency.longest );
    }
  }
  kill( writer, SIGKILL );
  waitpid( writer, nullptr, 0 );
  state.counters[ "p99_ratio" ] = Bench::median( p99s[ 1 ] ) / Bench::median( p99s[ 0 ] );
  state.counters[ "longest_ratio" ] = Bench::median( longest[ 1 ] ) / Bench::median( longest[ 0 ] );
  benchmark::DoNotOptimize( sum );
}

// The floor is a dense array of locked records.
template< class Record > void walk( benchmark::State & state ) {
  Tables< Record > all( state.range( 0 ) );
  SharedArray< Locked< Record > > array( all.keys.size() );
  for ( size_t i = 0; i < all.keys.size(); ++i ) {
    array[ i ].put( recordOf< Record >( all.keys[ i ], 1 ) );
  }
  const Rook::Reader< &Record::key > reader( all.path );
  auto subject = [ & ] {
    uint64_t sum = 0;
    for ( const auto & record : reader.range() ) {
      sum += record.key ^ record.value;
    }
    return sum;
  };
  auto floor = [ & ] {
    uint64_t sum = 0;
    Record record;
    for ( size_t i = 0; i < all.keys.size(); ++i ) {
      if ( array[ i ].get( record ) ) {
        sum += record.key ^ record.value;
      }
    }
    return sum;
  };
  Bench::compare( state, static_cast< double >( all.keys.size() ), subject, floor );
}

BENCHMARK( put< Small > )->Name( "put/Small" )->Arg( few )->Arg( many )->UseManualTime();
BENCHMARK( put< Large > )->Name( "put/Large" )->Arg( few )->Arg( many )->UseManualTime();
// Records, and whether the writer is busy.
BENCHMARK( lookUp< Small > )
    ->Name( "lookUp/Small" )
    ->ArgsProduct( { { few, many }, { 0, 1 } } )
    ->UseManualTime();
BENCHMARK( lookUp< Large > )
    ->Name( "lookUp/Large" )
    ->ArgsProduct( { { few, many }, { 0, 1 } } )
    ->UseManualTime();
BENCHMARK( lookUpInGrowth< Small > )->Name( "lookUpInGrowth/Small" );
BENCHMARK( walk< Small > )->Name( "walk/Small" )->Arg( few )->Arg( many )->UseManualTime();
BENCHMARK( walk< Large > )->Name( "walk/Large" )->Arg( few )->Arg( many )->UseManualTime();

} // namespace
