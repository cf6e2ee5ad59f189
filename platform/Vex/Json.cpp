#include "Vex/Json.h"

#include <cmath>

namespace Vex {

namespace {

// The bytes of the character that `text` begins with; 0 when it is none of UTF-8.
size_t characterSize( std::string_view text ) {
  const auto byte = [ & ]( size_t i ) -> unsigned {
    return i < text.size() ? static_cast< unsigned char >( text[ i ] ) : 0;
  };
  const auto follows = [ & ]( size_t i ) { return ( byte( i ) & 0xc0 ) == 0x80; };
  const unsigned first = byte( 0 ), second = byte( 1 );
  if ( first < 0x80 ) {
    return 1;
  }
  if ( first >= 0xc2 && first < 0xe0 ) {
    return follows( 1 ) ? 2 : 0;
  }
  // Neither what fewer bytes say, nor halves of pairs, nor what is beyond the last one.
  if ( ( first == 0xe0 && second < 0xa0 ) || ( first == 0xed && second >= 0xa0 ) ||
       ( first == 0xf0 && second < 0x90 ) || ( first == 0xf4 && second >= 0x90 ) ) {
    return 0;
  }
  if ( first >= 0xe0 && first < 0xf0 ) {
    return follows( 1 ) && follows( 2 ) ? 3 : 0;
  }
  if ( first >= 0xf0 && first < 0xf5 ) {
    return follows( 1 ) && follows( 2 ) && follows( 3 ) ? 4 : 0;
  }
  return 0;
}

bool isJsonNumber( std::string_view text ) {
  return !text.empty() && text.find_first_not_of( "0123456789+-.e" ) == text.npos;
}

} // namespace

std::ostream & JsonWriter::item() {
  if ( !first_ ) {
    out_ << ',';
  }
  first_ = false;
  return out_;
}

void JsonWriter::open( char bracket ) {
  item() << bracket;
  first_ = true;
}

void JsonWriter::close( char bracket ) {
  out_ << bracket;
  first_ = false;
}

void JsonWriter::name( std::string_view name ) {
  put( name );
  out_ << ':';
  first_ = true;
}

void JsonWriter::put( double number ) {
  item() << ( std::isfinite( number ) ? Vex::text( number ) : "null" );
}

void JsonWriter::put( std::string_view text, TextForm form ) {
  if ( form == TextForm::truth ) {
    put( parseBriefly< bool >( text ) );
  } else if ( form == TextForm::number && isJsonNumber( text ) ) {
    item() << text;
  } else {
    put( text );
  }
}

void JsonWriter::put( std::string_view text ) {
  constexpr std::string_view digits = "0123456789abcdef";
  item() << '"';
  while ( !text.empty() ) {
    const char c = text[ 0 ];
    const size_t size = characterSize( text );
    if ( size == 0 ) {
      out_ << "\\ufffd";
    } else if ( c == '"' || c == '\\' ) {
      out_ << '\\' << c;
    } else if ( ( c >= 0 && c < ' ' ) || guarded_.find( c ) != guarded_.npos ) {
      const auto code = static_cast< unsigned char >( c );
      out_ << "\\u00" << digits[ code >> 4 ] << digits[ code & 15 ];
    } else {
      out_ << text.substr( 0, size );
    }
    text.remove_prefix( std::max< size_t >( size, 1 ) );
  }
  out_ << '"';
}

} // namespace Vex
