// What a trace statement's pieces are in a ring: literals stand in the table of call sites,
// values in the record, as a word or as a bounded text.
#pragma once

#include "Ringlog/RingFormat.h"
#include "Vex/Text.h"

#include <algorithm>
#include <span>
#include <string_view>

namespace Ringlog {

// A piece that is a string literal, and so the same each time its statement runs. A choice
// between literals is a value: give it as a string_view.
struct Literal {
  std::string_view text;
};

// A literal that reads otherwise in the ring.
struct Either {
  std::string_view text;
  std::string_view ring;
};

// A piece as the table of call sites has it.
struct PieceForm {
  RingFormat::PieceKind kind;
  std::string_view literal;
};

template< class T > constexpr RingFormat::PieceKind pieceKind() {
  using enum RingFormat::PieceKind;
  if constexpr ( std::same_as< T, Literal > || std::same_as< T, Either > ) {
    return literal;
  } else if constexpr ( std::same_as< T, bool > ) {
    return boolean;
  } else if constexpr ( Vex::PlainInteger< T > ) {
    return std::is_signed_v< T > ? integer : natural;
  } else if constexpr ( std::floating_point< T > ) {
    return real;
  } else {
    return text;
  }
}

inline PieceForm pieceForm( const Literal & piece ) {
  return { RingFormat::PieceKind::literal, piece.text };
}
inline PieceForm pieceForm( const Either & piece ) {
  return { RingFormat::PieceKind::literal, piece.ring };
}
template< class T > PieceForm pieceForm( const T & ) {
  return { pieceKind< T >(), {} };
}

constexpr size_t textWords( size_t size ) {
  return 1 + ( size + 7 ) / 8;
}

// Its size, and its characters padded with zeroes; returns what follows. For short texts this is
// quicker than to have the memory copied.
inline uint64_t * putText( uint64_t * out, std::string_view text ) {
  const size_t size = std::min( text.size(), RingFormat::longestText );
  *out++ = size | ( size < text.size() ? RingFormat::cutText : 0 );
  const char * in = text.data();
  size_t left = size;
  for ( ; left >= 8; left -= 8, in += 8 ) {
    std::memcpy( out++, in, 8 );
  }
  if ( left != 0 ) {
    uint64_t last = 0;
    if ( size >= 8 ) {
      std::memcpy( &last, in + left - 8, 8 );
      last >>= 8 * ( 8 - left );
    } else {
      for ( size_t i = 0; i < left; ++i ) {
        last |= uint64_t( static_cast< unsigned char >( in[ i ] ) ) << 8 * i;
      }
    }
    *out++ = last;
  }
  return out;
}

template< class T > constexpr size_t mostWords() {
  using enum RingFormat::PieceKind;
  constexpr auto kind = pieceKind< T >();
  return kind == literal ? 0 : kind == text ? textWords( RingFormat::longestText ) : 1;
}

// A value that has no word of its own is stored as its text; its text form may trace.
template< class T > uint64_t * putValue( uint64_t * out, const T & value ) {
  using enum RingFormat::PieceKind;
  constexpr auto kind = pieceKind< T >();
  if constexpr ( kind == literal ) {
    return out;
  } else if constexpr ( kind == real ) {
    *out = std::bit_cast< uint64_t >( static_cast< double >( value ) );
    return out + 1;
  } else if constexpr ( kind != text ) {
    *out = static_cast< uint64_t >( value );
    return out + 1;
  } else if constexpr ( std::same_as< T, Vex::String > || std::same_as< T, std::string_view > ||
                        std::same_as< std::decay_t< T >, const char * > ||
                        std::same_as< std::decay_t< T >, char * > ) {
    return putText( out, std::string_view( value ) );
  } else {
    Vex::TextBuffer buffer;
    appendText( buffer, value );
    return putText( out, buffer.view() );
  }
}

// The text that pieces of these forms have in the ring. False when the words are not values of
// the forms; then the text goes as far as they are.
bool appendPieces( Vex::TextBuffer & out, std::span< const PieceForm > forms,
                   std::span< const uint64_t > words );

// Takes a text as put by putText off the front of `words`. False when none stands there.
bool takeText( std::span< const uint64_t > & words, std::string_view & text, bool & cut );

} // namespace Ringlog
