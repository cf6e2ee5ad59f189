#include "Wire/EthAddr.h"

namespace Wire {

namespace {

constexpr size_t digitsAt = 3; // from one byte's digits to the next one's

int digitOf( char c ) {
  return c >= '0' && c <= '9'   ? c - '0'
         : c >= 'a' && c <= 'f' ? c - 'a' + 10
         : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                : -1;
}

} // namespace

void appendText( Vex::TextBuffer & out, EthAddr addr ) {
  for ( unsigned byte = EthAddr::bytes; byte-- > 0; ) {
    const auto value = addr.value() >> 8 * byte & 0xff;
    out.append( "0123456789abcdef"[ value >> 4 ] );
    out.append( "0123456789abcdef"[ value & 15 ] );
    if ( byte ) {
      out.append( ':' );
    }
  }
}

void parseText( Vex::TextCursor & in, EthAddr & addr ) {
  const auto text = in.peekWord();
  bool good = text.size() == EthAddr::bytes * digitsAt - 1;
  uint64_t value = 0;
  for ( size_t i = 0; good && i < text.size(); ++i ) {
    const bool separator = i % digitsAt == digitsAt - 1;
    const int digit = digitOf( text[ i ] );
    good = separator ? text[ i ] == ':' : digit >= 0;
    value = separator ? value : value << 4 | static_cast< unsigned >( digit );
  }
  if ( !good ) {
    in.fail( "a MAC address, as 00:1c:73:0a:0b:0c" );
  }
  in.word();
  addr = value;
}

} // namespace Wire
