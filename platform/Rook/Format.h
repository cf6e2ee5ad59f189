// The layout of a table's file; docs/table-format.md describes it.
//
//   header   one page: what the table is, written once, and its state
//   levels   each an index, twice over, for all slots so far and the slots that it adds
//
// A slot has two cells and a version that selects one. What the order of stores rests on, the
// writer's being releases and the readers' loads acquires throughout:
//   - A write fills the other cell and stores the version, which commits it. A reader copies the
//     selected cell and loads the version again: unmoved, no later write had begun on that cell.
//   - A birth, the number of a record's insertion, stands in its slot; the insertion is committed
//     by storing the number in the state, after the version. A record with a higher one does not
//     stand, which is also how a walk leaves out what came after it began.
//   - The index leads to a slot before the record is there and after it has gone. A record's slot
//     never changes, its bucket only from one index to the next, and no bucket between the one
//     where its search begins and its own is ever empty: what a look-up does not find in an index
//     that stayed the current one throughout did not stand.
//   - The state's slots cover a slot before it has a record, and its index a level only when the
//     file has it.
// Words of the state and buckets carry a check, cells a checksum over version, birth and record.
#pragma once

#include "Vex/Hash.h"

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace Rook::Format {

constexpr uint64_t magic = 0x0A4C42544B4F4F52; // "ROOKTBL\n"
constexpr uint64_t layoutVersion = 1;

using Word = std::atomic< uint64_t >;
using Bucket = std::atomic< uint32_t >;
static_assert( Word::is_always_lock_free && sizeof( Word ) == 8 );
static_assert( Bucket::is_always_lock_free && sizeof( Bucket ) == 4 );

struct Header {
  uint64_t magic;
  uint64_t layoutVersion;
  uint64_t recordSize;
  uint64_t check; // of all the rest
  char fields[ 3040 ];
};

// The words are guarded, but for `changes`.
struct State {
  alignas( 64 ) Word index; // 0 while there is no level
  Word quiesced;
  alignas( 64 ) Word births;
  Word slots;   // the first so many may have been used
  Word changes; // writes and removals, for those who poll
};

constexpr size_t pageSize = 4096;
constexpr size_t stateOffset = sizeof( Header );
static_assert( stateOffset % alignof( State ) == 0 && stateOffset + sizeof( State ) <= pageSize );

uint64_t checkOf( const Header & header );

// --- Words of the state: 56 bits and their check above them

constexpr unsigned guardedBits = 56;

constexpr uint64_t guarded( uint64_t value ) {
  return value | ( value * Vex::goldenRatio ) >> guardedBits << guardedBits;
}

// None when the word is damaged.
constexpr std::optional< uint64_t > unguarded( uint64_t word ) {
  const uint64_t value = word << ( 64 - guardedBits ) >> ( 64 - guardedBits );
  return guarded( value ) == word ? std::optional( value ) : std::nullopt;
}

// Which index is the current one. The generation is another one each time.
struct Current {
  uint64_t generation;
  uint32_t level;
  uint32_t half;

  constexpr uint64_t value() const { return generation << 8 | level << 1 | half; }
  static constexpr Current of( uint64_t value ) {
    return { value >> 8, static_cast< uint32_t >( value >> 1 & 127 ),
             static_cast< uint32_t >( value & 1 ) };
  }
};

// --- Slots

struct SlotHead {
  Word version; // 0: never used
  Word birth;
  std::atomic< uint32_t > checks[ 2 ];
};

// A version counts from its third bit on.
constexpr uint64_t cellBit = 1;
constexpr uint64_t presentBit = 2;
constexpr uint64_t nextVersion( uint64_t version, bool present ) {
  return ( ( version >> 2 ) + 1 ) << 2 | ( present ? presentBit : 0 ) | ( ~version & cellBit );
}

// A sum of products: any one bit that differs changes it, and the products need not wait for
// each other. Its upper half is the checksum.
constexpr uint64_t weighted( uint64_t word, size_t place ) {
  return word * ( Vex::goldenRatio * ( 2 * place + 1 ) );
}
constexpr uint64_t checkSeed = 0xD1342543DE82EF95;
constexpr uint64_t checkSeedOf( uint64_t version ) {
  return checkSeed + weighted( version, 0 );
}

// --- Sizes and places

constexpr uint32_t firstSlots = 512; // of any size a multiple of 8, they are whole pages
static_assert( firstSlots / 2 * sizeof( uint64_t ) * 2 % pageSize == 0 );
constexpr unsigned firstSlotBits = std::countr_zero( firstSlots );

constexpr uint32_t capacityOf( uint32_t level ) {
  return firstSlots << level;
}
constexpr uint32_t bucketsOf( uint32_t level ) {
  return capacityOf( level ) / 2 * 3;
}
constexpr uint64_t wholePages( uint64_t bytes ) {
  return ( bytes + pageSize - 1 ) / pageSize * pageSize;
}

constexpr size_t wordsOf( size_t recordSize ) {
  return ( recordSize + 7 ) / 8;
}
// Such that no slot of up to a cache line lies across two.
constexpr size_t slotSizeOf( size_t words ) {
  const size_t size = 2 * words * sizeof( uint64_t ) + sizeof( SlotHead );
  return size <= 64 ? std::bit_ceil( size ) : size;
}

// Where the parts of a level lie in the file.
struct Level {
  uint64_t index; // two of them
  uint64_t slots;
  uint64_t end;

  static constexpr uint64_t indexSize( uint32_t level ) {
    return wholePages( uint64_t( bucketsOf( level ) ) * sizeof( Bucket ) );
  }
  static constexpr Level after( uint64_t end, uint32_t level, size_t slotSize ) {
    const uint64_t slots = end + 2 * indexSize( level );
    const uint64_t added = capacityOf( level ) - ( level ? capacityOf( level - 1 ) : 0 );
    return { end, slots, slots + added * slotSize };
  }
};

// The levels of a table, as many as fit into the addresses set aside for it, and at most 2^28
// slots.
constexpr uint32_t mostLevels = 20;
constexpr uint64_t mostBytes = uint64_t( 1 ) << 40;

} // namespace Rook::Format
