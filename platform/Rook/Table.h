// A keyed table in shared memory, as its one writer has it: records of a flat type under one of
// their fields, read by Rook::Reader in any process. A killed writer leaves every reader with the
// last committed records, and the next writer takes the table over.
//
// Every write and removal calls the key's callback, on the caller's thread and after the change
// is in place, also when a record is written as it stands, unless notifications are suppressed.
// Writing while nothing is mounted is an assertion. One table is for one thread.
#pragma once

#include "Rook/TableWriter.h"
#include "Rook/Walk.h"

namespace Rook {

template< auto keyField > class Table : public TableWriter {
  using Type = RecordOf< keyField >;

public:
  using Record = typename Type::Record;
  using Key = typename Type::Key;
  using KeyCallback = std::function< void( const Key & ) >;

  Table() : TableWriter( Type::description(), Shareable< Record >, hashOf ) {}

  void keyCallbacksIs( KeyCallback written, KeyCallback removed ) {
    written_ = std::move( written );
    removed_ = std::move( removed );
  }

  // The record as it stands, or none. Raises Corruption, which the caller may hand to the
  // corruption handler and go on.
  std::optional< Record > record( Vex::Arg< Key > key ) const {
    Copy copy;
    if ( Type::guess( file(), index(), Type::hash( key ), key, copy ) ) [[likely]] {
      return Type::record( copy.words );
    }
    const auto found = find( key );
    return found ? std::optional( Type::record( found->words ) ) : std::nullopt;
  }
  // The record, or none, also where damage was met and handed to the corruption handler.
  std::optional< Record > safeRecord( Vex::Arg< Key > key ) const {
    try {
      return record( key );
    } catch ( const Corruption & corruption ) {
      handleCorruption( corruption );
      return std::nullopt;
    }
  }
  bool has( Vex::Arg< Key > key ) const { return record( key ).has_value(); }
  static Key keyOf( const Record & record ) { return Type::key( record ); }
  // For reflection, which walks what a storage keeps.
  const Table & members() const { return *this; }
  auto range() const { return Range< keyField, Table >( *this ); }

  // Inserts or replaces.
  void put( const Record & record ) {
    const auto & key = Type::key( record );
    Copy copy;
    if ( Type::guess( file(), index(), Type::hash( key ), key, copy ) ) [[likely]] {
      replace( copy.slot, Type::words, copy.state, Type::wordsFrom( record ).data() );
    } else {
      putWherever( record );
    }
    tell( written_, key );
  }
  // Publishes a record that was looked up and changed in place.
  void commit( const Record & record ) {
    VEX_ASSERT( has( Type::key( record ) ) );
    put( record );
  }
  // Whether there was one.
  bool del( Vex::Arg< Key > key ) {
    VEX_ASSERT( writable() );
    const bool present = change( [ & ] {
      const auto found = find( key );
      if ( found ) {
        remove( found->bucket, found->slot, Type::words, found->state );
      }
      return found.has_value();
    } );
    if ( present ) {
      tell( removed_, key );
    }
    return present;
  }
  // Record by record; what callbacks insert meanwhile stays.
  void delAll() {
    VEX_ASSERT( writable() );
    const auto moment = file().moment();
    for ( uint32_t slot = 0; slot < moment.slots; ++slot ) {
      typename Type::Words words{};
      const auto state = file().readSlot( slot, Type::words, words.data() );
      if ( state.damaged || ( state.present && state.birth <= moment.births ) ) {
        change( [ & ] {
          if ( state.damaged ) {
            throw file().damageOfSlot( slot );
          }
        } );
        del( Type::key( Type::record( words ) ) );
      }
    }
  }

  // --- For walks
  std::optional< uint32_t > slotOf( const Key & key ) const {
    const auto found = find( key );
    return found ? std::optional( found->slot ) : std::nullopt;
  }

private:
  using Copy = typename Type::Copy;

  static uint64_t hashOf( const uint64_t * record ) {
    typename Type::Words words;
    std::copy_n( record, words.size(), words.begin() );
    return Type::hash( Type::key( Type::record( words ) ) );
  }

  // Wherever it is.
  [[gnu::noinline]] std::optional< Copy > find( const Key & key ) const {
    VEX_ASSERT( writable() );
    if ( !index().stands() ) {
      return std::nullopt;
    }
    Copy found;
    const auto at = index().find( Type::hash( key ), [ & ]( uint32_t slot ) {
      found.slot = slot;
      found.state = file().readSlot( slot, Type::words, found.words.data() );
      if ( found.state.damaged ) [[unlikely]] {
        throw file().damageOfSlot( slot );
      }
      return found.state.present && Type::key( Type::record( found.words ) ) == key;
    } );
    if ( at.damaged ) [[unlikely]] {
      throw file().damageOfIndex();
    }
    found.bucket = at.bucket;
    return at.found ? std::optional( found ) : std::nullopt;
  }

  [[gnu::noinline]] void putWherever( const Record & record ) {
    const auto words = Type::wordsFrom( record );
    change( [ & ] {
      if ( const auto found = find( Type::key( record ) ) ) {
        replace( found->slot, Type::words, found->state, words.data() );
      } else {
        insert( Type::hash( Type::key( record ) ), Type::words, words.data() );
      }
    } );
  }

  void tell( const KeyCallback & callback, Key key ) const {
    if ( callback && !notificationsSuppressed() ) {
      callback( key );
    }
  }

  KeyCallback written_;
  KeyCallback removed_;
};

} // namespace Rook
