// A reader of a table, in any process: read-only, without locks, never waiting for the writer,
// whether that runs, stands still or is dead. It sees committed records alone. One reader is for
// one thread.
//
// Look-ups and the beginning of a walk raise Corruption where they meet damage, NoRoom when the
// table has grown and this process can take no more addresses, and std::runtime_error when the file
// has become too short; the reader serves on.
#pragma once

#include "Rook/CorruptionHandler.h"
#include "Rook/Walk.h"

namespace Rook {

// Of the records whose key is the field that `keyField` points to.
template< auto keyField > class Reader : public CorruptionHandling {
  using Type = RecordOf< keyField >;
  using Copy = typename Type::Copy;

public:
  using Record = typename Type::Record;
  using Key = typename Type::Key;
  static_assert( Shareable< Record > );

  // Raises std::runtime_error when the file is no table of these records, or a damaged one, which
  // Corruption and NoRoom are.
  explicit Reader( const Vex::String & path ) : Reader( path, Type::description() ) {}

  // The record as it stands, or none.
  std::optional< Record > record( Vex::Arg< Key > key ) const {
    Copy copy;
    // What an index leads to stands also where that is not the current one any more.
    if ( Type::guess( file_, index_, slots_, keyHash( key ), key, copy ) &&
         copy.state.birth <= latestBirth_ ) [[likely]] {
      return Type::record( copy.words );
    }
    const auto found = find( key );
    return found ? std::optional( Type::record( found->words ) ) : std::nullopt;
  }
  bool has( Vex::Arg< Key > key ) const { return record( key ).has_value(); }
  auto range() const { return Range< keyField, Reader >( *this ); }

  // What the writer says of the table as a whole.
  bool quiesced() const { return file_.load( file_.state().quiesced, "quiesced" ) != 0; }

  // --- For walks
  const TableFile & file() const { return file_; }
  std::optional< uint32_t > slotOf( const Key & key ) const {
    const auto found = find( key );
    return found ? std::optional( found->slot ) : std::nullopt;
  }
  void handleDamagedSlot( uint32_t slot ) const { handleCorruption( file_.damageOfSlot( slot ) ); }

private:
  Reader( const Vex::String & path, const Description & description )
      : file_( TableFile::read( path, &description ) ) {
    file_.moment();
  }

  // Wherever it is.
  [[gnu::noinline]] std::optional< Copy > find( const Key & key ) const {
    const auto hash = keyHash( key );
    while ( true ) {
      const uint64_t word = file_.state().index.load( std::memory_order_acquire );
      if ( word != indexWord_ ) {
        const auto current = file_.currentIndex( word );
        index_ = file_.index( current.level, current.half );
        indexWord_ = word;
      }
      if ( word == 0 ) {
        return std::nullopt;
      }
      Copy copy;
      const auto found = index_.find( hash, [ & ]( uint32_t slot ) {
        copy.slot = slot;
        return stands( copy, key );
      } );
      if ( found.found ) {
        if ( copy.slot >= slots_ ) {
          slots_ = static_cast< uint32_t >( file_.load( file_.state().slots, "slots" ) );
        }
        return copy;
      }
      // Else what is not in this index may have been in the one that took its place.
      if ( file_.state().index.load( std::memory_order_acquire ) == word ) {
        if ( found.damaged ) {
          throw file_.damageOfIndex();
        }
        return std::nullopt;
      }
    }
  }

  bool stands( Copy & copy, const Key & key ) const {
    while ( true ) {
      copy.state = file_.readSlot( copy.slot, Type::words, copy.words.data() );
      if ( copy.state.damaged ) {
        throw file_.damageOfSlot( copy.slot );
      }
      if ( !copy.state.present ) {
        return false;
      }
      if ( copy.state.birth <= latestBirth_ ) {
        return Type::key( Type::record( copy.words ) ) == key;
      }
      // Births that cover it may be a later writer's, which gave the number to another record: if
      // so, that is seen when the slot is read again.
      latestBirth_ = Format::latestBirth( file_.load( file_.state().births, "births" ) );
      if ( copy.state.birth > latestBirth_ ) {
        return false;
      }
    }
  }

  TableFile file_;
  mutable Index index_;
  mutable uint64_t indexWord_ = 0;
  mutable uint32_t slots_ = 0;       // not above those that the state has
  mutable uint64_t latestBirth_ = 0; // not above the births that the state has
};

} // namespace Rook
