// A keyed table in shared memory, as its one writer has it: records of a flat type under one of
// their fields, read by Rook::Reader in any process. A killed writer leaves every reader with the
// last committed records, and the next writer takes the table over.
//
// Every write and removal calls the key's callback, on the caller's thread and after the change
// is in place, also when a record is written as it stands, unless notifications are suppressed.
// Writing while nothing is mounted is an assertion. One table is for one thread.
//
// What is raised, and nothing has changed then:
//   - by mount, std::runtime_error, which Corruption and NoRoom are;
//   - by put, for a record that is new, NoRoom, for want of memory too, and std::runtime_error
//     when the system cannot make room for another reason;
//   - by look-ups and by the beginning of a walk, Corruption, which may be handed to the corruption
//     handler by whoever goes on then.
// Damage that a write or a removal meets is told to the corruption handler and ends the process.
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

  Table() : TableWriter( Type::description(), Shareable< Record >, enter ) {}

  // Both, or two empty ones.
  void keyCallbacksIs( KeyCallback written, KeyCallback removed ) {
    written_ = std::move( written );
    removed_ = std::move( removed );
    callbacksStandIs( written_ && removed_ );
  }

  // The record as it stands, or none.
  std::optional< Record > record( Vex::Arg< Key > key ) const {
    Copy copy;
    if ( Type::guess( file(), index(), slots(), keyHash( key ), key, copy ) ) [[likely]] {
      return Type::record( copy.words );
    }
    const auto found = find( key );
    return found ? std::optional( Type::record( found->words ) ) : std::nullopt;
  }
  // The record, or none, and what damage kept it from being looked up, which nobody is told of.
  struct Examined {
    std::optional< Record > record;
    std::optional< Corruption > damage;
  };
  Examined examine( Vex::Arg< Key > key ) const {
    try {
      return { record( key ), std::nullopt };
    } catch ( const Corruption & damage ) {
      return { std::nullopt, damage };
    }
  }
  // The record, or none, also where damage was met and handed to the corruption handler.
  std::optional< Record > safeRecord( Vex::Arg< Key > key ) const {
    try {
      return record( key );
    } catch ( const Corruption & damage ) {
      handleCorruption( damage );
      return std::nullopt;
    }
  }
  bool has( Vex::Arg< Key > key ) const { return record( key ).has_value(); }
  static Key keyOf( const Record & record ) { return Type::key( record ); }
  // For reflection, which walks what a storage keeps.
  const Table & members() const { return *this; }
  auto range() const { return Range< keyField, Table >( *this ); }

  // Inserts or replaces. Raises NoRoom when the record is a new one and there is no room for it, as
  // never after makeRoom returned true; nothing has changed then, and nobody is told. What is
  // replaced is nearly always not looked at but for its key and version: damage in the rest of the
  // record ends with it. In line, for among many records as many puts run at once as instructions
  // of them fit what the processor looks ahead.
  [[gnu::always_inline]] void put( const Record & record ) {
    const auto & key = Type::key( record );
    if ( !replaceGuessed( record ) ) [[unlikely]] {
      putWherever( record );
    }
    tell( written_, key );
  }
  // Publishes a record that was looked up and changed in place.
  void commit( const Record & record ) {
    const bool stands = change( [ & ] { return has( Type::key( record ) ); } );
    VEX_ASSERT( stands );
    put( record );
  }
  // Whether there was one.
  bool del( Vex::Arg< Key > key ) {
    VEX_ASSERT( writable() );
    const bool present = change( [ & ] {
      const auto found = find( key );
      if ( found ) {
        remove( found->bucket, found->slot, Type::words, found->state.version );
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
    const auto moment = change( [ this ] { return file().moment(); } );
    for ( uint32_t slot = 0; slot < moment.slots; ++slot ) {
      typename Type::Words words{};
      const auto state = change( [ & ] {
        const auto found = file().readSlot( slot, Type::words, words.data() );
        if ( found.damaged ) {
          throw file().damageOfSlot( slot );
        }
        return found;
      } );
      if ( state.present && state.birth <= moment.latestBirth ) {
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

  static void enter( const Index & index, const uint64_t * record, uint32_t slot ) {
    typename Type::Words words;
    std::copy_n( record, words.size(), words.begin() );
    const auto hash = keyHash( Type::key( Type::record( words ) ) );
    index.enter( index.place( hash ), hash, slot );
  }

  // Wherever it is.
  [[gnu::noinline]] std::optional< Copy > find( const Key & key ) const {
    VEX_ASSERT( writable() );
    if ( !index().stands() ) {
      return std::nullopt;
    }
    Copy found;
    const auto at = index().find( keyHash( key ), [ & ]( uint32_t slot ) {
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

  // Whether the record of its key was where it nearly always is. The slot is read without further
  // ado, as nobody else writes to it, if it is one that has been used. Slot 0 is also what is
  // guessed when nothing is alike, and damage may make it look like the one.
  [[gnu::always_inline]] bool replaceGuessed( const Record & record ) {
    if ( !index().stands() ) {
      return false;
    }
    const auto & key = Type::key( record );
    const uint32_t slot = index().guess( keyHash( key ) );
    if ( slot - 1 >= slots() - 1 ) [[unlikely]] {
      return false;
    }
    const uint64_t version = file().versionOf( slot, Type::words );
    if ( !( version & Format::placedBit ) ||
         Type::keyIn( file().recordOf( slot, Type::words ) ) != key ) [[unlikely]] {
      return false;
    }
    file().replaceSlot( slot, Type::words, version, Type::wordsFrom( record ).data() );
    return true;
  }
  [[gnu::noinline]] void putWherever( Record record ) {
    const auto words = Type::wordsFrom( record );
    change( [ & ] {
      if ( const auto found = find( Type::key( record ) ) ) {
        file().replaceSlot( found->slot, Type::words, found->state.version, words.data() );
      } else {
        insert( keyHash( Type::key( record ) ), Type::words, words.data() );
      }
    } );
  }

  void tell( const KeyCallback & callback, const Key & key ) const {
    if ( tells() ) {
      const Key told = key; // so that what is not told need not lie in memory
      callback( told );
    }
  }

  KeyCallback written_;
  KeyCallback removed_;
};

} // namespace Rook
