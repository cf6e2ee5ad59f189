// A reader of a table, in any process: read-only, without locks, never waiting for the writer,
// whether that runs, stands still or is dead. It sees committed records alone. One reader is for
// one thread.
#pragma once

#include "Rook/CorruptionHandler.h"
#include "Rook/Walk.h"

namespace Rook {

// Of the records whose key is the field that `keyField` points to.
template< auto keyField > class Reader : public CorruptionHandling {
  using Type = RecordOf< keyField >;

public:
  using Record = typename Type::Record;
  using Key = typename Type::Key;
  static_assert( Shareable< Record > );

  // Raises std::runtime_error when the file is no table of these records, or a damaged one.
  explicit Reader( const Vex::String & path ) : Reader( path, Type::description() ) {}

  // The record as it stands, or none. Raises Corruption; the reader serves on.
  std::optional< Record > record( Vex::Arg< Key > key ) const {
    Record record;
    return find( key, record ) ? std::optional( record ) : std::nullopt;
  }
  bool has( Vex::Arg< Key > key ) const {
    Record record;
    return find( key, record ).has_value();
  }
  auto range() const { return Range< keyField, Reader >( *this ); }

  // What the writer says of the table as a whole.
  bool quiesced() const { return file_.load( file_.state().quiesced, "quiesced" ) != 0; }

  // --- For walks
  const TableFile & file() const { return file_; }
  std::optional< uint32_t > slotOf( const Key & key ) const {
    Record record;
    return find( key, record );
  }
  void handleDamagedSlot( uint32_t slot ) const { handleCorruption( file_.damageOfSlot( slot ) ); }

private:
  Reader( const Vex::String & path, const Description & description )
      : file_( TableFile::read( path, &description ) ) {
    file_.moment();
  }

  // The slot, with its record copied.
  std::optional< uint32_t > find( const Key & key, Record & record ) const {
    const uint64_t hash = Type::hash( key );
    while ( true ) {
      const uint64_t word = file_.state().index.load( std::memory_order_acquire );
      if ( word != indexWord_ ) [[unlikely]] {
        const auto current = file_.currentIndex( word );
        index_ = file_.index( current.level, current.half );
        indexWord_ = word;
      }
      if ( word == 0 ) {
        return std::nullopt;
      }
      uint32_t at = 0;
      const auto found = index_.find( hash, [ & ]( uint32_t slot ) {
        at = slot;
        return stands( slot, key, record );
      } );
      if ( found.found ) {
        return at;
      }
      // Else what is not in this index may have been in the one that took its place.
      if ( file_.state().index.load( std::memory_order_acquire ) == word ) [[likely]] {
        if ( found.damaged ) [[unlikely]] {
          throw file_.damageOfIndex();
        }
        return std::nullopt;
      }
    }
  }

  bool stands( uint32_t slot, const Key & key, Record & record ) const {
    typename Type::Words words;
    const auto state = file_.readSlot( slot, Type::words, words.data() );
    if ( state.damaged ) [[unlikely]] {
      throw file_.damageOfSlot( slot );
    }
    if ( !state.present ) {
      return false;
    }
    if ( state.birth > births_ ) [[unlikely]] {
      births_ = file_.load( file_.state().births, "births" );
      if ( state.birth > births_ ) {
        return false;
      }
    }
    record = Type::record( words );
    return Type::key( record ) == key;
  }

  TableFile file_;
  mutable Index index_;
  mutable uint64_t indexWord_ = 0;
  mutable uint64_t births_ = 0; // so many at least
};

} // namespace Rook
