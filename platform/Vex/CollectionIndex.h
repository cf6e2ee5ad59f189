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
// About `bytes`, of whole huge pages where they lie in such.
size_t wholePages( size_t bytes );

struct alignas( 64 ) IndexChunk {
  static constexpr uint32_t width = 12;
  static constexpr uint32_t maxLoad = 10;

  // The first of some places, a bit for each.
  static size_t first( uint32_t places ) {
    return static_cast< size_t >( std::countr_zero( places ) );
  }

  uint8_t tags[ width ]; // from 1 to 255; 0 is an empty place
  uint32_t overflow;     // members that belong here or passed here and stand in a later chunk
  uint32_t slots[ width ];

#ifdef __SSE2__
  // One tag in every byte.
  using Tag = __m128i;

  static Tag tagOf( uint64_t lowByte ) {
    const __m128i one = _mm_cvtsi64_si128( static_cast< int64_t >( lowByte ) );
    const __m128i four = _mm_shufflelo_epi16( _mm_unpacklo_epi8( one, one ), 0 );
    return _mm_max_epu8( _mm_shuffle_epi32( four, 0 ), _mm_set1_epi8( 1 ) );
  }
  static Tag emptyTag() {
    return _mm_setzero_si128();
  }
  static uint32_t number( Tag tag ) {
    return static_cast< uint32_t >( _mm_cvtsi128_si32( tag ) ) & 0xFFu;
  }
  __m128i line() const {
    return _mm_load_si128( reinterpret_cast< const __m128i * >( tags ) );
  }
  // A bit for each place.
  uint32_t match( Tag tag ) const {
    return static_cast< uint32_t >( _mm_movemask_epi8( _mm_cmpeq_epi8( line(), tag ) ) ) & 0xFFFu;
  }
  // Both store what is loaded, a whole line, for what is used next is often in the same chunk.
  void enter( size_t i, Tag tag ) {
    lineIs( _mm_or_si128( line(), _mm_and_si128( place( i ), tag ) ) );
  }
  void clear( size_t i ) {
    lineIs( _mm_andnot_si128( place( i ), line() ) );
  }

private:
  static __m128i place( size_t i ) {
    alignas( 32 ) static constexpr uint8_t places[ 32 ] = { 0, 0, 0, 0, 0, 0, 0, 0,
                                                            0, 0, 0, 0, 0, 0, 0, 0xFF };
    return _mm_loadu_si128( reinterpret_cast< const __m128i * >( places + 15 - i ) );
  }
  void lineIs( __m128i line ) {
    _mm_store_si128( reinterpret_cast< __m128i * >( tags ), line );
  }
#else
  using Tag = uint8_t;

