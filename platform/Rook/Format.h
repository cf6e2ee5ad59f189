// The layout of a table's file; docs/table-format.md describes it. What changes in the bytes needs
// another layout version.
//
//   header   what the table is, written once, and its state
//   staging  a few cells for records that are being replaced
//   levels   each an index, twice over, for all slots so far and the slots that it adds
//
// What the order of stores rests on, the writer's being releases and the readers' loads acquires
// throughout:
//   1. A slot has a version and a record. A reader copies the record and loads the version again:
//      unmoved, no later write had begun on it.
//   2. A replacement is staged: it fills a staging cell, stores the slot's version as staged, which
//      commits it, copies the record in place and stores the version as final. Who finds a version
//      staged copies the cell, which holds that slot's record of that version until the version is
//      final, and loads the cell's name again: unmoved, no later write had begun on it. What a
//      killed writer left staged the next one finishes.
//   3. A removal is one store of the version. An insertion fills a slot without a record and stores
//      its version; its birth, the number of the insertion, stands in the slot, and it is committed
//      by storing the number in the state, after the version. A record with a higher one does not
//      stand, which is also how a walk leaves out what came after it began.
//   4. The index leads to a slot before the record is there and after it has gone. A record's slot
//      never changes, its bucket only from one index to the next, and no bucket between the one
//      where its search begins and its own is ever empty: what a look-up does not find in an index
//      that stayed the current one throughout did not stand.
//   5. The state's slots cover a slot before it has a record, and its index a level only when the
//      file has it.
// Words of the state, births and buckets carry a check, versions a checksum of the record too.
#pragma once

#include "Rook/Hash.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace Rook::Format {

constexpr uint64_t magic = 0x0A4C42544B4F4F52; // "ROOKTBL\n"
constexpr uint64_t layoutVersion = 6;

using Word = std::atomic< uint64_t >;
using Bucket = std::atomic< uint32_t >;
static_assert( Word::is_always_lock_free && sizeof( Word ) == 8 );
static_assert( Bucket::is_always_lock_free && sizeof( Bucket ) == 4 );

// What a table's file begins with.
struct Header {
  uint64_t magic;
  uint64_t layoutVersion;
  uint64_t recordSize;
  uint64_t pageSize; // the parts of the file are whole pages of so many bytes
  uint64_t check;    // of all the rest
  char fields[ 3032 ];
};

// The words are guarded, but for `changes`.
struct State {
  alignas( 64 ) Word index; // 0 while there is no level
  Word quiesced;
  alignas( 64 ) Word births;
  Word slots;   // the first so many may have been used
  Word changes; // writes, removals and take-overs, for those who poll
};

constexpr size_t headSize = 4096;
constexpr size_t stateOffset = sizeof( Header );
static_assert( stateOffset % alignof( State ) == 0 && stateOffset + sizeof( State ) <= headSize );

uint64_t checkOf( const Header & header );

// --- Words of the state: 56 bits and their check above them

constexpr unsigned guardedBits = 56;

