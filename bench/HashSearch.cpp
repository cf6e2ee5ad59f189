// The search for the multipliers of the containers' hash (Vex/Hash.h): HashSearch [candidates
// [seed]]
//
// Odd numbers are drawn, and each is tried on patterns of keys, numbered as networks number ports,
// lanes, VLANs, tunnels and MAC addresses. Of every pattern as many members as an index of 64, 512
// and 4,096 lines has room for are counted by the line that they belong to, and those that find it
// full, as the thirteenth of a line does, are the multiplier's share. The one whose worst share is
// the smallest is chosen; of patterns held out, which have no say, the shares are printed too. The
// last field's multiplier is searched with keys of one field, the one before it with keys of two
// and three. The ranks are those of the multipliers in use among the candidates.
#include "KezEvpn/KezEvpn.h"
#include "Vex/detail/CollectionIndex.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <vector>

namespace {

using Vex::HashMultipliers;
using Wire::IntfId;

constexpr uint32_t sizes[] = { 64 * 10, 512 * 10, 4096 * 10 };

// The share of `members` keys that find their line full.
template< class Key >
double shareOf( const std::vector< Key > & keys, uint32_t members, HashMultipliers by ) {
  Vex::Detail::CollectionIndex index;
  index.makeFor( members );
  std::vector< uint32_t > lines( index.memory() / sizeof( Vex::Detail::IndexChunk ) );
  uint32_t late = 0;
  for ( uint32_t i = 0; i < members; ++i ) {
    const auto probe = index.probe( Vex::containerHash( keys[ i ], by ) );
    late += ++lines[ probe.offset / sizeof( Vex::Detail::IndexChunk ) ] >
            Vex::Detail::IndexChunk::width;
  }
  return double( late ) / members;
}

struct Shares {
  double average = 0;
  double worst = 0;
};

// Each adds the shares of one pattern.
using Pattern = std::function< void( HashMultipliers, std::vector< double > & ) >;
using Patterns = std::vector< Pattern >;

template< class KeyOf > void add( Patterns & patterns, const KeyOf & keyOf ) {
  std::vector< decltype( keyOf( 0u ) ) > keys;
  for ( uint32_t i = 0; i < std::end( sizes )[ -1 ]; ++i ) {
    keys.push_back( keyOf( i ) );
  }
  patterns.push_back( [ keys ]( HashMultipliers by, std::vector< double > & shares ) {
    for ( const uint32_t members : sizes ) {
      shares.push_back( shareOf( keys, members, by ) );
    }
  } );
}

Shares sharesOf( const Patterns & patterns, HashMultipliers by ) {
  std::vector< double > shares;
  for ( const auto & pattern : patterns ) {
    pattern( by, shares );
  }
  Shares all;
  for ( const double share : shares ) {
    all.average += share / double( shares.size() );
    all.worst = std::max( all.worst, share );
  }
  return all;
}

// Ethernet<slot>/<port>/<lane>, or with one number or two where the others have one value alone.
IntfId ethernet( uint32_t i, uint32_t ports, uint32_t lanes ) {
  uint64_t number = 1 + i / lanes / ports;
  if ( ports > 1 ) {
    number = number << IntfId::portBits | ( 1 + i / lanes % ports );
  }
  if ( lanes > 1 ) {
    number = number << IntfId::portBits | ( 1 + i % lanes );
  }
  const int numbers = 1 + ( ports > 1 ) + ( lanes > 1 );
  return IntfId( IntfId::Kind::ethernet, number << ( ( 3 - numbers ) * IntfId::portBits ) );
}

void addNumbers( Patterns & patterns, std::initializer_list< uint64_t > steps ) {
  for ( const uint64_t step : steps ) {
    add( patterns, [ = ]( uint32_t i ) { return i * step; } );
  }
}
void addPorts( Patterns & patterns,
               std::initializer_list< std::pair< uint32_t, uint32_t > > portsAndLanes ) {
  for ( const auto & [ ports, lanes ] : portsAndLanes ) {
    add( patterns, [ = ]( uint32_t i ) { return ethernet( i, ports, lanes ); } );
  }
}
// So many VLANs on each port.
void addVlans( Patterns & patterns, uint32_t ports, uint32_t lanes,
               std::initializer_list< uint32_t > vlanCounts ) {
  for ( const uint32_t vlans : vlanCounts ) {
    add( patterns, [ = ]( uint32_t i ) {
      return Kez::IntfVlanKey( ethernet( i / vlans, ports, lanes ), uint16_t( 1 + i % vlans ) );
    } );
    add( patterns, [ = ]( uint32_t i ) {
      return Kez::IntfVlanTunnelKey( ethernet( i / vlans, ports, lanes ), uint16_t( 1 + i % vlans ),
                                     i % 8 + 1 );
    } );
  }
}

struct Candidate {
  uint64_t multiplier;
  Shares searched;
  Shares heldOut;
};

template< class With >
void search( const char * name, uint64_t present, uint32_t candidates, std::mt19937_64 & draw,
             const Patterns & searched, const Patterns & heldOut, const With & with ) {
  const auto tried = [ & ]( uint64_t multiplier ) {
    return Candidate{ multiplier, sharesOf( searched, with( multiplier ) ),
                      sharesOf( heldOut, with( multiplier ) ) };
  };
  std::vector< Candidate > all;
  for ( uint32_t i = 0; i < candidates; ++i ) {
    all.push_back( tried( draw() | 1 ) );
  }
  const auto worst = []( const Candidate & a, const Candidate & b ) {
    return a.searched.worst < b.searched.worst;
  };
  const auto heldOutWorst = []( const Candidate & a, const Candidate & b ) {
    return a.heldOut.worst < b.heldOut.worst;
  };
  const Candidate inUse = tried( present );
  const auto rank = [ & ]( const auto & less ) {
    return 1 +
           std::ranges::count_if( all, [ & ]( const auto & one ) { return less( one, inUse ); } );
  };
  std::printf( "%s\n                              searched          held out\n"
               "                            average   worst   average   worst\n",
               name );
  const auto print = []( const char * what, const Candidate & one ) {
    std::printf( "  %-6s 0x%016llX %6.2f%% %6.2f%%   %6.2f%% %6.2f%%\n", what,
                 static_cast< unsigned long long >( one.multiplier ), 100 * one.searched.average,
                 100 * one.searched.worst, 100 * one.heldOut.average, 100 * one.heldOut.worst );
  };
  print( "chosen", *std::ranges::min_element( all, worst ) );
  print( "in use", inUse );
  std::ranges::nth_element( all, all.begin() + candidates / 2, worst );
  print( "middle", all[ candidates / 2 ] );
  std::printf( "  in use: rank %td of %u searched, %td held out\n", rank( worst ), candidates + 1,
               rank( heldOutWorst ) );
}

} // namespace