  static Tag tagOf( uint64_t lowByte ) {
    const auto tag = static_cast< uint8_t >( lowByte );
    return tag ? tag : 1;
  }
  static Tag emptyTag() {
    return 0;
  }
  static uint32_t number( Tag tag ) {
    return tag;
  }
  uint32_t match( Tag tag ) const {
    uint32_t found = 0;
    for ( uint32_t i = 0; i < width; ++i ) {
      found |= static_cast< uint32_t >( tags[ i ] == tag ) << i;
    }
    return found;
  }
  void enter( size_t i, Tag tag ) {
    tags[ i ] = tag;
  }
  void clear( size_t i ) {
    tags[ i ] = 0;
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

  // The chunks that a hash leads to, one after the other.
  struct Probe {
    uint64_t offset; // bytes
    IndexChunk::Tag tag;
  };
  // The tag is of bits well below the line's: those next to them are alike where keys follow each
  // other in unlucky steps.
  Probe probe( const ContainerHash & hash ) const {
    const uint64_t upper = hash.spread >> shift();
    // What is not of an offset, the shift among it, goes at last.
    const uint64_t line =
        ( upper >> 8 ) ^ ( ( hash.word << ( 6 - ContainerHash::neighbourShift ) ) & geometry_ );
    return { line & ~( sizeof( IndexChunk ) - 1 ), IndexChunk::tagOf( upper + hash.word ) };
  }

  // Where a slot's number stands; one word, so that it is handed over in a register.
  class Place {
  public:
    Place() = default;
    Place( IndexChunk & chunk, size_t i ) : number_( &chunk.slots[ i ] ) {}

    explicit operator bool() const { return number_; }
    uint32_t slot() const { return *number_; }
    IndexChunk & chunk() const {
      return *reinterpret_cast< IndexChunk * >( reinterpret_cast< char * >( number_ ) - inChunk() );
    }
    size_t i() const { return ( inChunk() - offsetof( IndexChunk, slots ) ) / sizeof( *number_ ); }

  private:
    uintptr_t inChunk() const {
      return reinterpret_cast< uintptr_t >( number_ ) % sizeof( IndexChunk );
    }

    uint32_t * number_ = nullptr;
  };

  // What a look-up sees first, which nearly always is all that there is to see: the candidates in
  // the first chunk. Who needs more calls `find`.
  struct Sight {
    IndexChunk & chunk;
    uint32_t found;

    bool isAll() const { return chunk.overflow == 0; }
    // The number of the first candidate's place.
    size_t first() const { return IndexChunk::first( found ); }
  };
  [[gnu::always_inline]] Sight look( const Probe & first ) const {
    IndexChunk & chunk = at( first );
    return { chunk, chunk.match( first.tag ) };
  }

  // Where the slot for which `holdsKey( slot )` is true stands. As members come and go, every
  // chunk can come to have one that passed it: what is not there ends after a round.
  template< class HoldsKey > Place find( const Probe & first, HoldsKey && holdsKey ) const {
    Probe next = first;
    do {
      IndexChunk & chunk = at( next );
      for ( uint32_t found = chunk.match( next.tag ); found; found &= found - 1 ) {
        const Place place{ chunk, IndexChunk::first( found ) };
        if ( holdsKey( place.slot() ) ) {
          return place;
        }
      }
      if ( chunk.overflow == 0 ) {
        break;
      }
      advance( next );
    } while ( next.offset != first.offset );
    return {};
  }
  [[gnu::always_inline]] void enter( const Probe & first, uint32_t slot ) {
    if ( !enterChunk( first, slot ) ) [[unlikely]] {
      enterFurther( first, slot );
    }
  }
  // `place` is where `first` led to.
  void erase( const Probe & first, Place place ) {
    for ( Probe next = first; &at( next ) != &place.chunk(); advance( next ) ) {
      --at( next ).overflow;
    }
    place.chunk().clear( place.i() );
  }
  void prefetch( const Probe & first ) const { __builtin_prefetch( &at( first ), 1 ); }

private:
  IndexChunk & at( const Probe & probe ) const {
    return *reinterpret_cast< IndexChunk * >( reinterpret_cast< char * >( chunks_ ) +
                                              probe.offset );
  }
  [[gnu::always_inline]] bool enterChunk( const Probe & probe, uint32_t slot ) {
    IndexChunk & chunk = at( probe );
    const uint32_t free = chunk.match( IndexChunk::emptyTag() );
    if ( !free ) {
      ++chunk.overflow;
      return false;
    }
    const size_t i = IndexChunk::first( free );
    chunk.enter( i, probe.tag );
    chunk.slots[ i ] = slot;
    return true;
  }
  void enterFurther( Probe next, uint32_t slot );
  void advance( Probe & probe ) const {
    const uint64_t step = ( 2 * IndexChunk::number( probe.tag ) + 1 ) * sizeof( IndexChunk );
    probe.offset = ( probe.offset + step ) & ( memory() - 1 );
  }

  // Of the index that stands.
  size_t chunkCount() const { return size_t( 1 ) << ( shiftOfOne - shift() ); }
  // What leaves the upper bits of a hash as a chunk, 6 bits, and a tag.
  uint32_t shift() const { return geometry_ & 63; }

  static constexpr uint32_t shiftOfOne = 50; // chunk: its number has no bits, an offset 6, a tag 8
  IndexChunk * chunks_ = nullptr;
  uint32_t geometry_ = 0; // the shift, and above it the bits of an offset that a neighbour changes
};

} // namespace Vex::Detail