constexpr uint64_t guarded( uint64_t value ) {
  return value | ( value * goldenRatio ) >> guardedBits << guardedBits;
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

// A record follows.
struct SlotHead {
  Word version; // 0: never used
  Word birth;
};

// A record that a slot is to have follows.
struct StagingHead {
  Word name; // of the slot and version
};
constexpr uint64_t stagingCells = 8;

// Of a record's version one of the two lowest bits is set: it is staged, or in place and so final.
// The next three say in which cell it is, or was, staged; from there to the 32nd it counts. Its
// upper half is the slot's checksum, as it is when the version is final.
constexpr uint64_t stagedBit = 1;
constexpr uint64_t placedBit = 2;
constexpr unsigned cellShift = 2;
constexpr uint64_t cellMask = ( stagingCells - 1 ) << cellShift;
constexpr unsigned countShift = 5;
static_assert( cellMask >> countShift == 0 );
constexpr unsigned checkShift = 32;
// A cell is known by these bits.
constexpr uint64_t cellFor( uint64_t change ) {
  return change << cellShift & cellMask;
}
constexpr uint64_t cellOf( uint64_t version ) {
  return version & cellMask;
}
// The final version after another, without its checksum: when a record is replaced by way of a
// cell, when an empty slot gets one, when it loses it.
constexpr uint64_t replacedVersion( uint64_t version, uint64_t cell ) {
  const uint64_t next = static_cast< uint32_t >( version + ( 1 << countShift ) );
  return ( next & ~( cellMask | stagedBit ) ) | cell;
}
constexpr uint64_t filledVersion( uint64_t version ) {
  return replacedVersion( version, 0 ) | placedBit;
}
constexpr uint64_t removedVersion( uint64_t version ) {
  return replacedVersion( version, 0 ) & ~placedBit;
}
// The staged version to a final one, and back.
constexpr uint64_t stagedVersion( uint64_t version ) {
  return version - placedBit + stagedBit;
}
constexpr uint64_t settledVersion( uint64_t version ) {
  return version - stagedBit + placedBit;
}
// Of a final version, whose checksum does not matter.
constexpr uint64_t stagingName( uint32_t slot, uint64_t version ) {
  return uint64_t( slot ) << checkShift | static_cast< uint32_t >( version );
}

// A birth is shifted past its check, so that births can be compared as they are.
constexpr unsigned birthShift = 64 - guardedBits;
constexpr uint64_t birthOf( uint64_t number ) {
  return number << birthShift | guarded( number ) >> guardedBits;
}
constexpr uint64_t numberOf( uint64_t birth ) {
  return birth >> birthShift;
}
constexpr bool isBirth( uint64_t birth ) {
  return birth == birthOf( numberOf( birth ) );
}
// Not below the birth with this number, below any later one.
constexpr uint64_t latestBirth( uint64_t number ) {
  return ( ( number + 1 ) << birthShift ) - 1;
}

// A checksum is the upper half of the golden ratio times a sum, of the version and every second
// word of the record, and the other words, rotated: any one bit of those that differs changes it.
struct Sum {
  uint64_t even = 0;
  uint64_t odd = 0;

  constexpr void add( uint64_t word, size_t place ) { ( place % 2 ? odd : even ) += word; }
  constexpr uint64_t with( uint64_t version ) const {
    return even + static_cast< uint32_t >( version ) + std::rotl( odd, 11 );
  }
};
// Of no record, from a start that records hardly have for a sum.
constexpr uint64_t removedSum( uint64_t version ) {
  return Sum{ goldenRatio, 0 }.with( version );
}
constexpr uint64_t withCheck( uint64_t version, uint64_t sum ) {
  return sum * goldenRatio >> checkShift << checkShift | version;
}
// 0 when it is sound.
constexpr uint64_t checkDifference( uint64_t version, uint64_t sum ) {
  return ( version ^ sum * goldenRatio ) >> checkShift;
}

// --- Sizes and places

constexpr size_t wordsOf( size_t recordSize ) {
  return ( recordSize + 7 ) / 8;
}
// Unrolled already where compilers decide what is in registers, when the number is a constant.
template< class Action >
[[gnu::always_inline]] inline void forEachWord( size_t words, Action && action ) {
  size_t at = 0;
  for ( ; words - at >= 4; at += 4 ) {
    action( at );
    action( at + 1 );
    action( at + 2 );
    action( at + 3 );
  }
  if ( words & 2 ) {
    action( at );
    action( at + 1 );
    at += 2;
  }
  if ( words & 1 ) {
    action( at );
  }
}
constexpr size_t slotSizeOf( size_t words ) {
  return sizeof( SlotHead ) + words * sizeof( uint64_t );
}
constexpr size_t cacheLine = 64;
constexpr size_t stagingSizeOf( size_t words ) {
  const size_t size = sizeof( StagingHead ) + words * sizeof( uint64_t );
  return ( size + cacheLine - 1 ) / cacheLine * cacheLine;
}
constexpr uint64_t stagingOffset = headSize;
constexpr uint64_t stagingOffsetOf( uint64_t cell, size_t words ) {
  return stagingOffset + cell * ( stagingSizeOf( words ) >> cellShift );
}

// Where the parts of a level lie in the file.
struct Level {
  uint64_t index; // two of them
  uint64_t slots;
  uint64_t end;
};

constexpr uint64_t mostSlots = uint64_t( 1 ) << 28;
constexpr uint64_t mostBytes = uint64_t( 1 ) << 40;
constexpr uint64_t mostPageSize = uint64_t( 1 ) << 20;

// Where the levels lie, as many as a file has at most, for records and pages of given sizes. The
// slots of a level are whole pages, so that those of all levels can be mapped one after the other.
class Layout {
public:
  Layout() = default;
  constexpr Layout( size_t recordSize, uint64_t pageSize )
      : firstSlots_( firstSlotsFor( slotSizeOf( wordsOf( recordSize ) ), pageSize ) ) {
    const size_t words = wordsOf( recordSize );
    const auto wholePages = [ pageSize ]( uint64_t bytes ) {
      return ( bytes + pageSize - 1 ) / pageSize * pageSize;
    };
    uint64_t index = wholePages( stagingOffset + stagingCells * stagingSizeOf( words ) );
    for ( ; capacity( count_ ) <= mostSlots; ++count_ ) {
      const uint64_t slots =
          index + 2 * wholePages( 2 * uint64_t( capacity( count_ ) ) * sizeof( Bucket ) );
      const uint64_t added = count_ ? capacity( count_ - 1 ) : capacity( 0 );
      level_[ count_ ] = { index, slots, slots + added * slotSizeOf( words ) };
      index = level_[ count_ ].end;
      if ( index > mostBytes ) {
        break;
      }
    }
  }

  uint32_t levels() const { return count_; }
  // Up to the first level.
  uint64_t headEnd() const { return level_[ 0 ].index; }
  const Level & level( uint32_t level ) const { return level_[ level ]; }
  // Of each of the level's two.
  uint64_t indexSize( uint32_t level ) const {
    return ( level_[ level ].slots - level_[ level ].index ) / 2;
  }
  // The slots up to those of a level.
  constexpr uint32_t capacity( uint32_t level ) const { return firstSlots_ << level; }

private:
  static constexpr uint32_t leastSlots = 512;
  static constexpr uint32_t firstSlotsFor( uint64_t slotSize, uint64_t pageSize ) {
    const uint64_t perPages = pageSize / std::min( pageSize, slotSize & -slotSize );
    return std::max( leastSlots, static_cast< uint32_t >( perPages ) );
  }

  uint32_t firstSlots_ = 0;
  uint32_t count_ = 0;
  std::array< Level, 20 > level_{};
};

// Whether a system with pages of some size can map a file laid out for others.
constexpr bool canMap( uint64_t pageSize, uint64_t systemPageSize ) {
  return std::has_single_bit( pageSize ) && pageSize <= mostPageSize &&
         pageSize % systemPageSize == 0;
}

} // namespace Rook::Format
