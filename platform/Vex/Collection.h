// The one container of the system: members under unique keys, kept in insertion order.
//
// Members live in the slots of one array, linked in order by slot number; a freed slot is reused
// and nothing is ever compacted. Beside it stands an index of cache-line chunks, twelve one-byte
// tags and their slot numbers each, that counts what overflowed past it, so that removal leaves
// no tombstone (the scheme of Bronson and Shi's F14 tables). Up to eight members there is no
// index, with none no memory.
//
// A walk visits the members that stood when it began and are still there when it reaches them,
// in insertion order, whatever is added and removed meanwhile; a member that is removed and
// added again stands at the end and is not visited. Walks hand out copies. References that
// `find` gives are good until the collection changes.
#pragma once

#include "Vex/Hash.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace Vex {

// The value type of a set.
struct NoValue {
  friend bool operator==( NoValue, NoValue ) = default;
};

// How a key or value is passed: small flat ones by value.
template< class T >
using Arg =
    std::conditional_t< std::is_trivially_copyable_v< T > && sizeof( T ) <= 16, T, const T & >;

// Whether an object may be moved to another address by copying its bytes, as flat types may and
// classes that say so with a member type VexRelocatable.
template< class T >
concept Relocatable = std::is_trivially_copyable_v< T > || requires {
  typename T::VexRelocatable;
};

namespace Detail {

constexpr uint32_t noSlot = UINT32_MAX;

struct alignas( 64 ) IndexChunk {
  static constexpr uint32_t width = 12;
  static constexpr uint32_t maxLoad = 10;

  uint8_t tags[ width ];
  uint32_t overflow; // members that belong here or passed here and stand in a later chunk
  uint32_t slots[ width ];

  uint32_t match( uint8_t tag ) const {
#ifdef __SSE2__
    const __m128i line = _mm_load_si128( reinterpret_cast< const __m128i * >( tags ) );
    const __m128i equal = _mm_cmpeq_epi8( line, _mm_set1_epi8( static_cast< char >( tag ) ) );
    return static_cast< uint32_t >( _mm_movemask_epi8( equal ) ) & 0xFFFu;
#else
    uint32_t found = 0;
    for ( uint32_t i = 0; i < width; ++i ) {
      found |= static_cast< uint32_t >( tags[ i ] == tag ) << i;
    }
    return found;
#endif
  }
};

struct HashParts {
  explicit HashParts( uint64_t hash )
      : tag( static_cast< uint8_t >( hash >> 56 ) | 0x80 ),
        chunk( static_cast< uint32_t >( hash ) ), step( 2u * tag + 1 ) {}
  uint8_t tag;
  uint32_t chunk;
  uint32_t step;
};

} // namespace Detail

