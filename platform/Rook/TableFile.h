// The memory of one table: a file, or private memory of the same layout. One is for one thread;
// other processes, and other TableFiles of this one, may have the same file. What raises says so.
//
// Invariants:
//   1. The file grows by levels at its end: nothing in it ever moves.
//   2. Addresses are taken for the levels alone that have been asked for, by the writer's makeLevel
//      or by anybody's currentIndex or moment, and the file has these.
//   3. Of a level's slots those that have been used have memory, and those that makeSlots has made
//      ready: no other may be looked at.
//   4. Indices keep their addresses. Slots, which lie one after the other whatever their level, get
//      others when a level is asked for the first time: nobody keeps the address of one.
#pragma once

#include "Rook/Index.h"
#include "Rook/Mapping.h"
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

// A table cannot be made larger, or not be shown whole: the file system has no more room, this
// process no more addresses, or it is as large as tables become. Says which table.
class NoRoom : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

// What the records of a table are: their size, and their fields as fieldsOf has them.
struct Description {
  size_t recordSize = 0;
  Vex::String fields;
};

// What a slot's words say of its record.
struct SlotState {
  uint64_t version = 0;
  uint64_t birth = 0; // in the form that Format has for it
  bool present = false;
  bool staged = false; // not in place yet
  bool damaged = false;
};

// What stood at one moment: the records whose birth is not above this, in the first so many slots.
struct Moment {
  uint64_t latestBirth;
  uint32_t slots;
};

class TableFile {
public:
  // Private memory; the name is for messages.
  TableFile( const Vex::String & name, const Description & description );
  // The file of a writer, which has it for itself and makes it if it is not there.
  static TableFile write( const Vex::String & path, const Description & description );
  // The file of a reader: of any records, unless they are described. Both raise
  // std::runtime_error, which says what was found and what expected, NoRoom among it.
  static TableFile read( const Vex::String & path, const Description * expected );

  const Vex::String & path() const { return path_; } // of private memory "private table 'name'"
  const Description & description() const { return description_; }
  // Whether the file has lost its name, or another one has it.
  bool isReplaced() const;

  Format::State & state() const {
    return *reinterpret_cast< Format::State * >( head_.memory() + Format::stateOffset );
  }
  // Raises Corruption when the word is damaged.
  uint64_t load( const Format::Word & word, const char * name ) const {
    return valueOf( word.load( std::memory_order_acquire ), name );
  }

  // Of a level that has been asked for.
  Index index( uint32_t level, uint32_t half ) const {
    return { reinterpret_cast< Format::Bucket * >( indices_[ level ].memory() +
                                                   half * layout_.indexSize( level ) ),
             layout_.capacity( level ) };
  }
  // What a word of the state's `index` says, other than 0; the level's slots can be read then.
  // Raises Corruption, std::runtime_error when the file is too short for it, and NoRoom.
  Format::Current currentIndex( uint64_t word ) const;
  // Now. Whatever slot it covers can be read. Raises what currentIndex does.
  Moment moment() const;

  // The slots of a table that has this level. Raises NoRoom when none is so large.
  uint32_t capacity( uint32_t level ) const;
  // For the writer: makes the file have a level that there is, one of its indices, or memory for
  // some more of its slots, from the first `from` on; makeLevel and makeSlots return how many slots
  // have it then. Raise NoRoom, and std::runtime_error when the system cannot for another reason;
  // the file is as long as before then, and what the state says of stands as it did. The indices of
  // earlier levels keep their memory: a reader that still looks into one would be given it anew,
  // and end where there is none.
  uint32_t makeLevel( uint32_t level );
  uint32_t makeSlots( uint32_t level, uint32_t from );
  void makeIndex( uint32_t level, uint32_t half );

  // --- Slots. `words` is what the records have, a constant where their type is known.

  // One attempt at a record that stands in place and is sound, as nearly all are: whether it has
  // been copied. The state says then, or of what readOtherwise looks at, its version and birth,
  // which has not been checked.
  [[gnu::always_inline]] bool copySlot( uint32_t slot, size_t words, uint64_t * record,
                                        SlotState & state ) const {
    auto & head = headOf( slot, words );
    state.version = head.version.load( std::memory_order_acquire );
    state.birth = head.birth.load( std::memory_order_acquire );
    const uint64_t sum = copy( wordsAfter( head ), words, record ).with( state.version );
    if ( !( state.version & Format::placedBit ) || Format::checkDifference( state.version, sum ) )
        [[unlikely]] {
      return false;
    }
    if ( head.version.load( std::memory_order_relaxed ) != state.version ) [[unlikely]] {
      return false;
    }
    return true;
  }
  // The record is copied to `record` if there is one.
  SlotState readSlot( uint32_t slot, size_t words, uint64_t * record ) const {
    SlotState state;
    do {
      state.present = copySlot( slot, words, record, state );
    } while ( !state.present && !readOtherwise( slot, words, record, state ) );
    state.damaged |= state.present && !Format::isBirth( state.birth );
    state.present &= !state.damaged;
    return state;
  }

