// The memory of one table: a file that is mapped whole, at once and for good, or private memory of
// the same layout. It grows by levels at its end, so that nothing in it ever moves.
#pragma once

#include "Rook/Index.h"
#include "Vex/Assert.h"
#include "Vex/Descriptor.h"

#include <stdexcept>
#include <vector>

namespace Rook {

// Damage met in a table; says where.
class Corruption : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

// What the records of a table are: their size, and their fields as fieldsOf has them.
struct Description {
  size_t recordSize = 0;
  Vex::String fields;
};

struct SlotState {
  uint64_t version = 0;
  uint64_t birth = 0;
  bool present = false;
  bool damaged = false;
};

// What stood at one moment: the records born until then, in the first so many slots.
struct Moment {
  uint64_t births;
  uint32_t slots;
};

class TableFile {
public:
  // Private memory.
  explicit TableFile( const Description & description );
  // The file of a writer, which has it for itself and makes it if it is not there.
  static TableFile write( const Vex::String & path, const Description & description );
  // The file of a reader: of any records, unless they are described. Both raise
  // std::runtime_error, which says what was found and what expected.
  static TableFile read( const Vex::String & path, const Description * expected );

  ~TableFile();
  TableFile( TableFile && other ) noexcept;
  TableFile & operator=( TableFile && ) = delete;

  const Vex::String & path() const { return path_; } // empty for private memory
  const Description & description() const { return description_; }
  // Whether the file has lost its name, or another one has it.
  bool isReplaced() const;

  Format::State & state() const {
    return *reinterpret_cast< Format::State * >( memory_ + Format::stateOffset );
  }
  // Raises Corruption when the word is damaged.
  uint64_t load( const Format::Word & word, const char * name ) const {
    return valueOf( word.load( std::memory_order_acquire ), name );
  }

  // Of a level that the file has.
  Index index( uint32_t level, uint32_t half ) const {
    return { reinterpret_cast< Format::Bucket * >( memory_ + levels_[ level ].index +
                                                   half * Format::Level::indexSize( level ) ),
             level };
  }
  // What a word of the state's `index` says, other than 0. Raises std::runtime_error when the file
  // is too short for it.
  Format::Current currentIndex( uint64_t word ) const;
  // Now. Whatever slot it covers can be read.
  Moment moment() const;

  // For the writer: makes the file have a level, or one of its indices. Raises
  // std::runtime_error when there is no room.
  void makeLevel( uint32_t level );
  void makeIndex( uint32_t level, uint32_t half );
  // Gives the memory of a level's indices back; who still reads them finds them empty.
  void dropIndices( uint32_t level );

  // --- Slots. `words` is what the records have, a constant where their type is known.

  // The record is copied to `record` if there is one.
  SlotState readSlot( uint32_t slot, size_t words, uint64_t * record ) const {
    const std::byte * const at = slotAt( slot, words );
    const auto & head = headOf( at, words );
    while ( true ) {
      SlotState state;
      state.version = head.version.load( std::memory_order_acquire );
      const auto check =
          head.checks[ state.version & Format::cellBit ].load( std::memory_order_acquire );
      uint64_t sum = Format::checkSeedOf( state.version );
      if ( state.version & Format::presentBit ) {
        const auto * const cell = cellOf( at, words, state.version );
        for ( size_t i = 0; i < words; ++i ) {
          record[ i ] = cell[ i ].load( std::memory_order_acquire );
          sum += Format::weighted( record[ i ], i + 2 );
        }
        state.birth = head.birth.load( std::memory_order_acquire );
        sum += Format::weighted( state.birth, 1 );
        state.present = true;
      } else if ( state.version == 0 ) {
        sum = 0;
      }
      if ( head.version.load( std::memory_order_relaxed ) == state.version ) [[likely]] {
        state.damaged = check != static_cast< uint32_t >( sum >> 32 );
        return state;
      }
    }
  }

  // For the writer, who says what version stands. Null for `record` empties the slot; `birth`
  // stays what it is while the slot has a record.
  void writeSlot( uint32_t slot, size_t words, uint64_t version, uint64_t birth,
                  const uint64_t * record ) const {
    std::byte * const at = slotAt( slot, words );
    auto & head = headOf( at, words );
    const uint64_t next = Format::nextVersion( version, record );
    uint64_t sum = Format::checkSeedOf( next );
    if ( record ) {
      auto * const cell = cellOf( at, words, next );
      for ( size_t i = 0; i < words; ++i ) {
        cell[ i ].store( record[ i ], std::memory_order_release );
        sum += Format::weighted( record[ i ], i + 2 );
      }
      if ( !( version & Format::presentBit ) ) {
        head.birth.store( birth, std::memory_order_release );
      }
      sum += Format::weighted( birth, 1 );
    }
    head.checks[ next & Format::cellBit ].store( static_cast< uint32_t >( sum >> 32 ),
                                                 std::memory_order_release );
    head.version.store( next, std::memory_order_release );
  }

  Corruption damageOfSlot( uint32_t slot ) const;
  Corruption damageOfIndex() const;

private:
  Corruption damageOf( const Vex::String & what ) const;
  TableFile( const Vex::String & path, Vex::Descriptor file );

  // The first cell, the head, the second cell.
  std::byte * slotAt( uint32_t slot, size_t words ) const {
    return slots_ + slot * Format::slotSizeOf( words );
  }
  static Format::SlotHead & headOf( const std::byte * at, size_t words ) {
    return *reinterpret_cast< Format::SlotHead * >( const_cast< std::byte * >( at ) +
                                                    words * sizeof( uint64_t ) );
  }
  static Format::Word * cellOf( const std::byte * at, size_t words, uint64_t version ) {
    const size_t second = words * sizeof( uint64_t ) + sizeof( Format::SlotHead );
    return reinterpret_cast< Format::Word * >( const_cast< std::byte * >( at ) +
                                               ( version & Format::cellBit ? second : 0 ) );
  }

  uint64_t valueOf( uint64_t word, const char * name ) const {
    const auto value = Format::unguarded( word );
    if ( !value ) [[unlikely]] {
      throw damageOf( Vex::String( "the word '" ) + name + "' of the state" );
    }
    return *value;
  }
  void makeHeader();
  void checkHeader( const Description * expected );
  void map( int protection );
  uint64_t slotsSize() const;
  uint64_t size() const;
  void allocate( uint64_t offset, uint64_t size );
  [[noreturn]] void cutShort( uint64_t least ) const;

  Vex::String path_;
  Vex::Descriptor file_;
  Description description_;
  std::vector< Format::Level > levels_;
  std::byte * memory_ = nullptr;    // the file
  std::byte * slots_ = nullptr;     // the slots of all levels once more, one after the other
  mutable uint32_t levelsSeen_ = 0; // the file is long enough for these
};

} // namespace Rook
