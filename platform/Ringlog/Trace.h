// Trace statements. A source file has one handle, and its statements name a level and their
// pieces:
//
//   static Ringlog::Handle traceHandle( "KezEvpnLagSm" );
//   ...
//   TRACE( 8, "handleMember intf ", intfId );
//
// The text is the pieces, one after the other: string literals as they are, values by their text
// form. A statement that is off costs one load and one branch and evaluates no piece. While a ring
// is mounted (Ringlog/Ring.h) every statement writes a record to it, and its text where the text
// trace has its level. A literal that reads otherwise in the ring is given as
// Ringlog::either( "in the text", "in the ring" ).
//
// A statement finds `traceHandle` by name, so that a class or a template that serves several
// handles may have a member or a parameter of that name.
#pragma once

#include "Ringlog/RingValues.h"
#include "Vex/ForEach.h"
#include "Vex/Text.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace Ringlog {

constexpr int highestLevel = 9;

// Known to the process while it lives; gets the levels that the trace setting gives its name,
// and all while a ring is mounted, now and whenever that changes. Handles and their statements
// may be used by any thread.
class Handle {
public:
  // `name` is of letters, digits and '_', and outlives the handle. `source` is the file that the
  // handle is of.
  explicit Handle( std::string_view name, const char * source = __builtin_FILE() );
  ~Handle();
  Handle( const Handle & ) = delete;
  Handle & operator=( const Handle & ) = delete;

  std::string_view name() const { return name_; }
  const char * source() const { return source_; }
  bool isOn( int level ) const { return isBitOn( level ); }
  // Whether the level is on for the text, which it may be beside the ring.
  bool isTextOn( int level ) const { return isBitOn( level + textBit ); }
  bool isRingOn() const { return isBitOn( ringBit ); }

  // Unlike any other handle's of the process, past ones too.
  uint32_t number() const { return number_; }

private:
  friend class Registry;

  static constexpr int textBit = 16;
  static constexpr int ringBit = 31;

  bool isBitOn( int bit ) const {
    return ( levels_.load( std::memory_order_relaxed ) & ( 1u << bit ) ) != 0;
  }

  std::atomic< uint32_t > levels_{ 0 };
  const uint32_t number_;
  const std::string_view name_;
  const char * const source_;
};

// What of a statement is the same each time it runs, but for the handle.
struct CallSite {
  int level;
  const char * file;
  int line;
  // The number of the handle that ran last, above the number that the ring has given the site
  // with this handle.
  std::atomic< uint64_t > inRing{ 0 };
};

inline void appendText( Vex::TextBuffer & out, const Literal & literal ) {
  out.append( literal.text );
}
inline void appendText( Vex::TextBuffer & out, const Either & either ) {
  out.append( either.text );
}

template< size_t textSize, size_t ringSize >
consteval Either either( const char ( &text )[ textSize ], const char ( &ring )[ ringSize ] ) {
  return { { text, textSize - 1 }, { ring, ringSize - 1 } };
}

template< size_t size > consteval Literal piece( const char ( &text )[ size ] ) {
  return { { text, size - 1 } };
}
template< Vex::HasTextForm T > const T & piece( const T & value ) {
  return value;
}

// Hands a statement's text to the sink.
void deliver( const Handle & handle, const CallSite & site, std::string_view text ) noexcept;

// Turns all levels of all handles on for the ring, or leaves them to the text trace.
void ringLevelsAre( bool on );

// Writes a record of the values to the mounted ring. False when the ring does not know the call
// site with this handle, or the record is too long.
bool writeRecord( const Handle & handle, const CallSite & site,
                  std::span< const uint64_t > values ) noexcept;
// The same, after entering the call site; what cannot be written so is written as text.
void writeFirstRecord( const Handle & handle, CallSite & site, std::span< const PieceForm > forms,
                       std::span< const uint64_t > values ) noexcept;

template< class... Pieces >
[[gnu::noinline, gnu::cold]] void recordText( const Handle & handle, const CallSite & site,
                                              const Pieces &... pieces ) {
  // Its own buffer, so that a text form may trace.
  Vex::TextBuffer text;
  ( appendText( text, pieces ), ... );
  deliver( handle, site, text.view() );
}

// Runs a statement that is on.
template< class... Pieces >
[[gnu::noinline]] void record( const Handle & handle, CallSite & site, const Pieces &... pieces ) {
  if ( handle.isRingOn() ) {
    uint64_t words[ ( mostWords< Pieces >() + ... + 1 ) ];
    uint64_t * end = words;
    ( ( end = putValue( end, pieces ) ), ... );
    const std::span< const uint64_t > values( words, end );
    if ( !writeRecord( handle, site, values ) ) [[unlikely]] {
      const PieceForm forms[] = { pieceForm( pieces )... };
      writeFirstRecord( handle, site, forms, values );
    }
  }
  if ( handle.isTextOn( site.level ) ) [[unlikely]] {
    recordText( handle, site, pieces... );
  }
}

} // namespace Ringlog

#define RINGLOG_PIECE( value ) Ringlog::piece( value )
#define TRACE( level, ... )                                                                        \
  do {                                                                                             \
    static_assert( ( level ) >= 0 && ( level ) <= Ringlog::highestLevel );                         \
    if ( traceHandle.isOn( level ) ) [[unlikely]] {                                                \
      static constinit Ringlog::CallSite ringlogSite{ level, __FILE__, __LINE__ };                 \
      Ringlog::record( traceHandle, ringlogSite, VEX_FOR_EACH( RINGLOG_PIECE, __VA_ARGS__ ) );     \
    }                                                                                              \
  } while ( false )
