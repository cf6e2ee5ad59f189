// The one container of the system: members under unique keys, kept in insertion order.
//
// Members live in the slots of one array, Vex/detail/CollectionMemory.h, linked in order by slot
// number; a freed slot is reused and nothing is ever compacted. Beside it stands an index,
// Vex/detail/CollectionIndex.h. Up to eight members there is no index, with none no memory.
//
// A walk visits the members that stood when it began and are still there when it reaches them,
// in insertion order, whatever is added and removed meanwhile; a member that is removed and
// added again stands at the end and is not visited. Walks hand out copies. References that
// `find` gives are good until the collection changes.
#pragma once

#include "Vex/Hash.h"
#include "Vex/detail/CollectionIndex.h"
#include "Vex/detail/CollectionMemory.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>

namespace Vex {

// The value type of a set.
struct NoValue {
  friend bool operator==( NoValue, NoValue ) = default;
};

// How a key or value is passed: small flat ones by value.
template< class T >
using Arg =
    std::conditional_t< std::is_trivially_copyable_v< T > && sizeof( T ) <= 16, T, const T & >;

template< class Key, class Value = NoValue > class Collection {
  using Slots = Detail::CollectionSlots< Key, Value >;
  using Slot = typename Slots::Slot;
  using Probe = Detail::CollectionIndex::Probe;
  static constexpr uint32_t noSlot = Detail::noSlot;
  static constexpr uint32_t indexFrom = 9;
  static constexpr bool flat =
      std::is_trivially_copyable_v< Key > && std::is_trivially_copyable_v< Value >;

public:
  // A key and what stands under it.
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
      last_ = from == noSlot ? noSlot : collection->slots_.last();
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
      next_ = slot == noSlot || slot == last_ ? noSlot : collection_->after( slot );
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

  // A walk that hands values out as `Given`, or keys alone when that is NoValue.
  template< class Given > class WalkOf : public Walk {
  public:
    auto operator*() const {
      const Slot & slot = this->collection_->slot( this->at_ );
      if constexpr ( std::is_same_v< Given, NoValue > ) {
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
    return look( key, probeOf( key ) );
  }

  const Value * find( const Key & key ) const {
    const Slot * const member = look( key, probeOf( key ) );
    return member ? &member->value : nullptr;
  }
  Value * find( const Key & key ) {
    return const_cast< Value * >( std::as_const( *this ).find( key ) );
  }

  // Where a member stands, which it keeps until it is erased; asserts nothing of who is not there.
  uint32_t slotOf( const Key & key ) const {
    return findSlot( key );
  }
  const Key & keyAt( uint32_t at ) const {
    return slot( at ).key;
  }
  Value & valueAt( uint32_t at ) {
    return slot( at ).value;
  }
  const Value & valueAt( uint32_t at ) const {
    return slot( at ).value;
  }

  // Of the member that was added last, of those that are left; null without members.
  const Key * lastKey() const {
    return empty() ? nullptr : &slot( slots_.last() ).key;
  }

  // The value under `key`, and whether it was added (with `make()` as its value) just now.
  // `make` must leave this collection alone.
  template< class Make > std::pair< Value *, bool > findOrAdd( const Key & key, Make && make ) {
    Probe probe = probeOf( key );
    if ( Slot * const member = look( key, probe ) ) {
      return { &member->value, false };
    }
    Value value( make() );
    if ( size_ >= indexFrom - 1 && size_ >= index_.room() ) [[unlikely]] {
      makeIndexFor( size_ + 1 );
      probe = probeOf( key );
    }
    const uint32_t at = slots_.take( size_ );
    Slot & fresh = slot( at );
    new ( &fresh.key ) Key( key );
    new ( &fresh.value ) Value( std::move( value ) );
    slots_.link( at );
    ++size_;
    if ( index_.stands() ) {
      index_.enter( probe, at );
    }
    return { &fresh.value, true };
  }
  bool add( const Key & key ) requires std::is_same_v< Value, NoValue > {
    return findOrAdd( key, [] { return NoValue(); } ).second;
  }

  // Makes room for so many members in all, and when it grows for that at least as much as adding
  // would make: who says more each time does not pay for it each time.
  void reserve( uint32_t members ) {
    if ( members > slots_.capacity() ) {
      slots_.grow( std::max( members, slots_.grownCapacity() ) );
    }
    if ( members >= indexFrom && members > index_.room() ) {
      makeIndexFor( members );
    }
  }

  bool erase( const Key & key ) {
    // Nearly every one is of the first candidate while no walk is under way.
    if ( index_.stands() && !walks_ ) [[likely]] {
      if ( const auto sight = index_.look( probeOf( key ) ); sight.found ) {
        const size_t i = sight.first();
        const uint32_t at = sight.chunk.slots[ i ];
        if ( slot( at ).key == key ) [[likely]] {
          sight.chunk.clear( i );
          remove( at );
          return true;
        }
      }
    }
    return eraseFurther( key );
  }

  void clear() {
    for ( Walk * walk = walks_; walk; walk = walk->outer_ ) {
      walk->next_ = noSlot;
    }
    if ( !slots_ ) {
      return;
    }
    const Slots slots = std::exchange( slots_, Slots() );
    index_.clear();
    size_ = 0;
    if constexpr ( !flat ) {
      for ( uint32_t at = slots.first(); at != noSlot; ) {
        Slot & gone = slots[ at ];
        at = gone.next;
        std::destroy_at( &gone.value );
        std::destroy_at( &gone.key );
      }
    }
    slots.free();
  }

  // Values are handed out as `Given`, e.g. as pointers to constant entities.
  template< class Given = Value > RangeOf< Given > range() const {
    return RangeOf< Given >( this );
  }

  // Bytes allocated for members and index.
  size_t memory() const {
    return slots_.memory() + index_.memory();
  }

private:
  // Where the index has a key; while there is none, it is not looked at.
  Probe probeOf( const Key & key ) const {
    return index_.stands() ? index_.probe( containerHash( key ) ) : Probe();
  }
  Slot & slot( uint32_t at ) const {
    return slots_[ at ];
  }
  uint32_t first() const {
    return size_ ? slots_.first() : noSlot;
  }

  uint32_t after( uint32_t at ) const {
    return slot( at ).next;
  }

  uint32_t findSlot( const Key & key ) const {
    const Slot * const member = look( key, probeOf( key ) );
    return member ? slots_.numberOf( member ) : noSlot;
  }
  // Kept short, as `erase` is, for among many members as many calls run at once as instructions
  // of them fit what the processor looks ahead.
  [[gnu::always_inline]] Slot * look( const Key & key, const Probe & probe ) const {
    if ( !index_.stands() ) {
      return lookAtAll( key );
    }
    if ( const auto sight = index_.look( probe ); sight.found ) [[likely]] {
      Slot & first = slot( sight.chunk.slots[ sight.first() ] );
      if ( first.key == key ) [[likely]] {
        return &first;
      }
    } else if ( sight.isAll() ) [[likely]] {
      return nullptr;
    }
    return lookFurther( key );
  }
  [[gnu::noinline]] Slot * lookAtAll( const Key & key ) const {
    for ( uint32_t at = first(); at != noSlot; at = slot( at ).next ) {
      if ( slot( at ).key == key ) {
        return &slot( at );
      }
    }
    return nullptr;
  }
  [[gnu::noinline]] Slot * lookFurther( const Key & key ) const {
    const auto place = placeOf( key, probeOf( key ) );
    return place ? &slot( place.slot() ) : nullptr;
  }
  Detail::CollectionIndex::Place placeOf( const Key & key, const Probe & probe ) const {
    return index_.find( probe, [ & ]( uint32_t at ) { return slot( at ).key == key; } );
  }

  // What `erase` leaves: few members, further candidates, and walks.
  [[gnu::noinline]] bool eraseFurther( const Key & key ) {
    uint32_t at;
    if ( index_.stands() ) {
      const Probe probe = probeOf( key );
      const auto place = placeOf( key, probe );
      if ( !place ) {
        return false;
      }
      at = place.slot();
      index_.erase( probe, place );
    } else {
      at = findSlot( key );
      if ( at == noSlot ) {
        return false;
      }
    }
    for ( Walk * walk = walks_; walk; walk = walk->outer_ ) {
      walk->leaveOut( at );
    }
    remove( at );
    return true;
  }
  // From all but the index.
  [[gnu::always_inline]] void remove( uint32_t at ) {
    Slot & gone = slot( at );
    slots_.unlink( gone );
    // Destroying the value can run code that uses this collection: all is in place by then.
    std::optional< Value > value( std::move( gone.value ) );
    std::destroy_at( &gone.value );
    std::destroy_at( &gone.key );
    slots_.giveBack( at );
    --size_;
    if ( size_ == 0 ) [[unlikely]] {
      freeAll();
    }
  }
  [[gnu::noinline]] void freeAll() {
    std::exchange( slots_, Slots() ).free();
    index_.clear();
  }

  void makeIndexFor( uint32_t members ) {
    index_.makeFor( members );
    // Some members are hashed before they are entered, so that their chunks arrive together.
    constexpr uint32_t together = 16;
    struct {
      Probe probe;
      uint32_t at;
    } entries[ together ];
    for ( uint32_t at = first(); at != noSlot; ) {
      uint32_t count = 0;
      for ( ; count < together && at != noSlot; at = after( at ) ) {
        entries[ count ] = { index_.probe( containerHash( slot( at ).key ) ), at };
        index_.prefetch( entries[ count++ ].probe );
      }
      for ( uint32_t i = 0; i < count; ++i ) {
        index_.enter( entries[ i ].probe, entries[ i ].at );
      }
    }
  }
  void leave( Walk * walk ) const {
    Walk ** link = &walks_;
    while ( *link != walk ) {
      link = &( *link )->outer_;
    }
    *link = walk->outer_;
  }

  Slots slots_;
  mutable Walk * walks_ = nullptr;
  [[no_unique_address]] Detail::CollectionIndex index_;
  uint32_t size_ = 0; // within the index's tail
};

} // namespace Vex
