// The layout of a ring file, shared by its writer and its reader; docs/ring-format.md describes
// it. Everything is in 64-bit words of the machine's byte order.
#pragma once

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Ringlog::RingFormat {

constexpr uint64_t magic = 0x0a474e49525a454bULL; // "KEZRING\n"
constexpr uint64_t layoutVersion = 1;

// Written once, in two copies, so that damage to one is no loss.
struct Header {
  uint64_t magic;
  uint64_t layoutVersion;
  uint64_t fileSize; // this and the next two in bytes
  uint64_t tableSize;
  uint64_t blockSize;
  uint64_t blockCount;
  uint64_t process;
  uint64_t ticks;        // at the mounting, which was at:
  double seconds;        // of the steady clock
  double wallSeconds;    // since 1970
  double ticksPerSecond; // as measured at the mounting
  uint64_t check;
};
constexpr size_t headerSize = 4096;
constexpr size_t headerCopies[] = { 0, 2048 };
constexpr size_t progressOffset = 1024;

// How far the writer has come.
struct Progress {
  std::atomic< uint64_t > tableWords; // of the call-site table that are committed
  std::atomic< uint64_t > lostRecords;
};

// The head of a block; records follow it. A block has one writer at a time and a new sequence
// each time it is begun anew, zero in between.
struct Block {
  std::atomic< uint64_t > sequence;
  std::atomic< uint64_t > words; // of records that are committed
};
constexpr size_t blockHeadWords = sizeof( Block ) / sizeof( uint64_t );

// The head of a record and of an entry of the call-site table: the call site's number, the size
// in words (of the whole) and flags.
struct Head {
  uint32_t site;
  uint16_t words;
  uint16_t flags;
};
constexpr uint16_t hasSeconds = 1; // a record of virtual time has its seconds after the ticks

// A record: head, check, ticks, [seconds,] values. An entry: head, check, then as put by the
// writer. The check covers all words but itself.
constexpr size_t recordWords = 3;
constexpr size_t entryWords = 2;
constexpr size_t longestRecord = 512; // in words
constexpr size_t longestText = 512;   // in characters

// Call sites that stand in no table: a record that holds its handle, level, file, line and text,
// and one that holds the steady clock's seconds at its ticks.
constexpr uint32_t textSite = 0;
constexpr uint32_t clockSite = 1;
constexpr uint32_t firstSite = 2;

enum class PieceKind : uint64_t { literal, natural, integer, boolean, real, text };

// Set in the size of a text that was longer.
constexpr uint64_t cutText = uint64_t( 1 ) << 32;

// Where entries of the table begin their check; records begin with their block's sequence.
constexpr uint64_t tableSeed = 0x7461626c65ULL;

constexpr uint64_t checkNext( uint64_t check, uint64_t word ) {
  return std::rotl( check, 5 ) + word;
}
inline uint64_t checkOf( uint64_t seed, const uint64_t * words, size_t count ) {
  uint64_t check = seed;
  for ( size_t i = 0; i < count; ++i ) {
    check = checkNext( check, words[ i ] );
  }
  return check;
}
// Of a record or an entry, whose second word it is.
inline uint64_t checkOfItem( uint64_t seed, const uint64_t * item, size_t count ) {
  return checkOf( checkNext( seed, item[ 0 ] ), item + 2, count - 2 );
}
inline uint64_t checkOfHeader( const Header & header ) {
  uint64_t words[ sizeof( Header ) / sizeof( uint64_t ) ];
  std::memcpy( words, &header, sizeof( header ) );
  return checkOf( 0, words, std::size( words ) - 1 );
}

} // namespace Ringlog::RingFormat
