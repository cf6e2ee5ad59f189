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
  bool staged = false; // not in place yet
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

  // One attempt at a record that stands in place and is sound, as nearly all are: whether it has
  // been copied. The state says then, or of what readOtherwise looks at, its version and birth.
  [[gnu::always_inline]] bool copySlot( uint32_t slot, size_t words, uint64_t * record,
                                        SlotState & state ) const {
    return copyFrom( headOf( slot, words ), words, record, state );
  }
  // The record is copied to `record` if there is one.
  SlotState readSlot( uint32_t slot, size_t words, uint64_t * record ) const {
    SlotState state;
    do {
      state.present = copySlot( slot, words, record, state );
    } while ( !state.present && !readOtherwise( slot, words, record, state ) );
    return state;
  }

  // For the writer, who says what stands. An empty slot gets a record,
  void fillSlot( uint32_t slot, size_t words, uint64_t version, uint64_t birth,
                 const uint64_t * record ) const {
    auto & head = headOf( slot, words );
    const uint64_t next = Format::nextVersion( version, true );
    head.birth.store( birth, std::memory_order_release );
    const uint64_t sum = store( head, words, record ) + Format::sumOf( next, birth );
    head.version.store( Format::withCheck( next, sum ), std::memory_order_release );
  }
  // or one has its record replaced,
  void replaceSlot( uint32_t slot, size_t words, uint64_t version, uint64_t birth,
                    const uint64_t * record ) const {
    uint64_t next = Format::nextVersion( version, true );
    auto & staging = stagingOf( slot, words, next );
    staging.image.version.store( 0, std::memory_order_release );
    staging.slot.store( slot, std::memory_order_release );
    staging.image.birth.store( birth, std::memory_order_release );
    next = Format::withCheck( next, store( staging.image, words, record ) +
                                        Format::sumOf( next, birth ) );
    staging.image.version.store( next, std::memory_order_release );
    headOf( slot, words ).version.store( Format::counterpartOf( next ), std::memory_order_release );
    settleSlot( slot, words, next, record );
  }
  // or what is staged, as it was read, copied in place,
  void settleSlot( uint32_t slot, size_t words, uint64_t version, const uint64_t * record ) const {
    auto & head = headOf( slot, words );
    store( head, words, record );
    head.version.store( version, std::memory_order_release );
  }
  // or is emptied.
  void emptySlot( uint32_t slot, size_t words, uint64_t version ) const {
    const uint64_t next = Format::nextVersion( version, false );
    headOf( slot, words )
        .version.store( Format::withCheck( next, Format::sumOf( next, 0 ) ),
                        std::memory_order_release );
  }

  Corruption damageOfSlot( uint32_t slot ) const;
  Corruption damageOfIndex() const;

private:
  Corruption damageOf( const Vex::String & what ) const;
  TableFile( const Vex::String & path, Vex::Descriptor file );

  Format::SlotHead & headOf( uint32_t slot, size_t words ) const {
    return *reinterpret_cast< Format::SlotHead * >( slots_ + slot * Format::slotSizeOf( words ) );
  }
  Format::StagingHead & stagingOf( uint32_t slot, size_t words, uint64_t version ) const {
    return *reinterpret_cast< Format::StagingHead * >( memory_ + Format::stagingOffset +
                                                       Format::stagingCellOf( slot, version ) *
                                                           Format::stagingSizeOf( words ) );
  }

  [[gnu::always_inline]] static bool copyFrom( Format::SlotHead & head, size_t words,
                                               uint64_t * record, SlotState & state ) {
    state.version = head.version.load( std::memory_order_acquire );
    state.birth = head.birth.load( std::memory_order_acquire );
    uint64_t sum = Format::sumOf( state.version, state.birth );
    const auto * const from = reinterpret_cast< const Format::Word * >( &head + 1 );
    Format::forEachWord(
        words, [ & ]( size_t i ) __attribute__( ( always_inline ) ) {
          record[ i ] = from[ i ].load( std::memory_order_acquire );
          sum += Format::placed( record[ i ], i + 1 );
        } );
    return ( state.version & Format::placedBit ) &&
           !Format::checkDifference( state.version, sum ) &&
           head.version.load( std::memory_order_relaxed ) == state.version;
  }
  // What the record adds to its slot's sum.
  [[gnu::always_inline]] static uint64_t store( Format::SlotHead & head, size_t words,
                                                const uint64_t * record ) {
    auto * const to = reinterpret_cast< Format::Word * >( &head + 1 );
    uint64_t sum = 0;
    Format::forEachWord(
        words, [ & ]( size_t i ) __attribute__( ( always_inline ) ) {
          to[ i ].store( record[ i ], std::memory_order_release );
          sum += Format::placed( record[ i ], i + 1 );
        } );
    return sum;
  }

  // What a slot is whose record could not be copied from it. False if that has changed meanwhile.
  bool readOtherwise( uint32_t slot, size_t words, uint64_t * record, SlotState & state ) const {
    const uint64_t version = state.version;
    if ( version & Format::stagedBit ) {
      auto & staging = stagingOf( slot, words, version );
      const uint64_t settled = Format::counterpartOf( version );
      state.staged = copyFrom( staging.image, words, record, state ) && state.version == settled &&
                     staging.slot.load( std::memory_order_acquire ) == slot &&
                     staging.image.version.load( std::memory_order_relaxed ) == settled;
      state.version = settled;
      state.present = state.staged;
      if ( state.present ) {
        return true;
      }
    } else if ( !( version & Format::placedBit ) ) {
      const uint64_t sum = Format::sumOf( version, 0 );
      state.damaged = version != 0 && Format::checkDifference( version, sum ) != 0;
      return true;
    }
    state.damaged = headOf( slot, words ).version.load( std::memory_order_acquire ) == version;
    return state.damaged;
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
