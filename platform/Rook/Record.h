// A record type and the field that is its key, given as a pointer to member: how its records are
// described, stored in words and looked up.
#pragma once

#include "Rook/Fields.h"
#include "Rook/TableFile.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace Rook {

template< auto keyField > struct RecordOf;
// Records of a table whose key is one of their fields.
template< Vex::Composite R, class K, K R::*keyField > struct RecordOf< keyField > {
  static_assert( std::is_trivially_copyable_v< R > && alignof( R ) <= alignof( uint64_t ) );
  using Record = R;
  using Key = K;
  static constexpr size_t words = Format::wordsOf( sizeof( R ) );
  using Words = std::array< uint64_t, words >;

  static Description description() {
    std::string_view key;
    std::apply(
        [ & ]( const auto &... field ) {
          ( ( isKey( field.member ) ? void( key = field.name ) : void() ), ... );
        },
        R::vexFields() );
    return { sizeof( R ), fieldsOf< R >( key ) };
  }

  // Word by word, so that they can be in registers.
  [[gnu::always_inline]] static Record record( const Words & each ) {
    Record record;
    auto * const to = reinterpret_cast< std::byte * >( &record );
    Format::forEachWord(
        each.size(), [ & ]( size_t i ) __attribute__( ( always_inline ) ) {
          std::memcpy( to + i * sizeof( uint64_t ), &each[ i ], sizeOfWord( i ) );
        } );
    return record;
  }
  [[gnu::always_inline]] static Words wordsFrom( const Record & record ) {
    Words made{};
    const auto * const from = reinterpret_cast< const std::byte * >( &record );
    Format::forEachWord(
        made.size(), [ & ]( size_t i ) __attribute__( ( always_inline ) ) {
          std::memcpy( &made[ i ], from + i * sizeof( uint64_t ), sizeOfWord( i ) );
        } );
    return made;
  }
  static const Key & key( const Record & record ) { return record.*keyField; }
  // Of a record as it lies in memory.
  static Key keyIn( const std::byte * record ) {
    const Record any{};
    Key key;
    std::memcpy( &key,
                 record + ( reinterpret_cast< const std::byte * >( &( any.*keyField ) ) -
                            reinterpret_cast< const std::byte * >( &any ) ),
                 sizeof( key ) );
    return key;
  }

  // A record as it was found.
  struct Copy {
    uint32_t bucket; // not of a guess
    uint32_t slot;
    SlotState state;
    Words words;
  };
  // Whether the record of a key was where it nearly always is, among the first so many slots. When
  // it was not nothing is said.
  [[gnu::always_inline]] static bool guess( const TableFile & file, const Index & index,
                                            uint32_t slots, const auto & hash, const Key & key,
                                            Copy & copy ) {
    if ( !index.stands() ) {
      return false;
    }
    copy.slot = index.guess( hash );
    return copy.slot < slots && file.copySlot( copy.slot, words, copy.words.data(), copy.state ) &&
           RecordOf::key( record( copy.words ) ) == key;
  }

private:
  static constexpr size_t sizeOfWord( size_t at ) {
    return std::min( sizeof( uint64_t ), sizeof( R ) - at * sizeof( uint64_t ) );
  }
  template< class F > static bool isKey( F R::*field ) {
    if constexpr ( std::is_same_v< F, K > ) {
      return field == keyField;
    }
    return false;
  }
};

} // namespace Rook
