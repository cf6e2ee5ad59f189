// A trace statement that writes a binary record, against a plain store of as much.
#include "Ratio.h"

#include "Ringlog/Ring.h"
#include "Ringlog/Ticks.h"
#include "Ringlog/Trace.h"
#include "Vex/Clock.h"

#include <cstdio>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

namespace {

Ringlog::Handle traceHandle( "TraceBench" );
constexpr int repetitions = 200'000;

// Stores of 64 bytes with a time stamp in shared memory, used in the round.
class PlainRing {
public:
  PlainRing()
      : words_( static_cast< uint64_t * >( mmap( nullptr, size, PROT_READ | PROT_WRITE,
                                                 MAP_SHARED | MAP_ANONYMOUS | MAP_POPULATE, -1,
                                                 0 ) ) ) {}
  ~PlainRing() { munmap( words_, size ); }

  [[gnu::noinline]] void store( uint64_t number, std::string_view text ) {
    uint64_t * const out = words_ + at_;
    out[ 0 ] = Ringlog::ticks();
    out[ 1 ] = number;
    out[ 2 ] = text.size();
    // All that a record has room for, whatever the text's size.
    std::memcpy( out + 3, text.data(), 40 );
    at_ = ( at_ + 8 ) % ( size / sizeof( uint64_t ) );
  }

private:
  static constexpr size_t size = 16 << 20;
  uint64_t * words_;
  size_t at_ = 0;
};

[[gnu::noinline]] void traceRecord( uint64_t number, std::string_view text ) {
  TRACE( 5, "handleMember number ", number, text );
}

void binaryRecord( benchmark::State & state ) {
  char name[ 40 ] = "Ethernet1";
  benchmark::DoNotOptimize( name );
  const std::string_view text( name );
  const auto path = "/tmp/TraceBench." + std::to_string( getpid() );
  Vex::Clock::steadyIs();
  Ringlog::ringIs( path, 16 << 20 );
  PlainRing plain;
  const auto subject = [ & ] {
    for ( uint64_t i = 0; i < repetitions; ++i ) {
      traceRecord( i, text );
    }
  };
  const auto floor = [ & ] {
    for ( uint64_t i = 0; i < repetitions; ++i ) {
      plain.store( i, text );
    }
  };
  Bench::compare( state, repetitions, subject, floor );
  Ringlog::ringDel();
  std::remove( path.c_str() );
}
BENCHMARK( binaryRecord )->UseManualTime();

} // namespace
