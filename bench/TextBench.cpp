// Printing and parsing a value of three fields, against the same by hand with to_chars and
// from_chars; and a trace statement that is off, against a load, a test and a branch.
#include "Ratio.h"

#include "KezEvpn/KezEvpn.h"
#include "Ringlog/Trace.h"
#include "Vex/Value.h"

#include <cstring>
#include <random>

namespace Bench {

struct Numbers {
  uint64_t first = 0;
  uint32_t second = 0;
  uint16_t third = 0;
  VEX_VALUE( Numbers, "Bench::Numbers", first, second, third )
};

} // namespace Bench

namespace {

using Bench::Numbers;

constexpr size_t count = 1000;

using Key = Kez::IntfVlanTunnelKey;

// Numbers of all lengths.
uint64_t drawn( std::mt19937_64 & draw, unsigned bits ) {
  return draw() >> ( 64 - bits + draw() % ( bits - 1 ) );
}
template< class Value > std::vector< Value > values();
template<> std::vector< Numbers > values() {
  std::mt19937_64 draw( 1 );
  std::vector< Numbers > all( count );
  for ( auto & each : all ) {
    each =
        Numbers( drawn( draw, 64 ), uint32_t( drawn( draw, 32 ) ), uint16_t( drawn( draw, 16 ) ) );
  }
  return all;
}
constexpr unsigned interfaceShift = 2 * Wire::IntfId::portBits;
template<> std::vector< Key > values() {
  std::mt19937_64 draw( 1 );
  std::vector< Key > all( count );
  for ( auto & each : all ) {
    each = Key(
        Wire::IntfId( Wire::IntfId::Kind::ethernet, ( 1 + drawn( draw, 9 ) ) << interfaceShift ),
        uint16_t( 1 + drawn( draw, 11 ) ), drawn( draw, 49 ) );
  }
  return all;
}

// Text as it is written by hand: what is the same each time, and numbers between.
template< size_t size > char * literal( char * out, const char ( &text )[ size ] ) {
  std::memcpy( out, text, size - 1 );
  return out + size - 1;
}
char * number( char * out, char * end, uint64_t value ) {
  return std::to_chars( out, end, value ).ptr;
}
char * print( char * out, char * end, const Numbers & value ) {
  out = literal( out, "Value('Bench::Numbers', ** {'first': " );
  out = number( out, end, value.first );
  out = literal( out, ", 'second': " );
  out = number( out, end, value.second );
  out = literal( out, ", 'third': " );
  out = number( out, end, value.third );
  return literal( out, "})" );
}
char * print( char * out, char * end, const Key & value ) {
  out = literal( out, "Value('Kez::IntfVlanTunnelKey', ** {'intfId': Ethernet" );
  out = number( out, end, value.intfId.number() >> interfaceShift );
  out = literal( out, ", 'vlanId': " );
  out = number( out, end, value.vlanId.value() );
  out = literal( out, ", 'tunnelId': " );
  out = number( out, end, value.tunnelId.value() );
  return literal( out, "})" );
}

// Null when the text is another.
template< size_t size >
const char * skip( const char * at, const char * end, const char ( &text )[ size ] ) {
  const bool there = at && size_t( end - at ) >= size - 1 && std::memcmp( at, text, size - 1 ) == 0;
  return there ? at + size - 1 : nullptr;
}
template< class Number > const char * read( const char * at, const char * end, Number & value ) {
  if ( !at ) {
    return nullptr;
  }
  const auto [ stop, error ] = std::from_chars( at, end, value );
  return error == std::errc() ? stop : nullptr;
}
bool scan( const char * at, const char * end, Numbers & value ) {
  at = skip( at, end, "Value('Bench::Numbers', ** {'first': " );
  at = read( at, end, value.first );
  at = skip( at, end, ", 'second': " );
  at = read( at, end, value.second );
  at = skip( at, end, ", 'third': " );
  at = read( at, end, value.third );
  return skip( at, end, "})" ) == end;
}
bool scan( const char * at, const char * end, Key & value ) {
  uint64_t port = 0;
  uint16_t vlan = 0;
  uint64_t tunnel = 0;
  at = skip( at, end, "Value('Kez::IntfVlanTunnelKey', ** {'intfId': Ethernet" );
  at = read( at, end, port );
  at = skip( at, end, ", 'vlanId': " );
  at = read( at, end, vlan );
  at = skip( at, end, ", 'tunnelId': " );
  at = read( at, end, tunnel );
  value = Key( Wire::IntfId( Wire::IntfId::Kind::ethernet, port << interfaceShift ), vlan, tunnel );
  return skip( at, end, "})" ) == end && vlan >= 1 && vlan <= 4094;
}

template< class Value > void printing( benchmark::State & state ) {
  const auto all = values< Value >();
  Vex::TextBuffer out;
  char plain[ 256 ];
  for ( const auto & each : all ) {
    if ( std::string( plain, print( plain, plain + sizeof( plain ), each ) ) !=
         Vex::text( each ) ) {
      state.SkipWithError( "the floor prints another text" );
      return;
    }
  }
  Bench::compare(
      state, count,
      [ & ] {
        for ( const auto & each : all ) {
          out.clear();
          appendText( out, each );
          benchmark::DoNotOptimize( out.view().data() );
          benchmark::ClobberMemory();
        }
      },
      [ & ] {
        for ( const auto & each : all ) {
          benchmark::DoNotOptimize( print( plain, plain + sizeof( plain ), each ) );
          benchmark::ClobberMemory();
        }
      } );
}
BENCHMARK_TEMPLATE( printing, Numbers )->UseManualTime();
BENCHMARK_TEMPLATE( printing, Key )->UseManualTime();

template< class Value > void parsing( benchmark::State & state ) {
  std::vector< std::string > texts;
  for ( const auto & each : values< Value >() ) {
    texts.push_back( Vex::text( each ) );
    Value value;
    const auto & text = texts.back();
    if ( !scan( text.data(), text.data() + text.size(), value ) || !( value == each ) ) {
      state.SkipWithError( "the floor reads another value" );
      return;
    }
  }
  Value value;
  Bench::compare(
      state, count,
      [ & ] {
        for ( const auto & text : texts ) {
          Vex::parseWhole( value, text.data(), text.data() + text.size() );
          benchmark::DoNotOptimize( value );
        }
      },
      [ & ] {
        for ( const auto & text : texts ) {
          benchmark::DoNotOptimize( scan( text.data(), text.data() + text.size(), value ) );
          benchmark::DoNotOptimize( value );
        }
      } );
}
BENCHMARK_TEMPLATE( parsing, Numbers )->UseManualTime();
BENCHMARK_TEMPLATE( parsing, Key )->UseManualTime();

Ringlog::Handle traceHandle( "TextBench" );
uint32_t plainLevels = 0;

void traceOff( benchmark::State & state ) {
  constexpr int times = 100000;
  uint64_t evaluated = 0;
  Bench::compare(
      state, times,
      [ & ] {
        for ( int i = 0; i < times; ++i ) {
          TRACE( 8, "handleMember ", ++evaluated );
          benchmark::ClobberMemory();
        }
      },
      [ & ] {
        for ( int i = 0; i < times; ++i ) {
          if ( plainLevels & ( 1u << 8 ) ) [[unlikely]] {
            benchmark::DoNotOptimize( ++evaluated );
          }
          benchmark::ClobberMemory();
        }
      } );
  if ( evaluated ) {
    state.SkipWithError( "a statement that is off evaluated its pieces" );
  }
}
BENCHMARK( traceOff )->UseManualTime();

} // namespace
