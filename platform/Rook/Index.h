// One index of a table, as look-ups probe it: from the bucket where a key's search begins, one
// after the other, to the record's or to an empty one. Searches begin at every eighth, so that
// eight are looked at as one, which takes no branch to be guessed, and at most half of the buckets
// have records, so that hardly one is beyond the first eight. A bucket is a slot's number, above it
// a tag, some bits of the hash, a bit that is set, and on top a parity bit; 0 is empty, and a
// tombstone what has not the bit set and is not 0. One thread changes an index; any number, of
// other processes too, look up in it meanwhile.
#pragma once

#include "Rook/Format.h"

#include <array>
#include <cstring>

namespace Rook {

class Index {
public:
  Index() = default;
  // Of so many slots, a power of two.
  Index( Format::Bucket * buckets, uint32_t capacity )
      : buckets_( buckets ), slotMask_( capacity - 1 ),
        groupMask_( ( 2 * capacity - 1 ) / group * group ),
        groupShift_( 64 - std::countr_zero( 2 * capacity / group ) ) {
    tagMasks_.fill( setBit - 1 - slotMask_ );
  }

  // A table without records may have none.
  bool stands() const { return buckets_; }
  uint32_t buckets() const { return 2 * capacity(); }
  uint32_t capacity() const { return slotMask_ + 1; }

  // A guess at the slot of the record with this hash, the right one nearly always: that of the
  // bucket alike in the first eight. If there are none or several, it is any slot.
  [[gnu::always_inline]] uint32_t guess( const auto & hash ) const {
    using Quad [[gnu::vector_size( 16 )]] = uint32_t;
    using Pair [[gnu::vector_size( 16 )]] = uint64_t;
    static_assert( group * sizeof( Format::Bucket ) == 2 * sizeof( Quad ) );
    const auto load = []( const void * at ) {
      Quad quad;
      std::memcpy( &quad, at, sizeof( quad ) );
      return quad;
    };
    const Format::Bucket * const at = buckets_ + begin( hash );
    const Quad hashes = reinterpret_cast< Quad >( Pair{ tagWord( hash ) } );
    const Quad tags = __builtin_shufflevector( hashes, hashes, 1, 1, 1, 1 );
    const Quad masks = load( tagMasks_.data() );
    const auto alike = [ tags, masks ]( const Quad & buckets ) {
      return buckets & ( ( ( buckets ^ tags ) & masks ) == 0 );
    };
    Quad all = alike( load( at ) ) | alike( load( at + group / 2 ) );
    all |= __builtin_shufflevector( all, all, 2, 3, 2, 3 );
    all |= __builtin_shufflevector( all, all, 1, 1, 1, 1 );
    return all[ 0 ] & slotMask_;
  }

  // Where a record's bucket is, or would be.
  struct Found {
    uint32_t bucket; // the record's
    bool found = false;
    bool damaged = false; // by what was passed
  };
  // `isIt( slot )` says whether a slot has the record looked for.
  template< class Hash, class IsIt > Found find( const Hash & hash, IsIt && isIt ) const {
    uint32_t at = begin( hash );
    uint32_t seen = 0;
    for ( uint32_t left = buckets(); left; --left ) {
      const uint32_t bucket = buckets_[ at ].load( std::memory_order_acquire );
      if ( bucket == 0 ) {
        return { at, false, __builtin_parity( seen ) != 0 };
      }
      if ( ( bucket & setBit ) && ( ( bucket ^ tagOf( hash ) ) & tagMask() ) == 0 &&
           isIt( bucket & slotMask_ ) ) {
        return { at, true, false };
      }
      seen ^= bucket;
      at = after( at );
    }
    return { at, false, true };
  }

  // --- For the writer

  // The first bucket from where the search begins that has no slot.
  uint32_t place( const auto & hash ) const {
    uint32_t at = begin( hash );
    while ( load( at ) & setBit ) {
      at = after( at );
    }
    return at;
  }
  bool isEmpty( uint32_t at ) const { return load( at ) == 0; }
  void enter( uint32_t at, const auto & hash, uint32_t slot ) const {
    store( at, withParity( setBit | ( tagOf( hash ) & tagMask() ) | slot ) );
  }
  // How many buckets have become empty.
  uint32_t leave( uint32_t at ) const {
    if ( !isEmpty( after( at ) ) ) {
      store( at, tombstone );
      return 0;
    }
    uint32_t emptied = 0;
    do {
      store( at, 0 );
      ++emptied;
      at = ( at - 1 ) & ( buckets() - 1 );
    } while ( load( at ) == tombstone );
    return emptied;
  }
  void clear() const {
    for ( uint32_t at = 0; at < buckets(); ++at ) {
      store( at, 0 );
    }
  }

private:
  static constexpr uint32_t group = 8;

  static constexpr uint32_t parityBit = 1u << 31;
  static constexpr uint32_t setBit = 1u << 30;
  static constexpr uint32_t withParity( uint32_t bucket ) {
    return bucket | static_cast< uint32_t >( __builtin_parity( bucket ) ) * parityBit;
  }
  // Has a tag, but slot number 0, so that guesses need not make out whether the bit is set.
  static constexpr uint32_t tombstone = parityBit | setBit >> 1;

  // Keys have a hash of one or the other kind.
  uint32_t begin( uint64_t hash ) const { return static_cast< uint32_t >( hash ) & groupMask_; }
  uint32_t begin( const NeighbourHash & hash ) const {
    return ( static_cast< uint32_t >( hash.spread >> groupShift_ ) ^ hash.neighbour() ) * group;
  }
  static uint64_t tagWord( uint64_t hash ) { return hash; }
  static uint64_t tagWord( const NeighbourHash & hash ) { return hash.mixed(); }
  static uint32_t tagOf( const auto & hash ) {
    return static_cast< uint32_t >( tagWord( hash ) >> 32 );
  }
  uint32_t tagMask() const { return tagMasks_[ 0 ]; }
  uint32_t after( uint32_t at ) const { return ( at + 1 ) & ( buckets() - 1 ); }
  uint32_t load( uint32_t at ) const { return buckets_[ at ].load( std::memory_order_relaxed ); }
  void store( uint32_t at, uint32_t bucket ) const {
    buckets_[ at ].store( bucket, std::memory_order_release );
  }

  Format::Bucket * buckets_ = nullptr;
  uint32_t slotMask_ = 0;
  uint32_t groupMask_ = 0;
  std::array< uint32_t, 4 > tagMasks_{}; // the same one
  int groupShift_ = 0;
};

} // namespace Rook
