// Text forms: a reusable output buffer, an input cursor, and the printing and parsing of plain
// types. A type has a text form when `appendText( TextBuffer &, const T & )` and
// `parseText( TextCursor &, T & )` are found for it. Its brief form, which operators read and
// type, is the same text unless the type has `appendBrief` and `parseBrief` of its own.
//
// A number is read as it is printed, here and in every value's text: a whole one in decimal digits
// without leading zeros, so that "010" can be taken neither for ten nor for eight, and without a
// sign but the - of a negative one; any other in decimal notation, whose whole part has no leading
// zeros either, with or without an exponent, and finite.
#pragma once

#include <array>
#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace Vex {

using String = std::string;

// `text` as people can read it in a line: control characters stand as "\x00".
String printable( std::string_view text );

// A value outside its type's range.
class RangeError : public std::range_error {
public:
  explicit RangeError( std::string_view message ) : range_error( printable( message ) ) {}
};

// Text that is not the form of what was asked for. `offset` counts from the beginning of the
// text; `field` is the path of the failing field of a composite value, empty for a plain one.
class ParseError : public std::exception {
public:
  ParseError( String expected, String found, size_t offset );

  const char * what() const noexcept override { return message_.c_str(); }
  // What `what` tells; `found` is empty at the end of the text.
  const String & expected() const { return expected_; }
  const String & found() const { return found_; }
  const String & field() const { return field_; }
  size_t offset() const { return offset_; }

  // Puts `name` before the failing field's path.
  void inField( std::string_view name );
  // The same, where it is the name of an operation's argument.
  void inArgument( std::string_view name );

private:
  void compose();

  String expected_;
  String found_;
  const char * fieldKind_ = "field";
  String field_;
  String message_;
  size_t offset_;
};

// Characters appended at the end; keeps its memory when it is cleared.
class TextBuffer {
public:
  TextBuffer() = default;
  TextBuffer( const TextBuffer & ) = delete;
  TextBuffer & operator=( const TextBuffer & ) = delete;

  // At least `size` characters to write to; `commit` says where the writing ended.
  char * reserve( size_t size ) {
    if ( static_cast< size_t >( limit_ - end_ ) < size ) [[unlikely]] {
      grow( size );
    }
    return end_;
  }
  void commit( char * end ) { end_ = end; }

  void append( std::string_view text ) {
    char * out = reserve( text.size() );
    end_ = out + text.copy( out, text.size() );
  }
  void append( char c ) {
    *reserve( 1 ) = c;
    ++end_;
  }
  void clear() { end_ = begin_; }

  std::string_view view() const { return { begin_, static_cast< size_t >( end_ - begin_ ) }; }
  String str() const { return String( view() ); }

private:
  void grow( size_t size );

  char inline_[ 128 ];
  std::unique_ptr< char[] > heap_;
  char * begin_ = inline_;
  char * end_ = inline_;
  char * limit_ = inline_ + sizeof( inline_ );
};

// What is left of a text that is being parsed.
class TextCursor {
public:
  TextCursor( const char * begin, const char * end ) : begin_( begin ), at_( begin ), end_( end ) {}
  explicit TextCursor( std::string_view text )
      : TextCursor( text.data(), text.data() + text.size() ) {}

  const char * at() const { return at_; }
  const char * end() const { return end_; }
  void atIs( const char * at ) { at_ = at; }
  size_t offset() const { return static_cast< size_t >( at_ - begin_ ); }
  bool done() const { return at_ == end_; }
  std::string_view rest() const { return { at_, static_cast< size_t >( end_ - at_ ) }; }

  bool startsWith( std::string_view literal ) const { return rest().starts_with( literal ); }
  bool skip( std::string_view literal ) {
    if ( !startsWith( literal ) ) {
      return false;
    }
    at_ += literal.size();
    return true;
  }
  void expect( std::string_view literal ) {
    if ( !skip( literal ) ) [[unlikely]] {
      failLiteral( literal );
    }
  }
  // A word goes up to the next blank, comma, bracket, brace or quote.
  bool atWordEnd() const { return done() || endsWord( *at_ ); }
  std::string_view peekWord() const;
  std::string_view word() {
    const auto text = peekWord();
    at_ += text.size();
    return text;
  }

  [[noreturn]] void fail( String expected ) const;

private:
  static bool endsWord( char c ) {
    static constexpr auto ends = [] {
      std::array< bool, 256 > table{};
      for ( const unsigned char each : std::string_view( " \t,[]{}()'\"" ) ) {
        table[ each ] = true;
      }
      return table;
    }();
    return ends[ static_cast< unsigned char >( c ) ];
  }
  [[noreturn]] void failLiteral( std::string_view literal ) const;

