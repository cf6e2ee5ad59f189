// One index of a table, as look-ups probe it: from the bucket where a key's search begins, one
// after the other, to the record's or to an empty one. Searches begin at every eighth, so that
// eight are looked at as one, which takes no branch to be guessed. A bucket is a slot's number plus
// 1, above it a tag, some bits of the hash, and on top a parity bit; 0 is empty, and number 0 a
// tombstone.
#pragma once

#include "Rook/Format.h"

#include <array>
#include <cstring>

namespace Rook {

class Index {
public:
  Index() = default;
  Index( Format::Bucket * buckets, uint32_t level )
      : buckets_( buckets ), count_( Format::bucketsOf( level ) ),
        capacity_( Format::capacityOf( level ) ), slotBits_( Format::firstSlotBits + level + 1 ) {}

  // A table without records may have none.
  bool stands() const { return buckets_; }
  uint32_t buckets() const { return count_; }
  uint32_t capacity() const { return capacity_; }

  struct Found {
    uint32_t bucket; // the record's
    bool found = false;
    bool damaged = false; // by what was passed
  };
  // `isIt( slot )` says whether a slot has the record looked for.
  template< class IsIt > Found find( uint64_t hash, IsIt && isIt ) const {
    const uint32_t at = begin( hash );
    // Mostly the record's bucket is in the first group, where one look finds it. What is not is
    // looked for exactly.
    for ( uint32_t alike = alikeIn( at, tagOf( hash ) ); alike; alike &= alike - 1 ) {
      const uint32_t bucket = at + lowestOf[ alike ];
      if ( isAt( bucket, isIt ) ) {
        return { bucket, true, false };
      }
    }
    return findFrom( at, hash, isIt );
  }

  // --- For the writer

  // The first bucket from where the search begins that has no slot.
  uint32_t place( uint64_t hash ) const {
    uint32_t at = begin( hash );
    while ( slotOf( load( at ) ) < capacity_ ) {
      at = after( at );
    }
    return at;
  }
  bool isEmpty( uint32_t at ) const { return load( at ) == 0; }
  void enter( uint32_t at, uint64_t hash, uint32_t slot ) const {
    store( at, withParity( tagOf( hash ) | ( slot + 1 ) ) );
  }
  // How many buckets have become empty.
  uint32_t leave( uint32_t at ) const {
    if ( !isEmpty( after( at ) ) ) {
      store( at, tombstone() );
      return 0;
    }
    uint32_t emptied = 0;
    do {
      store( at, 0 );
      ++emptied;
      at = at == 0 ? count_ - 1 : at - 1;
    } while ( load( at ) == tombstone() );
    return emptied;
  }
  void clear() const {
    for ( uint32_t at = 0; at < count_; ++at ) {
      buckets_[ at ].store( 0, std::memory_order_relaxed );
    }
  }

private:
  static constexpr uint32_t group = 8;
  static_assert( Format::bucketsOf( 0 ) % group == 0 );

  // The lowest bit that is set. The processor's own instruction waits for what was in the register
  // that it writes, which is a record looked up before.
  static constexpr auto lowestOf = [] {
    std::array< uint8_t, 1u << group > all{};
    for ( uint32_t i = 1; i < all.size(); ++i ) {
      all[ i ] = static_cast< uint8_t >( std::countr_zero( i ) );
    }
    return all;
  }();

  // The buckets of a group that have the tag, a bit each. What is loaded here is a hint that is
  // verified, so that it may be loaded in one.
  uint32_t alikeIn( uint32_t at, uint32_t tag ) const {
    using Group [[gnu::vector_size( group * sizeof( uint32_t ) )]] = uint32_t;
    Group buckets;
    std::memcpy( &buckets, static_cast< const void * >( &buckets_[ at ] ), sizeof( buckets ) );
    const auto other = ( ( buckets ^ tag ) & tagMask() ) != 0;
    uint32_t alike = 0;
    for ( uint32_t i = 0; i < group; ++i ) {
      alike |= static_cast< uint32_t >( other[ i ] + 1 ) << i;
    }
    return alike;
  }

  template< class IsIt > bool isAt( uint32_t bucket, IsIt && isIt ) const {
    const uint32_t slot = slotOf( buckets_[ bucket ].load( std::memory_order_acquire ) );
    return slot < capacity_ && isIt( slot );
  }

  template< class IsIt >
  [[gnu::noinline]] Found findFrom( uint32_t at, uint64_t hash, IsIt && isIt ) const {
    uint32_t seen = 0;
    for ( uint32_t left = count_; left; --left ) {
      const uint32_t bucket = buckets_[ at ].load( std::memory_order_acquire );
      if ( bucket == 0 ) {
        return { at, false, __builtin_parity( seen ) != 0 };
      }
      if ( ( ( bucket ^ tagOf( hash ) ) & tagMask() ) == 0 && isAt( at, isIt ) ) {
        return { at, true, false };
      }
      seen ^= bucket;
      at = after( at );
    }
    return { at, false, true };
  }

  static constexpr uint32_t withParity( uint32_t bucket ) {
    return bucket | static_cast< uint32_t >( __builtin_parity( bucket ) ) << 31;
  }
  uint32_t begin( uint64_t hash ) const {
    return static_cast< uint32_t >( ( hash >> 32 ) * ( count_ / group ) >> 32 ) * group;
  }
  uint32_t tagOf( uint64_t hash ) const {
    return static_cast< uint32_t >( hash ) << slotBits_ & ~( 1u << 31 );
  }
  uint32_t tagMask() const { return ( 1u << 31 ) - ( 1u << slotBits_ ); }
  uint32_t tombstone() const { return withParity( 1u << slotBits_ ); }
  uint32_t after( uint32_t at ) const { return at + 1 == count_ ? 0 : at + 1; }
  // Beyond the capacity for what is none.
  uint32_t slotOf( uint32_t bucket ) const { return ( bucket & ( ( 1u << slotBits_ ) - 1 ) ) - 1; }
  uint32_t load( uint32_t at ) const { return buckets_[ at ].load( std::memory_order_relaxed ); }
  void store( uint32_t at, uint32_t bucket ) const {
    buckets_[ at ].store( bucket, std::memory_order_release );
  }

  Format::Bucket * buckets_ = nullptr;
  uint32_t count_ = 0;
  uint32_t capacity_ = 0;
  unsigned slotBits_ = 0;
};

} // namespace Rook