int main( int argc, char ** argv ) {
  const auto candidates =
      static_cast< uint32_t >( argc > 1 ? std::strtoul( argv[ 1 ], nullptr, 0 ) : 1000 );
  std::mt19937_64 draw( argc > 2 ? std::strtoull( argv[ 2 ], nullptr, 0 ) : 1 );

  Patterns words, otherWords;
  addNumbers( words, { 1, 2, 4, 8, 16, 64, 256, 1024, 4096, 65536, 1 << 20, 3, 10, 100, 1000 } );
  addPorts( words, { { 1, 1 }, { 48, 1 }, { 64, 1 }, { 32, 4 }, { 64, 4 }, { 36, 8 } } );
  addNumbers( otherWords, { 5, 6, 12, 32, 48, 96, 128, 250, 512, 2000, 4094, 10000, 1 << 24 } );
  addPorts( otherWords, { { 24, 1 }, { 52, 1 }, { 96, 1 }, { 16, 4 }, { 48, 4 }, { 18, 8 } } );

  Patterns pairs, otherPairs;
  addVlans( pairs, 1, 1, { 10, 100, 4094 } );
  addVlans( pairs, 64, 1, { 16, 200, 1000 } );
  addVlans( pairs, 32, 4, { 4, 50, 500 } );
  addVlans( otherPairs, 1, 1, { 7, 128, 2000 } );
  addVlans( otherPairs, 48, 1, { 12, 256, 4000 } );
  addVlans( otherPairs, 36, 8, { 5, 64, 300 } );

  Patterns random;
  add( random, [ &draw ]( uint32_t ) { return draw(); } );
  std::printf( "keys at random: %.2f%%\n",
               100 * sharesOf( random, Vex::containerMultipliers ).average );
  search( "last or only field", Vex::containerMultipliers.last, candidates, draw, words, otherWords,
          []( uint64_t last ) {
            return HashMultipliers{ Vex::containerMultipliers.before, last };
          } );
  search( "fields before the last", Vex::containerMultipliers.before, candidates, draw, pairs,
          otherPairs, []( uint64_t before ) {
            return HashMultipliers{ before, Vex::containerMultipliers.last };
          } );
}