  const char * begin_;
  const char * at_;
  const char * end_;
};

template< class T >
concept PlainInteger = std::integral< T > && !std::same_as< T, bool > && !std::same_as< T, char >;

template< PlainInteger T > void appendText( TextBuffer & out, T value ) {
  char * at = out.reserve( 21 );
  out.commit( std::to_chars( at, at + 21, value ).ptr );
}
// Not what merely converts to bool, as pointers do.
template< std::same_as< bool > T > void appendText( TextBuffer & out, T value ) {
  out.append( value ? '1' : '0' );
}
void appendText( TextBuffer & out, double value );
inline void appendText( TextBuffer & out, std::string_view value ) {
  out.append( value );
}
inline void appendText( TextBuffer & out, const String & value ) {
  out.append( value );
}
inline void appendText( TextBuffer & out, const char * value ) {
  out.append( std::string_view( value ) );
}

namespace Detail {
[[noreturn]] void failNumber( const TextCursor & in, size_t bits, bool isSigned );
} // namespace Detail

// Reads the number that `in` stands before, as far as it goes. False when there is none or it does
// not fit; `in` stays there then.
template< PlainInteger T > bool readNumber( TextCursor & in, T & value ) {
  const auto [ end, error ] = std::from_chars( in.at(), in.end(), value );
  if ( error != std::errc() ) [[unlikely]] {
    return false;
  }
  const bool negative = *in.at() == '-';
  const char * const digits = in.at() + negative;
  if ( *digits == '0' && ( negative || end - digits > 1 ) ) [[unlikely]] {
    return false;
  }
  in.atIs( end );
  return true;
}
bool readNumber( TextCursor & in, double & value );

template< PlainInteger T > void parseText( TextCursor & in, T & value ) {
  if ( !readNumber( in, value ) ) [[unlikely]] {
    Detail::failNumber( in, sizeof( T ) * 8, std::is_signed_v< T > );
  }
}
void parseText( TextCursor & in, bool & value );
void parseText( TextCursor & in, double & value );
// All that is left.
void parseText( TextCursor & in, String & value );

// An absent optional prints as "none".
template< class T > void appendText( TextBuffer & out, const std::optional< T > & value ) {
  if ( value ) {
    appendText( out, *value );
  } else {
    out.append( "none" );
  }
}
template< class T > void parseText( TextCursor & in, std::optional< T > & value ) {
  if ( in.peekWord() == "none" ) {
    in.word();
    value.reset();
  } else {
    parseText( in, value.emplace() );
  }
}

template< class T >
concept HasBriefForm = requires( TextBuffer & out, TextCursor & in, T & value ) {
  appendBrief( out, static_cast< const T & >( value ) );
  parseBrief( in, value );
};

template< class T > void appendBriefText( TextBuffer & out, const T & value ) {
  if constexpr ( HasBriefForm< T > ) {
    appendBrief( out, value );
  } else {
    appendText( out, value );
  }
}

template< class T > void parseBriefText( TextCursor & in, T & value ) {
  if constexpr ( HasBriefForm< T > ) {
    parseBrief( in, value );
  } else {
    parseText( in, value );
  }
}

inline void expectEnd( const TextCursor & in ) {
  if ( !in.done() ) [[unlikely]] {
    in.fail( "nothing more" );
  }
}

template< class T > String text( const T & value ) {
  TextBuffer out;
  appendText( out, value );
  return out.str();
}

template< class T > String briefText( const T & value ) {
  TextBuffer out;
  appendBriefText( out, value );
  return out.str();
}

// The whole of `[begin, end)`, else ParseError; `value` is unspecified then.
template< class T > void parseWhole( T & value, const char * begin, const char * end ) {
  TextCursor in( begin, end );
  parseText( in, value );
  expectEnd( in );
}

template< class T > T parse( std::string_view text ) {
  T value{};
  parseWhole( value, text.data(), text.data() + text.size() );
  return value;
}

template< class T > T parseBriefly( std::string_view text ) {
  T value{};
  TextCursor in( text );
  parseBriefText( in, value );
  expectEnd( in );
  return value;
}

// What a text may be given by, with another such behind its last character. No number is one, as 0
// is a null pointer, and no literal, as two of them are two texts.
template< class T >
concept TextIterator = std::contiguous_iterator< T > && std::is_same_v < std::iter_value_t< T >,
char > ;

template< class T >
concept HasTextForm = requires( TextBuffer & out, const T & value ) {
  appendText( out, value );
};

} // namespace Vex
