// The index of a Vex::Collection: cache-line chunks of twelve one-byte tags and their slot
// numbers, which count what overflowed past them, so that removal leaves no tombstone (the
// scheme of Bronson and Shi's F14 tables). Keys stay with the collection.
#pragma once

#include "Vex/Hash.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <utility>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace Vex::Detail {

constexpr uint32_t noSlot = UINT32_MAX;

// `bytes` that begin with the `used` ones of `old`, which is freed; null has none. What is large
// lies in huge pages where the system has them, for it is used at random, and what comes after
// its head begins a cache line. For freeMemory, with as many bytes.
constexpr size_t memoryHead = 16;
void * grownMemory( void * old, size_t used, size_t bytes );
void freeMemory( void * memory, size_t bytes );

struct alignas( 64 ) IndexChunk {
  static constexpr uint32_t width = 12;
  static constexpr uint32_t maxLoad = 10;

  uint8_t tags[ width ];
  uint32_t overflow; // members that belong here or passed here and stand in a later chunk
  uint32_t slots[ width ];

#ifdef __SSE2__
  __m128i line() const {
    return _mm_load_si128( reinterpret_cast< const __m128i * >( tags ) );
  }
  // A tag in every byte: of whole words, as a byte stored and loaded wider would be waited for.
  static __m128i everywhere( uint32_t tag ) {
    return _mm_set1_epi32( static_cast< int >( tag * 0x01010101u ) );
  }
  uint32_t match( uint32_t tag ) const {
    return static_cast< uint32_t >(
               _mm_movemask_epi8( _mm_cmpeq_epi8( line(), everywhere( tag ) ) ) ) &
           0xFFFu;
  }
  // Stored as it is loaded, for what is used next is often in the same chunk.
  void put( uint32_t i, uint32_t tag ) {
    const __m128i places = _mm_setr_epi8( 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15 );
    const __m128i place = _mm_cmpeq_epi8( places, everywhere( i ) );
    const __m128i changed = _mm_or_si128( _mm_andnot_si128( place, line() ),
                                          _mm_and_si128( place, everywhere( tag ) ) );
    _mm_store_si128( reinterpret_cast< __m128i * >( tags ), changed );
  }
#else
  uint32_t match( uint32_t tag ) const {
    uint32_t found = 0;
    for ( uint32_t i = 0; i < width; ++i ) {
      found |= static_cast< uint32_t >( tags[ i ] == tag ) << i;
    }
    return found;
  }
  void put( uint32_t i, uint32_t tag ) {
    tags[ i ] = static_cast< uint8_t >( tag );
  }
#endif
};

class CollectionIndex {
public:
  CollectionIndex() = default;
  CollectionIndex( const CollectionIndex & ) = delete;
  CollectionIndex & operator=( const CollectionIndex & ) = delete;
  ~CollectionIndex() { clear(); }

  bool stands() const { return chunks_; }
  void clear();

  // How many members it has room for.
  uint64_t room() const { return stands() ? chunkCount() * IndexChunk::maxLoad : 0; }
  size_t memory() const { return stands() ? chunkCount() * sizeof( IndexChunk ) : 0; }

  // Makes an empty index with room for so many members.
  void makeFor( uint32_t members );

  // The slot under `hash` for which `holdsKey( slot )` is true, or noSlot. As members come and go,
  // every chunk can come to have one that passed it: what is not there ends after a round.
  template< class HoldsKey >
  uint32_t find( const ContainerHash & hash, HoldsKey && holdsKey ) const {
    Probe probe( hash, shift_ );
    const uint32_t first = probe.at;
    do {
      const IndexChunk & chunk = chunks_[ probe.at ];
      for ( uint32_t found = chunk.match( probe.tag ); found; found &= found - 1 ) {
        const uint32_t slot = chunk.slots[ std::countr_zero( found ) ];
        if ( holdsKey( slot ) ) [[likely]] {
          return slot;
        }
      }
      if ( chunk.overflow == 0 ) [[likely]] {
        return noSlot;
      }
      probe.advance();
    } while ( probe.at != first );
    return noSlot;
  }
  void enter( const ContainerHash & hash, uint32_t slot ) {
    for ( Probe probe( hash, shift_ );; probe.advance() ) {
      IndexChunk & chunk = chunks_[ probe.at ];
      if ( const uint32_t free = chunk.match( 0 ) ) [[likely]] {
        const auto i = static_cast< uint32_t >( std::countr_zero( free ) );
        chunk.put( i, probe.tag );
        chunk.slots[ i ] = slot;
        return;
      }
      ++chunk.overflow;
    }
  }
  // `slot` must stand under `hash`.
  void erase( const ContainerHash & hash, uint32_t slot ) {
    for ( Probe probe( hash, shift_ );; probe.advance() ) {
      IndexChunk & chunk = chunks_[ probe.at ];
      for ( uint32_t found = chunk.match( probe.tag ); found; found &= found - 1 ) {
        const auto i = static_cast< uint32_t >( std::countr_zero( found ) );
        if ( chunk.slots[ i ] == slot ) [[likely]] {
          chunk.put( i, 0 );
          return;
        }
      }
      --chunk.overflow;
    }
  }
  void prefetch( const ContainerHash & hash ) const {
    __builtin_prefetch( &chunks_[ Probe( hash, shift_ ).at ], 1 );
  }

private:
  // The chunks that a hash leads to, one after the other.
  struct Probe {
    Probe( const ContainerHash & hash, uint32_t shift )
        : mask( static_cast< uint32_t >( uint64_t( UINT32_MAX ) >> shift ) ),
          at( ( static_cast< uint32_t >( ( hash.spread >> 32 ) >> shift ) ^ hash.neighbour() ) &
              mask ),
          tag( hash.tag() ) {}
    void advance() { at = ( at + 2 * tag + 1 ) & mask; }

    uint32_t mask;
    uint32_t at;
    uint32_t tag;
  };

  // Of the index that stands.
  size_t chunkCount() const { return ( uint64_t( UINT32_MAX ) >> shift_ ) + 1; }

  IndexChunk * chunks_ = nullptr;
  uint32_t shift_ = 0; // 32 less the binary logarithm of how many chunks there are
};

} // namespace Vex::Detail
