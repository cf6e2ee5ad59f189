// The index of a Vex::Collection: cache-line chunks of twelve one-byte tags and their slot
// numbers, which count what overflowed past them, so that removal leaves no tombstone (the
// scheme of Bronson and Shi's F14 tables). Keys stay with the collection.
#pragma once

#include "Vex/Hash.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace Vex::Detail {

struct alignas( 64 ) IndexChunk {
  static constexpr uint32_t width = 12;
  static constexpr uint32_t maxLoad = 10;

  uint8_t tags[ width ]; // from 1 to 255; 0 is an empty place
  uint32_t overflow;     // members that belong here or passed here and stand in a later chunk
  uint32_t slots[ width ];

  // One tag in every byte.
  using Tag [[gnu::vector_size( 16 )]] = uint8_t;

  static Tag tagOf( uint64_t lowByte ) {
    const Tag all = Tag{} + static_cast< uint8_t >( lowByte );
    return all - reinterpret_cast< Tag >( all == 0 ); // which is -1
  }
  static Tag emptyTag() { return Tag{}; }
  static uint32_t number( const Tag & tag ) { return tag[ 0 ]; }

  // Some places, a bit for each: the highest of `placeBits`. The first is lowest as the bytes are.
  static_assert( std::endian::native == std::endian::little );
  using Places = uint64_t;
  static size_t first( Places places ) {
    return static_cast< size_t >( std::countr_zero( places ) ) / placeBits;
  }
  Places match( const Tag & tag ) const { return placesOf( line() == tag ); }
  // Both store what is loaded, a whole line, for what is used next is often in the same chunk.
  void enter( size_t i, const Tag & tag ) { lineIs( line() | ( place( i ) & tag ) ); }
  void clear( size_t i ) { lineIs( line() & ~place( i ) ); }

private:
  using Alike [[gnu::vector_size( 16 )]] = signed char; // as a comparison has it
#if defined( __SSE2__ ) && !defined( VEX_PORTABLE_VECTORS )
  // The one step for which the compiler's vectors have no word and this processor has.
  static constexpr size_t placeBits = 1;
  static Places placesOf( const Alike & alike ) {
    return static_cast< Places >( _mm_movemask_epi8( reinterpret_cast< __m128i >( alike ) ) ) &
           0xFFF;
  }
#else
  static constexpr size_t placeBits = 4;
  static Places placesOf( const Alike & alike ) {
    using Pairs [[gnu::vector_size( 16 )]] = uint16_t;
    using Narrow [[gnu::vector_size( 8 )]] = uint8_t;
    const auto pairs = reinterpret_cast< Pairs >( alike );
    return reinterpret_cast< Places >( __builtin_convertvector( pairs >> 4, Narrow ) ) &
           0x888888888888;
  }
#endif
  static Tag load( const void * bytes ) {
    Tag tag;
    std::memcpy( &tag, bytes, sizeof( tag ) );
    return tag;
  }
  static Tag place( size_t i ) {
    alignas( 32 ) static constexpr uint8_t places[ 32 ] = { 0, 0, 0, 0, 0, 0, 0, 0,
                                                            0, 0, 0, 0, 0, 0, 0, 0xFF };
    return load( places + 15 - i );
  }
  // The tags and the count of members that passed.
  Tag line() const {
    return load( this );
  }
  void lineIs( const Tag & line ) {
    std::memcpy( this, &line, sizeof( line ) );
  }
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
    IndexChunk::Places found;

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
      for ( auto found = chunk.match( next.tag ); found; found &= found - 1 ) {
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
    const auto free = chunk.match( IndexChunk::emptyTag() );
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
