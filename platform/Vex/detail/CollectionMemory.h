// The memory of a Vex::Collection: where its large pieces come from, and the block of slots in
// which its members stand.
#pragma once

#include "Vex/Relocatable.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace Vex::Detail {

constexpr size_t cacheLine = 64;

// `bytes` that begin with the `used` ones of `old`, which is freed; null has none. What is large
// lies in huge pages where the system has them, for it is used at random, and what comes after
// its head begins a cache line. For freeMemory, with as many bytes.
constexpr size_t memoryHead = 16;
void * grownMemory( void * old, size_t used, size_t bytes );
void freeMemory( void * memory, size_t bytes );
// About `bytes`, of whole huge pages where they lie in such.
size_t wholePages( size_t bytes );

// Zeroed cache lines, which are never grown, in huge pages alike. For freeLines, with as many
// bytes.
void * zeroedLines( size_t bytes );
void freeLines( void * lines, size_t bytes );

constexpr uint32_t noSlot = UINT32_MAX;

// The slots of members, linked in the members' order by number, in one block with what stands
// before them. Counts no members: its owner says how many there are. Like a pointer it is copied
// and let go without a change to the block, which lives until `free()`.
template< class Key, class Value > class CollectionSlots {
public:
  // A value may begin in what a key leaves of its last word: keys are made first, and written no
  // more.
  struct Slot {
    uint32_t next;
    uint32_t prev;
    [[no_unique_address]] Key key;
    [[no_unique_address]] Value value;
  };

  explicit operator bool() const { return slots_; }
  Slot & operator[]( uint32_t at ) const { return slots_[ at ]; }
  uint32_t numberOf( const Slot * slot ) const { return static_cast< uint32_t >( slot - slots_ ); }

  // In the order of members; only while the block stands.
  uint32_t first() const { return header().head; }
  uint32_t last() const { return header().tail; }

  uint32_t capacity() const { return slots_ ? header().capacity : 0; }
  // Of the next block, should this one be full.
  uint32_t grownCapacity() const {
    const uint32_t more = bytesFor( capacity() ) < smallBlock ? capacity() : capacity() / 2;
    return roomIn( bytesFor( capacity() + more ) );
  }
  size_t memory() const { return slots_ ? bytesFor( capacity() ) : 0; }

  // A slot that is not in use, while `members` are.
  uint32_t take( uint32_t members ) {
    if ( !slots_ ) {
      grow( 2 );
    }
    if ( header().free != noSlot ) {
      const uint32_t at = header().free;
      header().free = slots_[ at ].next;
      return at;
    }
    if ( members == capacity() ) {
      grow( grownCapacity() );
    }
    return members;
  }
  void giveBack( uint32_t at ) {
    slots_[ at ].next = header().free;
    header().free = at;
  }

  // Behind the last.
  void link( uint32_t at ) {
    Header & all = header();
    slots_[ at ].prev = all.tail;
    slots_[ at ].next = noSlot;
    ( all.tail == noSlot ? all.head : slots_[ all.tail ].next ) = at;
    all.tail = at;
  }
  void unlink( const Slot & gone ) {
    Header & all = header();
    const auto [ next, prev ] = std::pair( gone.next, gone.prev );
    ( prev == noSlot ? all.head : slots_[ prev ].next ) = next;
    ( next == noSlot ? all.tail : slots_[ next ].prev ) = prev;
  }

  void grow( uint32_t capacity ) {
    static_assert( sizeof( Header ) == memoryHead && alignof( Slot ) <= memoryHead );
    if ( !slots_ ) {
      slots_ = grown( nullptr, capacity );
      new ( &header() ) Header{ noSlot, noSlot, noSlot, capacity };
    } else if constexpr ( movable ) {
      slots_ = grown( slots_, capacity );
    } else {
      Slot * const slots = grown( nullptr, capacity );
      moveTo( slots );
      free();
      slots_ = slots;
    }
    header().capacity = capacity;
  }
  // Members are destroyed before.
  void free() const { freeMemory( &header(), bytesFor( header().capacity ) ); }

private:
  struct Header {
    uint32_t head;
    uint32_t tail;
    uint32_t free;     // freed slots, linked by next; with none, the first ones are in use
    uint32_t capacity; // slots
  };
  static constexpr bool movable = relocatable< Key >() && relocatable< Value >();
  static constexpr size_t smallBlock = size_t( 1 ) << 20; // bytes; up to there a block is doubled

  static size_t bytesFor( uint32_t capacity ) {
    return sizeof( Header ) + capacity * sizeof( Slot );
  }
  static uint32_t roomIn( size_t bytes ) {
    return static_cast< uint32_t >( ( wholePages( bytes ) - sizeof( Header ) ) / sizeof( Slot ) );
  }
  static Header & headerOf( Slot * slots ) { return reinterpret_cast< Header * >( slots )[ -1 ]; }
  Header & header() const { return headerOf( slots_ ); }

  // `old` grown, or new ones when it is null.
  static Slot * grown( Slot * old, uint32_t capacity ) {
    void * const block = old ? grownMemory( &headerOf( old ), bytesFor( headerOf( old ).capacity ),
                                            bytesFor( capacity ) )
                             : grownMemory( nullptr, 0, bytesFor( capacity ) );
    return reinterpret_cast< Slot * >( static_cast< Header * >( block ) + 1 );
  }
  void moveTo( Slot * to ) {
    headerOf( to ) = header();
    for ( uint32_t at = header().head; at != noSlot; at = slots_[ at ].next ) {
      Slot & from = slots_[ at ];
      to[ at ].next = from.next;
      to[ at ].prev = from.prev;
      new ( &to[ at ].key ) Key( std::move( from.key ) );
      new ( &to[ at ].value ) Value( std::move( from.value ) );
      std::destroy_at( &from.value );
      std::destroy_at( &from.key );
    }
    for ( uint32_t at = header().free; at != noSlot; at = slots_[ at ].next ) {
      to[ at ].next = slots_[ at ].next;
    }
  }

  Slot * slots_ = nullptr; // after their header
};

} // namespace Vex::Detail
