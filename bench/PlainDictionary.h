// The floor of Vex::Collection: what one would write by hand for an insertion-ordered dictionary
// that promises nothing to walks. Entries stand in one array in order; an erased one is marked
// and squeezed out when the array is full. The index has 8 bytes a slot (32 bits of the hash, the
// entry's number), is at most half full, is probed linearly, and closes the gap when a slot goes.
#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

namespace Bench {

template< class Key, class Value, class Hash > class PlainDictionary {
public:
  bool add( const Key & key, const Value & value ) {
    if ( 2 * ( size_ + 1 ) > slots_.size() || entries_.size() == entries_.capacity() ) {
      makeRoom();
    }
    const uint32_t hash = Hash()( key );
    uint32_t at = hash & mask_;
    for ( ; slots_[ at ].entry != none; at = ( at + 1 ) & mask_ ) {
      if ( slots_[ at ].hash == hash && entries_[ slots_[ at ].entry ].first == key ) {
        return false;
      }
    }
    slots_[ at ] = { hash, static_cast< uint32_t >( entries_.size() ) };
    entries_.emplace_back( key, value );
    live_.push_back( 1 );
    ++size_;
    return true;
  }

  const Value * find( const Key & key ) const {
    const uint32_t at = findSlot( key );
    return at == none ? nullptr : &entries_[ slots_[ at ].entry ].second;
  }

  bool erase( const Key & key ) {
    uint32_t gap = findSlot( key );
    if ( gap == none ) {
      return false;
    }
    live_[ slots_[ gap ].entry ] = 0;
    --size_;
    for ( uint32_t at = ( gap + 1 ) & mask_; slots_[ at ].entry != none; at = ( at + 1 ) & mask_ ) {
      if ( ( ( at - slots_[ at ].hash ) & mask_ ) >= ( ( at - gap ) & mask_ ) ) {
        slots_[ gap ] = slots_[ at ];
        gap = at;
      }
    }
    slots_[ gap ].entry = none;
    return true;
  }

  template< class Visit > void walk( Visit && visit ) const {
    for ( size_t i = 0; i < entries_.size(); ++i ) {
      if ( live_[ i ] ) {
        visit( entries_[ i ].first, entries_[ i ].second );
      }
    }
  }
  // Members may be added and erased meanwhile; what is added is not visited.
  template< class Visit > void walkUnderChange( Visit && visit ) {
    const size_t end = entries_.size();
    walked_ = true;
    for ( size_t i = 0; i < end; ++i ) {
      if ( live_[ i ] ) {
        const auto member = entries_[ i ];
        visit( member.first, member.second );
      }
    }
    walked_ = false;
  }

private:
  struct Slot {
    uint32_t hash;
    uint32_t entry;
  };
  static constexpr uint32_t none = UINT32_MAX;

  uint32_t findSlot( const Key & key ) const {
    if ( slots_.empty() ) {
      return none;
    }
    const uint32_t hash = Hash()( key );
    for ( uint32_t at = hash & mask_; slots_[ at ].entry != none; at = ( at + 1 ) & mask_ ) {
      if ( slots_[ at ].hash == hash && entries_[ slots_[ at ].entry ].first == key ) {
        return at;
      }
    }
    return none;
  }

  void makeRoom() {
    if ( entries_.size() == entries_.capacity() ) {
      if ( !walked_ && size_ + size_ / 2 <= entries_.size() ) {
        squeeze();
      } else {
        entries_.reserve( std::max< size_t >( 8, 2 * entries_.size() ) );
      }
    }
    if ( 2 * ( size_ + 1 ) > slots_.size() ) {
      const auto old =
          std::exchange( slots_, std::vector< Slot >( std::max< size_t >( 16, 2 * slots_.size() ),
                                                      Slot{ 0, none } ) );
      mask_ = static_cast< uint32_t >( slots_.size() - 1 );
      for ( const Slot & slot : old ) {
        if ( slot.entry != none ) {
          enter( slot );
        }
      }
    }
  }
  void squeeze() {
    std::fill( slots_.begin(), slots_.end(), Slot{ 0, none } );
    uint32_t kept = 0;
    for ( uint32_t i = 0; i < entries_.size(); ++i ) {
      if ( live_[ i ] ) {
        entries_[ kept ] = entries_[ i ];
        enter( { Hash()( entries_[ kept ].first ), kept } );
        ++kept;
      }
    }
    entries_.resize( kept );
    live_.assign( kept, 1 );
  }
  void enter( Slot slot ) {
    uint32_t at = slot.hash & mask_;
    while ( slots_[ at ].entry != none ) {
      at = ( at + 1 ) & mask_;
    }
    slots_[ at ] = slot;
  }

  std::vector< std::pair< Key, Value > > entries_;
  std::vector< uint8_t > live_;
  std::vector< Slot > slots_;
  uint32_t mask_ = 0;
  uint32_t size_ = 0;
  bool walked_ = false;
};

} // namespace Bench
