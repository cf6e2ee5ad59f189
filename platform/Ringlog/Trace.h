// Trace statements. A source file has one handle, and its statements name a level and their
// pieces:
//
//   static Ringlog::Handle traceHandle( "KezEvpnLagSm" );
//   ...
//   TRACE( 8, "handleMember intf ", intfId );
//
// The text is the pieces, one after the other: string literals as they are, values by their text
// form. A statement that is off costs one load and one branch and evaluates no piece.
//
// A statement finds `traceHandle` by name, so that a class or a template that serves several
// handles may have a member or a parameter of that name.
#pragma once

#include "Vex/ForEach.h"
#include "Vex/Text.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Ringlog {

constexpr int highestLevel = 9;

// Known to the process while it lives; gets the levels that the trace setting gives its name,
// now and whenever that changes. Handles and their statements may be used by any thread.
class Handle {
public:
  // `name` is of letters, digits and '_', and outlives the handle.
  explicit Handle( std::string_view name );
  ~Handle();
  Handle( const Handle & ) = delete;
  Handle & operator=( const Handle & ) = delete;

  std::string_view name() const { return name_; }
  bool isOn( int level ) const {
    return ( levels_.load( std::memory_order_relaxed ) & ( 1u << level ) ) != 0;
  }

private:
  friend class Registry;

  std::atomic< uint32_t > levels_{ 0 };
  std::string_view name_;
};

// What of a statement is the same each time it runs, but for the handle.
struct CallSite {
  int level;
  const char * file;
  int line;
};

// A piece that is a string literal, and so the same each time its statement runs. A choice
// between literals is a value: give it as a string_view.
struct Literal {
  std::string_view text;
};

inline void appendText( Vex::TextBuffer & out, const Literal & literal ) {
  out.append( literal.text );
}

template< size_t size > consteval Literal piece( const char ( &text )[ size ] ) {
  return { { text, size - 1 } };
}
template< Vex::HasTextForm T > const T & piece( const T & value ) {
  return value;
}

// Hands a statement's text to the sink.
void deliver( const Handle & handle, const CallSite & site, std::string_view text ) noexcept;

// Runs a statement that is on. The buffer is its own, so that a text form may trace.
template< class... Pieces >
[[gnu::noinline, gnu::cold]] void record( const Handle & handle, const CallSite & site,
                                          const Pieces &... pieces ) {
  Vex::TextBuffer text;
  ( appendText( text, pieces ), ... );
  deliver( handle, site, text.view() );
}

} // namespace Ringlog

#define RINGLOG_PIECE( value ) Ringlog::piece( value )
#define TRACE( level, ... )                                                                        \
  do {                                                                                             \
    static_assert( ( level ) >= 0 && ( level ) <= Ringlog::highestLevel );                         \
    if ( traceHandle.isOn( level ) ) [[unlikely]] {                                                \
      static constexpr Ringlog::CallSite ringlogSite{ level, __FILE__, __LINE__ };                 \
      Ringlog::record( traceHandle, ringlogSite, VEX_FOR_EACH( RINGLOG_PIECE, __VA_ARGS__ ) );     \
    }                                                                                              \
  } while ( false )
