// Vex::Collection against a plain ordered dictionary and against std::unordered_map, members of
// 24 bytes. Times are per member.
#include "PlainDictionary.h"
#include "Ratio.h"

#include "KezEvpn/KezEvpn.h"
#include "Vex/Collection.h"

#include <memory>
#include <optional>
#include <random>
#include <unordered_map>
#include <unordered_set>

namespace {

struct Words {
  uint64_t first;
  uint64_t second;
};
uint64_t number( const Words & value ) {
  return value.first;
}
uint64_t number( uint64_t value ) {
  return value;
}

using Word = uint64_t;
using Pair = Kez::IntfVlanKey;

struct PlainHash {
  uint32_t operator()( Word key ) const { return uint32_t( ( key * odd ) >> 32 ); }
  uint32_t operator()( const Pair & key ) const {
    return uint32_t( ( ( key.intfId.vexWord() * odd ^ key.vlanId.value() ) * odd ) >> 32 );
  }
  static constexpr uint64_t odd = 0x9E3779B97F4A7C15u;
};
struct StandardHash {
  size_t operator()( Word key ) const { return std::hash< Word >()( key ); }
  size_t operator()( const Pair & key ) const {
    const size_t first = std::hash< Word >()( key.intfId.vexWord() );
    const size_t second = std::hash< Word >()( key.vlanId.value() );
    return first ^ ( second + 0x9E3779B9u + ( first << 6 ) + ( first >> 2 ) );
  }
};

template< class Key > struct Sets;
template<> struct Sets< Word > {
  using Value = Words;
  static Value value( uint64_t i ) { return { i, i }; }
  static Word random( std::mt19937_64 & draw ) { return draw(); }
  static Word sequential( uint64_t i ) { return i; }
};
template<> struct Sets< Pair > {
  using Value = uint64_t;
  static Value value( uint64_t i ) { return i; }
  static Pair random( std::mt19937_64 & draw ) {
    const uint64_t drawn = draw();
    return Pair( Wire::IntfId( Wire::IntfId::Kind::ethernet, drawn >> 8 ),
                 uint16_t( 1 + draw() % 4094 ) );
  }
  // Every VLAN of one Ethernet interface after the other.
  static Pair sequential( uint64_t i ) {
    constexpr unsigned interfaceShift = 2 * Wire::IntfId::portBits;
    return Pair( Wire::IntfId( Wire::IntfId::Kind::ethernet, ( 1 + i / 4094 ) << interfaceShift ),
                 uint16_t( 1 + i % 4094 ) );
  }
};

template< class Key > struct Subject {
  using Value = typename Sets< Key >::Value;
  void add( const Key & key, const Value & value ) {
    members.findOrAdd( key, [ & ] { return value; } );
  }
  const Value * find( const Key & key ) const { return members.find( key ); }
  void erase( const Key & key ) { members.erase( key ); }
  template< class Visit > void walk( Visit && visit ) const {
    for ( const auto & member : members.range() ) {
      visit( member.key, member.value );
    }
  }
  template< class Visit > void walkUnderChange( Visit && visit ) { walk( visit ); }
  Vex::Collection< Key, Value > members;
};

template< class Key >
using Plain = Bench::PlainDictionary< Key, typename Sets< Key >::Value, PlainHash >;

template< class Key > struct Standard {
  using Value = typename Sets< Key >::Value;
  void add( const Key & key, const Value & value ) { members.emplace( key, value ); }
  const Value * find( const Key & key ) const {
    const auto at = members.find( key );
    return at == members.end() ? nullptr : &at->second;
  }
  void erase( const Key & key ) { members.erase( key ); }
  template< class Visit > void walk( Visit && visit ) const {
    for ( const auto & [ key, value ] : members ) {
      visit( key, value );
    }
  }
  // Over a copy of the keys, for its iterators do not outlive what they stand on.
  template< class Visit > void walkUnderChange( Visit && visit ) {
    std::vector< Key > keys;
    keys.reserve( members.size() );
    for ( const auto & [ key, value ] : members ) {
      keys.push_back( key );
    }
    for ( const auto & key : keys ) {
      if ( const auto at = members.find( key ); at != members.end() ) {
        const Value value = at->second;
        visit( key, value );
      }
    }
  }
  std::unordered_map< Key, Value, StandardHash > members;
};

enum class Order { random, sequential };

// The keys that stand, in order of insertion and shuffled, and as many others.
template< class Key > struct Keys {
  Keys( size_t count, Order order ) {
    std::mt19937_64 draw( 1 );
    for ( uint64_t i = 0; i < 2 * count; ++i ) {
      const auto key =
          order == Order::random ? Sets< Key >::random( draw ) : Sets< Key >::sequential( i );
      ( i < count ? standing : others ).push_back( key );
    }
    shuffled = standing;
    std::shuffle( shuffled.begin(), shuffled.end(), draw );
    if ( order == Order::random ) {
      std::shuffle( others.begin(), others.end(), draw );
    }
  }
  std::vector< Key > standing, shuffled, others;
};

template< class C, class Key > std::unique_ptr< C > filled( const Keys< Key > & keys ) {
  auto all = std::make_unique< C >();
  for ( size_t i = 0; i < keys.standing.size(); ++i ) {
    all->add( keys.standing[ i ], Sets< Key >::value( i ) );
  }
  return all;
}

// What a round works on: an empty container, one filled for it, or one filled for all rounds,
// which they only read.
enum class Start { empty, filled, shared };

template< class C, Start start, class Key, class Work >
auto contender( const Keys< Key > & keys, Work work ) {
  std::shared_ptr< C > shared = start == Start::shared ? filled< C >( keys ) : nullptr;
  return [ &keys, work, shared ] {
    std::shared_ptr< C > all = start == Start::shared   ? shared
                               : start == Start::filled ? filled< C >( keys )
                                                        : std::make_shared< C >();
    return [ &keys, work, all ] { work( *all, keys ); };
  };
}

const auto insert = []( auto & all, const auto & keys ) {
  using Key = std::remove_cvref_t< decltype( keys.standing[ 0 ] ) >;
  for ( size_t i = 0; i < keys.standing.size(); ++i ) {
    all.add( keys.standing[ i ], Sets< Key >::value( i ) );
  }
};
const auto hit = []( const auto & all, const auto & keys ) {
  uint64_t sum = 0;
  for ( const auto & key : keys.shuffled ) {
    sum += number( *all.find( key ) );
  }
  benchmark::DoNotOptimize( sum );
};
const auto miss = []( const auto & all, const auto & keys ) {
  uint64_t found = 0;
  for ( const auto & key : keys.others ) {
    found += all.find( key ) != nullptr;
  }
  benchmark::DoNotOptimize( found );
};
const auto erase = []( auto & all, const auto & keys ) {
  for ( const auto & key : keys.shuffled ) {
    all.erase( key );
  }
};
const auto churn = []( auto & all, const auto & keys ) {
  using Key = std::remove_cvref_t< decltype( keys.standing[ 0 ] ) >;
  for ( size_t i = 0; i < keys.shuffled.size(); ++i ) {
    all.erase( keys.shuffled[ i ] );
    all.add( keys.others[ i ], Sets< Key >::value( i ) );
  }
};
const auto walk = []( const auto & all, const auto & ) {
  uint64_t sum = 0;
  all.walk( [ & ]( const auto &, const auto & value ) { sum += number( value ); } );
  benchmark::DoNotOptimize( sum );
};
// At every fourth member one other, visited or not yet, goes and a new one comes.
const auto walkUnderChange = []( auto & all, const auto & keys ) {
  using Key = std::remove_cvref_t< decltype( keys.standing[ 0 ] ) >;
  uint64_t sum = 0;
  size_t visited = 0;
  all.walkUnderChange( [ & ]( const auto &, const auto & value ) {
    sum += number( value );
    if ( visited++ % 4 == 0 ) {
      const size_t i = visited / 4;
      all.erase( keys.shuffled[ i ] );
      all.add( keys.others[ i ], Sets< Key >::value( i ) );
    }
  } );
  benchmark::DoNotOptimize( sum );
};

// Rounds that only read go over few members several times, so that what the caches hold at a
// round's beginning, which is the contender's before, weighs little.
template< Start start, class Key, class Work >
void measure( benchmark::State & state, const Keys< Key > & keys, Work work ) {
  const size_t members = keys.standing.size();
  const size_t passes = start == Start::shared ? std::max< size_t >( 1, ( 1 << 20 ) / members ) : 1;
  const auto all = [ = ]( auto & container, const auto & keys ) {
    for ( size_t pass = 0; pass < passes; ++pass ) {
      work( container, keys );
    }
  };
  Bench::compareWith( state, double( passes * members ), { "plain", "standard" },
                      contender< Subject< Key >, start >( keys, all ),
                      contender< Plain< Key >, start >( keys, all ),
                      contender< Standard< Key >, start >( keys, all ) );
}

template< class Key > void registerAll( const std::string & keyName, Order order, int count ) {
  const auto keys = std::make_shared< Keys< Key > >( count, order );
  const auto add = [ & ]< Start start >( const char * name, auto work,
                                         std::integral_constant< Start, start > ) {
    benchmark::RegisterBenchmark(
        ( std::string( name ) + "/" + keyName + "/" + std::to_string( count ) ).c_str(),
        [ = ]( benchmark::State & state ) { measure< start >( state, *keys, work ); } )
        ->UseManualTime()
        ->Unit( benchmark::kMillisecond );
  };
  const std::integral_constant< Start, Start::empty > empty;
  const std::integral_constant< Start, Start::filled > filled;
  const std::integral_constant< Start, Start::shared > shared;
  add( "insert", insert, empty );
  add( "hit", hit, shared );
  add( "miss", miss, shared );
  add( "erase", erase, filled );
  add( "churn", churn, filled );
  add( "walk", walk, shared );
  add( "walkUnderChange", walkUnderChange, filled );
}

// Bytes a member at the worst moment, just after growth.
void bytesAMember( benchmark::State & state ) {
  Vex::Collection< Word, Words > all;
  double worst = 0;
  for ( auto _ : state ) {
    size_t before = 0;
    for ( Word i = 0; i < 2000000; ++i ) {
      all.findOrAdd( i, [] { return Words(); } );
      if ( all.size() > 16 && all.memory() != before ) {
        before = all.memory();
        worst = std::max( worst, double( before ) / all.size() );
      }
    }
  }
  state.counters[ "bytes" ] = worst;
}
BENCHMARK( bytesAMember )->Iterations( 1 );

const bool registered = [] {
  for ( const int count : { 1 << 16, 1 << 20 } ) {
    registerAll< Word >( "word/random", Order::random, count );
    registerAll< Word >( "word/sequential", Order::sequential, count );
    registerAll< Pair >( "pair/random", Order::random, count );
    registerAll< Pair >( "pair/sequential", Order::sequential, count );
  }
  return true;
}();

} // namespace
