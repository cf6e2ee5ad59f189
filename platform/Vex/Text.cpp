#include "Vex/Text.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>

namespace Vex {

String printable( std::string_view text ) {
  constexpr std::string_view digits = "0123456789abcdef";
  String all;
  for ( const char c : text ) {
    const auto byte = static_cast< unsigned char >( c );
    if ( byte < ' ' || byte == 0x7f ) {
      all += { '\\', 'x', digits[ byte >> 4 ], digits[ byte & 15 ] };
    } else {
      all += c;
    }
  }
  return all;
}

ParseError::ParseError( String expected, String found, size_t offset )
    : expected_( std::move( expected ) ), found_( std::move( found ) ), offset_( offset ) {
  compose();
}

void ParseError::inField( std::string_view name ) {
  field_ = field_.empty() ? String( name ) : String( name ) + "." + field_;
  compose();
}

void ParseError::inArgument( std::string_view name ) {
  fieldKind_ = "argument";
  inField( name );
}

void ParseError::compose() {
  message_ = printable( ( field_.empty() ? "" : String( fieldKind_ ) + " '" + field_ + "': " ) +
                        "expected " + expected_ + ", found " +
                        ( found_.empty() ? "nothing" : "'" + found_ + "'" ) );
}

void TextBuffer::grow( size_t size ) {
  const auto used = static_cast< size_t >( end_ - begin_ );
  const auto capacity = std::max( used + size, 2 * static_cast< size_t >( limit_ - begin_ ) );
  auto heap = std::make_unique_for_overwrite< char[] >( capacity );
  std::memcpy( heap.get(), begin_, used );
  heap_ = std::move( heap );
  begin_ = heap_.get();
  end_ = begin_ + used;
  limit_ = begin_ + capacity;
}

std::string_view TextCursor::peekWord() const {
  const char * stop = at_;
  while ( stop != end_ && !endsWord( *stop ) ) {
    ++stop;
  }
  return { at_, static_cast< size_t >( stop - at_ ) };
}

void TextCursor::fail( String expected ) const {
  constexpr size_t shown = 40;
  String found( peekWord().empty() ? rest().substr( 0, 1 ) : peekWord() );
  if ( found.size() > shown ) {
    found.resize( shown );
    found += "...";
  }
  throw ParseError( std::move( expected ), std::move( found ), offset() );
}

void TextCursor::failLiteral( std::string_view literal ) const {
  fail( "'" + String( literal ) + "'" );
}

void Detail::failNumber( const TextCursor & in, size_t bits, bool isSigned ) {
  in.fail( "a whole number of " + std::to_string( bits ) + " bits" +
           ( isSigned ? "" : ", not negative" ) );
}

void appendText( TextBuffer & out, double value ) {
  value = value == 0 ? 0 : value; // also the negative one
  // In digits as long as that is how people write it; the shortest that reads back the same.
  const double size = std::abs( value );
  const bool plain = value == 0 || ( size >= 1e-6 && size < 1e15 );
  char * at = out.reserve( 32 );
  out.commit( std::to_chars( at, at + 32, value,
                             plain ? std::chars_format::fixed : std::chars_format::general )
                  .ptr );
}

void parseText( TextCursor & in, bool & value ) {
  const auto word = in.peekWord();
  if ( word == "1" || word == "true" ) {
    value = true;
  } else if ( word == "0" || word == "false" ) {
    value = false;
  } else {
    in.fail( "0, 1, false or true" );
  }
  in.word();
}

bool readNumber( TextCursor & in, double & value ) {
  const auto [ end, error ] = std::from_chars( in.at(), in.end(), value );
  if ( error != std::errc() || !std::isfinite( value ) ) {
    return false;
  }
  const char * const whole = in.at() + ( *in.at() == '-' );
  if ( *whole == '0' && whole + 1 != end &&
       std::isdigit( static_cast< unsigned char >( whole[ 1 ] ) ) ) {
    return false;
  }
  in.atIs( end );
  return true;
}

void parseText( TextCursor & in, double & value ) {
  if ( !readNumber( in, value ) ) {
    in.fail( "a number" );
  }
}

void parseText( TextCursor & in, String & value ) {
  value = in.rest();
  in.atIs( in.end() );
}

} // namespace Vex
