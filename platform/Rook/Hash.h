// The hash of a table's keys, which is a part of its file's layout: what changes here needs another
// layout version. Keys are values of one word, or made of such.
#pragma once

#include "Vex/Value.h"

#include <cstdint>
#include <tuple>

namespace Rook {

constexpr uint64_t goldenRatio = 0x9E3779B97F4A7C15;

constexpr uint64_t foldWord( uint64_t hash, uint64_t word ) {
  return Vex::foldedProduct( hash ^ word, goldenRatio );
}

// Every word of a key, each mixed whole.
template< class Key > constexpr uint64_t foldKey( uint64_t hash, const Key & key ) {
  if constexpr ( Vex::HasWord< Key > ) {
    return foldWord( hash, Vex::wordOf( key ) );
  } else {
    std::apply(
        [ & ]( const auto &... field ) { ( ( hash = foldKey( hash, key.*field.member ) ), ... ); },
        Key::vexFields() );
    return hash;
  }
}

// Of a word of 32 bits. Those that differ in their two low bits alone share a group of buckets, the
// next four bits choose among neighbouring groups, and all above them is spread.
struct NeighbourHash {
  constexpr explicit NeighbourHash( uint32_t hashed )
      : spread( ( hashed >> 6 ) * uint64_t( 0x6408CBA6AB22F2C7 ) ), word( hashed ) {}

  constexpr uint32_t neighbour() const { return word >> 2 & 15; }
  constexpr uint64_t mixed() const { return ( spread + word ) * 0xD1342543DE82EF95; }

  uint64_t spread; // its upper bits choose the group
  uint32_t word;
};

// Words of 32 bits are numbers that are handed out, and used, one after the other: what they lead
// to in an index lies together then.
template< class Key > constexpr auto keyHash( const Key & key ) {
  if constexpr ( Vex::HasWord< Key > && sizeof( Key ) <= sizeof( uint32_t ) ) {
    return NeighbourHash( static_cast< uint32_t >( Vex::wordOf( key ) ) );
  } else {
    return foldKey( 0, key );
  }
}

} // namespace Rook