  // For the writer, who says what stands: a slot's version and record, not copied, which is in
  // place if the version says so.
  uint64_t versionOf( uint32_t slot, size_t words ) const {
    return headOf( slot, words ).version.load( std::memory_order_relaxed );
  }
  const std::byte * recordOf( uint32_t slot, size_t words ) const {
    return reinterpret_cast< const std::byte * >( wordsAfter( headOf( slot, words ) ) );
  }
  // An empty slot gets a record, whose birth is yet to be told,
  void fillSlot( uint32_t slot, size_t words, uint64_t version, uint64_t birth,
                 const uint64_t * record ) const {
    auto & head = headOf( slot, words );
    const uint64_t next = Format::filledVersion( version );
    head.birth.store( birth, std::memory_order_release );
    const uint64_t sum = store( wordsAfter( head ), words, record ).with( next );
    head.version.store( Format::withCheck( next, sum ), std::memory_order_release );
  }
  // or one has its record replaced,
  [[gnu::always_inline]] void replaceSlot( uint32_t slot, size_t words, uint64_t version,
                                           const uint64_t * record ) const {
    // Nothing up to the version waits for the slot to be read: the cells take turns by themselves.
    auto & changes = state().changes;
    const uint64_t change = changes.load( std::memory_order_relaxed ) + 1;
    const uint64_t cell = Format::cellFor( change );
    auto & staging = stagingAt( cell, words );
    auto & head = headOf( slot, words );
    uint64_t next = Format::replacedVersion( version, cell );
    staging.name.store( Format::stagingName( slot, next ), std::memory_order_release );
    const uint64_t sum = store( wordsAfter( staging ), words, record ).with( next );
    next = Format::withCheck( next, sum );
    head.version.store( Format::stagedVersion( next ), std::memory_order_release );
    store( wordsAfter( head ), words, record );
    head.version.store( next, std::memory_order_release );
    changes.store( change, std::memory_order_release );
  }
  // or what is staged, as it was read, copied in place,
  void settleSlot( uint32_t slot, size_t words, uint64_t version, const uint64_t * record ) const {
    auto & head = headOf( slot, words );
    store( wordsAfter( head ), words, record );
    head.version.store( version, std::memory_order_release );
  }
  // or is emptied.
  void emptySlot( uint32_t slot, size_t words, uint64_t version ) const {
    const uint64_t next = Format::removedVersion( version );
    headOf( slot, words )
        .version.store( Format::withCheck( next, Format::removedSum( next ) ),
                        std::memory_order_release );
    countChange();
  }
  void countChange() const {
    auto & changes = state().changes;
    changes.store( changes.load( std::memory_order_relaxed ) + 1, std::memory_order_release );
  }

  // What is raised for want of memory, which is there already.
  const NoRoom & noMemory() const { return noMemory_; }
  Corruption damageOfSlot( uint32_t slot ) const;
  Corruption damageOfIndex() const;

private:
  Corruption damageOf( const Vex::String & what ) const;
  TableFile( const Vex::String & path, Vex::Descriptor file );

  Format::SlotHead & headOf( uint32_t slot, size_t words ) const {
    return *reinterpret_cast< Format::SlotHead * >( slots_.memory() +
                                                    slot * Format::slotSizeOf( words ) );
  }
  Format::StagingHead & stagingAt( uint64_t cell, size_t words ) const {
    return *reinterpret_cast< Format::StagingHead * >( head_.memory() +
                                                       Format::stagingOffsetOf( cell, words ) );
  }
  template< class Head > static Format::Word * wordsAfter( Head & head ) {
    return reinterpret_cast< Format::Word * >( &head + 1 );
  }
  // Both return what the record adds to its slot's sum.
  [[gnu::always_inline]] static Format::Sum copy( const Format::Word * from, size_t words,
                                                  uint64_t * record ) {
    Format::Sum sum;
    Format::forEachWord(
        words, [ & ]( size_t i ) __attribute__( ( always_inline ) ) {
          record[ i ] = from[ i ].load( std::memory_order_acquire );
          sum.add( record[ i ], i );
        } );
    return sum;
  }
  [[gnu::always_inline]] static Format::Sum store( Format::Word * to, size_t words,
                                                   const uint64_t * record ) {
    Format::Sum sum;
    Format::forEachWord(
        words, [ & ]( size_t i ) __attribute__( ( always_inline ) ) {
          to[ i ].store( record[ i ], std::memory_order_release );
          sum.add( record[ i ], i );
        } );
    return sum;
  }

  // What a slot is whose record could not be copied from it. False if that has changed meanwhile.
  bool readOtherwise( uint32_t slot, size_t words, uint64_t * record, SlotState & state ) const {
    const uint64_t version = state.version;
    if ( version & Format::stagedBit ) {
      const uint64_t settled = Format::settledVersion( version );
      auto & staging = stagingAt( Format::cellOf( settled ), words );
      const uint64_t name = Format::stagingName( slot, settled );
      const bool named = staging.name.load( std::memory_order_acquire ) == name;
      const uint64_t sum = copy( wordsAfter( staging ), words, record ).with( settled );
      state.version = settled;
      state.staged = named && !Format::checkDifference( settled, sum ) &&
                     staging.name.load( std::memory_order_acquire ) == name;
      state.present = state.staged;
      if ( state.present ) {
        return true;
      }
    } else if ( !( version & Format::placedBit ) ) {
      state.damaged =
          version != 0 && Format::checkDifference( version, Format::removedSum( version ) ) != 0;
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
  void mapLevels( uint32_t level ) const;
  Mapping mapped( std::span< const Mapping::Part > parts ) const;
  uint64_t size() const;
  void lengthIs( uint64_t size );
  void allocate( uint64_t offset, uint64_t size );
  [[noreturn]] void cutShort( uint64_t least ) const;

  Vex::String path_;
  NoRoom noMemory_;
  Vex::Descriptor file_;
  Description description_;
  Format::Layout layout_;
  int protection_ = 0;
  Mapping head_; // the header, the state and the staging cells
  // Of the levels that the file has, as far as they have been asked for.
  mutable uint32_t levelsMapped_ = 0;
  mutable std::vector< Mapping > indices_;
  mutable Mapping slots_;
};

} // namespace Rook