template< class Key, class Value = NoValue > class Collection {
  struct Slot {
    uint32_t next;
    uint32_t prev;
    Key key;
    [[no_unique_address]] Value value;
  };
  // What stands before the slots.
  struct Header {
    uint32_t head;
    uint32_t tail;
    uint32_t free;     // freed slots, linked by next
    uint32_t used;     // slots below this have been handed out
    uint32_t capacity; // slots
    uint32_t chunks;   // of the index, a power of two, or 0
  };
  static constexpr size_t headerSize =
      ( sizeof( Header ) + alignof( Slot ) - 1 ) / alignof( Slot ) * alignof( Slot );
  static constexpr bool flat =
      std::is_trivially_copyable_v< Key > && std::is_trivially_copyable_v< Value >;
  static constexpr bool relocatable = Relocatable< Key > && Relocatable< Value >;
  static constexpr uint32_t noSlot = Detail::noSlot;
  static constexpr uint32_t indexFrom = 9;

public:
  template< class Given > struct MemberOf {
    Key key;
    [[no_unique_address]] Given value;
  };
  using Member = MemberOf< Value >;

  // One pass over the members. Stands on a member while `valid()`.
  class Walk {
  public:
    Walk( const Walk & ) = delete;
    Walk & operator=( const Walk & ) = delete;
    ~Walk() {
      if ( collection_ ) {
        collection_->leave( this );
      }
    }

    bool valid() const { return at_ != noSlot; }
    bool operator!=( std::nullptr_t ) const { return valid(); }
    Walk & operator++() {
      enter( next_ );
      return *this;
    }
    Key key() const { return collection_->slot( at_ ).key; }
    // Whether a member is left after the one that the walk stands on.
    bool more() const { return next_ != noSlot; }
    Key nextKey() const { return collection_->slot( next_ ).key; }

  protected:
    friend class Collection;
    Walk( const Collection * collection, uint32_t from )
        : collection_( collection ), outer_( collection->walks_ ) {
      join();
      last_ = from == noSlot ? noSlot : collection->header().tail;
      enter( from );
    }
// The destructor leaves, which g++ 12 does not see.
#if defined( __GNUC__ ) && !defined( __clang__ )
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdangling-pointer"
#endif
    void join() {
      collection_->walks_ = this;
    }
#if defined( __GNUC__ ) && !defined( __clang__ )
#pragma GCC diagnostic pop
#endif
    void enter( uint32_t slot ) {
      at_ = slot;
      next_ = slot == noSlot || slot == last_ ? noSlot : collection_->slot( slot ).next;
    }
    // `slot` is about to be freed.
    void leaveOut( uint32_t slot ) {
      if ( next_ == slot ) {
        next_ = slot == last_ ? noSlot : collection_->slot( slot ).next;
      }
      if ( last_ == slot ) {
        last_ = collection_->slot( slot ).prev;
      }
    }

    const Collection * collection_;
    Walk * outer_;
    uint32_t at_;
    uint32_t next_;
    uint32_t last_;
  };

  // A walk that hands values out as `Given`.
  template< class Given > class WalkOf : public Walk {
  public:
    auto operator*() const {
      const Slot & slot = this->collection_->slot( this->at_ );
      if constexpr ( std::is_same_v< Value, NoValue > ) {
        return Key( slot.key );
      } else {
        return MemberOf< Given >{ slot.key, slot.value };
      }
    }

  private:
    friend class Collection;
    WalkOf( const Collection * collection, uint32_t from ) : Walk( collection, from ) {}
  };

  // A range for range-based for, from the first member or from a given one.
  template< class Given > class RangeOf {
  public:
    explicit RangeOf( const Collection * collection, uint32_t from = noSlot )
        : collection_( collection ), from_( from ) {}
    WalkOf< Given > begin() const {
      return WalkOf< Given >( collection_, from_ == noSlot ? collection_->first() : from_ );
    }
    std::nullptr_t end() const { return nullptr; }
    uint32_t size() const { return collection_->size(); }
    // From the member with this key, which must stand when the walk begins; from the first when
    // it is absent or none is given.
    RangeOf from( const std::optional< Key > & key ) const {
      return RangeOf( collection_, key ? collection_->findSlot( *key ) : noSlot );
    }

  private:
    const Collection * collection_;
    uint32_t from_; // the first when it is noSlot
  };

  Collection() = default;
  Collection( const Collection & ) = delete;
  Collection & operator=( const Collection & ) = delete;
  ~Collection() {
    clear();
    for ( Walk * walk = walks_; walk; walk = walk->outer_ ) {
      walk->collection_ = nullptr;
    }
  }

  uint32_t size() const {
    return size_;
  }
  bool empty() const {
    return size_ == 0;
  }
  bool has( const Key & key ) const {
    return findSlot( key ) != noSlot;
  }

  const Value * find( const Key & key ) const {
    const uint32_t at = findSlot( key );
    return at == noSlot ? nullptr : &slot( at ).value;
  }
  Value * find( const Key & key ) {
    return const_cast< Value * >( std::as_const( *this ).find( key ) );
  }

  // The value under `key`, and whether it was added (with `make()` as its value) just now.
  // `make` must leave this collection alone.
  template< class Make > std::pair< Value *, bool > findOrAdd( const Key & key, Make && make ) {
    const uint64_t hash = index_ ? hashOf( key ) : 0;
    uint32_t at = findSlot( key, hash );
    if ( at != noSlot ) {
      return { &slot( at ).value, false };
    }
    Value value( make() );
    at = takeSlot();
    Slot & fresh = slot( at );
    new ( &fresh.key ) Key( key );
    new ( &fresh.value ) Value( std::move( value ) );
    link( at );
    ++size_;
    if ( index_ || size_ >= indexFrom ) {
      indexInsert( at );
    }
    return { &slot( at ).value, true };
  }
  bool add( const Key & key ) requires std::is_same_v< Value, NoValue > {
    return findOrAdd( key, [] { return NoValue(); } ).second;
  }

  // Makes room for so many members in all.
  void reserve( uint32_t members ) {
    const auto [ capacity, chunks ] =
        block_ ? std::pair( header().capacity, header().chunks ) : std::pair( 0u, 0u );
    if ( members > capacity ) {
      growSlots( members );
    }
    if ( members >= indexFrom && members > chunks * Detail::IndexChunk::maxLoad ) {
      rebuildIndex( std::bit_ceil( members / Detail::IndexChunk::maxLoad + 1 ) );
    }
  }

  bool erase( const Key & key ) {
    const uint64_t hash = index_ ? hashOf( key ) : 0;
    const uint32_t at = findSlot( key, hash );
    if ( at == noSlot ) {
      return false;
    }
    if ( index_ ) {
      indexErase( at, hash );
    }
    for ( Walk * walk = walks_; walk; walk = walk->outer_ )
      [[unlikely]] {
        walk->leaveOut( at );
      }
    unlink( at );
    Slot & gone = slot( at );
    // Destroying the value can run code that uses this collection: all is in place by then.
    std::optional< Value > value( std::move( gone.value ) );
    std::destroy_at( &gone.value );
    std::destroy_at( &gone.key );
    gone.next = header().free;
    header().free = at;
    --size_;
    if ( size_ == 0 ) {
      freeMemory();
    }
    return true;
  }

  void clear() {
    for ( Walk * walk = walks_; walk; walk = walk->outer_ ) {
      walk->next_ = noSlot;
    }
    if ( !block_ ) {
      return;
    }
    void * block = std::exchange( block_, nullptr );
    auto * index = std::exchange( index_, nullptr );
    size_ = 0;
    if constexpr ( !flat ) {
      auto * slots = slotsOf( block );
      for ( uint32_t at = static_cast< Header * >( block )->head; at != noSlot; ) {
        Slot & gone = slots[ at ];
        at = gone.next;
        std::destroy_at( &gone.value );
        std::destroy_at( &gone.key );
      }
    }
    std::free( block );
    std::free( index );
  }

  // Values are handed out as `Given`, e.g. as pointers to constant entities.
  template< class Given = Value > RangeOf< Given > range() const {
    return RangeOf< Given >( this );
  }

  // Bytes allocated for members and index.
  size_t memory() const {
    return !block_ ? 0
                   : headerSize + header().capacity * sizeof( Slot ) +
                         header().chunks * sizeof( Detail::IndexChunk );
  }

private:
  static uint64_t hashOf( const Key & key ) {
    return containerHash( 0x243F6A8885A308D3ull, key );
  }
  static Slot * slotsOf( void * block ) {
    return reinterpret_cast< Slot * >( static_cast< char * >( block ) + headerSize );
  }
  Header & header() const {
    return *static_cast< Header * >( block_ );
  }
  Slot & slot( uint32_t at ) const {
    return slotsOf( block_ )[ at ];
  }
  uint32_t first() const {
    return size_ ? header().head : noSlot;
  }

  uint32_t findSlot( const Key & key ) const {
    return findSlot( key, index_ ? hashOf( key ) : 0 );
  }
  uint32_t findSlot( const Key & key, uint64_t hash ) const {
    if ( !index_ ) {
      if ( size_ ) {
        for ( uint32_t at = header().head; at != noSlot; at = slot( at ).next ) {
          if ( slot( at ).key == key ) {
            return at;
          }
        }
      }
      return noSlot;
    }
    const Detail::HashParts parts( hash );
    const uint32_t mask = mask_;
    const Slot * slots = slotsOf( block_ );
    for ( uint32_t at = parts.chunk & mask;; at = ( at + parts.step ) & mask ) {
      const Detail::IndexChunk & chunk = index_[ at ];
      for ( uint32_t found = chunk.match( parts.tag ); found; found &= found - 1 ) {
        const uint32_t candidate = chunk.slots[ std::countr_zero( found ) ];
        if ( slots[ candidate ].key == key ) [[likely]] {
          return candidate;
        }
      }
      if ( chunk.overflow == 0 ) [[likely]] {
        return noSlot;
      }
    }
  }

  uint32_t takeSlot() {
    if ( !block_ ) {
      growSlots( 2 );
    }
    if ( header().free != noSlot ) {
      const uint32_t at = header().free;
      header().free = slot( at ).next;
      return at;
    }
    if ( header().used == header().capacity ) {
      const uint32_t capacity = header().capacity;
      growSlots( capacity < 16 ? capacity * 2 : capacity + capacity / 2 );
    }
    return header().used++;
  }

  void link( uint32_t at ) {
    Header & all = header();
    slot( at ).prev = all.tail;
    slot( at ).next = noSlot;
    ( all.tail == noSlot ? all.head : slot( all.tail ).next ) = at;
    all.tail = at;
  }
  void unlink( uint32_t at ) {
    Header & all = header();
    const auto [ next, prev ] = std::pair( slot( at ).next, slot( at ).prev );
    ( prev == noSlot ? all.head : slot( prev ).next ) = next;
    ( next == noSlot ? all.tail : slot( next ).prev ) = prev;
  }

  void growSlots( uint32_t capacity ) {
    const size_t bytes = headerSize + capacity * sizeof( Slot );
    void * block;
    if ( relocatable && block_ ) {
      block = std::realloc( block_, bytes );
    } else {
      block = std::malloc( bytes );
    }
    if ( !block ) {
      throw std::bad_alloc();
    }
    if ( !block_ ) {
      new ( block ) Header{ noSlot, noSlot, noSlot, 0, capacity, 0 };
    } else if constexpr ( !relocatable ) {
      *static_cast< Header * >( block ) = header();
      Slot * to = slotsOf( block );
      for ( uint32_t at = header().head; at != noSlot; at = slot( at ).next ) {
        Slot & from = slot( at );
        to[ at ].next = from.next;
        to[ at ].prev = from.prev;
        new ( &to[ at ].key ) Key( std::move( from.key ) );
        new ( &to[ at ].value ) Value( std::move( from.value ) );
        std::destroy_at( &from.value );
        std::destroy_at( &from.key );
      }
      for ( uint32_t at = header().free; at != noSlot; at = slot( at ).next ) {
        to[ at ].next = slot( at ).next;
      }
      std::free( block_ );
    }
    block_ = block;
    header().capacity = capacity;
  }

  // Enters the slot, just linked, in the index; makes or enlarges the index when it must.
  void indexInsert( uint32_t at ) {
    const uint32_t chunks = header().chunks;
    if ( !index_ || size_ > chunks * Detail::IndexChunk::maxLoad ) {
      rebuildIndex( chunks ? chunks * 2 : 1 );
    } else {
      indexEnter( at );
    }
  }
  void rebuildIndex( uint32_t chunks ) {
    using Detail::IndexChunk;
    std::free( std::exchange( index_, nullptr ) );
    index_ = static_cast< IndexChunk * >(
        std::aligned_alloc( alignof( IndexChunk ), chunks * sizeof( IndexChunk ) ) );
    if ( !index_ ) {
      throw std::bad_alloc();
    }
    std::memset( static_cast< void * >( index_ ), 0, chunks * sizeof( IndexChunk ) );
    header().chunks = chunks;
    mask_ = chunks - 1;
    for ( uint32_t each = header().head; each != noSlot; each = slot( each ).next ) {
      indexEnter( each );
    }
  }
  void indexEnter( uint32_t at ) {
    const Detail::HashParts parts( hashOf( slot( at ).key ) );
    for ( uint32_t each = parts.chunk & mask_;; each = ( each + parts.step ) & mask_ ) {
      Detail::IndexChunk & chunk = index_[ each ];
      if ( const uint32_t room = chunk.match( 0 ) ) [[likely]] {
        const int i = std::countr_zero( room );
        chunk.tags[ i ] = parts.tag;
        chunk.slots[ i ] = at;
        return;
      }
      ++chunk.overflow;
    }
  }
  void indexErase( uint32_t at, uint64_t hash ) {
    const Detail::HashParts parts( hash );
    for ( uint32_t each = parts.chunk & mask_;; each = ( each + parts.step ) & mask_ ) {
      Detail::IndexChunk & chunk = index_[ each ];
      for ( uint32_t found = chunk.match( parts.tag ); found; found &= found - 1 ) {
        const int i = std::countr_zero( found );
        if ( chunk.slots[ i ] == at ) {
          chunk.tags[ i ] = 0;
          return;
        }
      }
      --chunk.overflow;
    }
  }
  void leave( Walk * walk ) const {
    Walk ** link = &walks_;
    while ( *link != walk ) {
      link = &( *link )->outer_;
    }
    *link = walk->outer_;
  }
  void freeMemory() {
    std::free( std::exchange( block_, nullptr ) );
    std::free( std::exchange( index_, nullptr ) );
  }

  void * block_ = nullptr;
  Detail::IndexChunk * index_ = nullptr;
  mutable Walk * walks_ = nullptr;
  uint32_t size_ = 0;
  uint32_t mask_ = 0; // chunks of the index less one
};

} // namespace Vex
