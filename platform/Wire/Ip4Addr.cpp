#include "Wire/Ip4Addr.h"

namespace Wire {

void appendText( Vex::TextBuffer & out, Ip4Addr addr ) {
  for ( int shift = 24; shift >= 0; shift -= 8 ) {
    appendText( out, addr.value() >> shift & 0xff );
    if ( shift ) {
      out.append( '.' );
    }
  }
}

void parseText( Vex::TextCursor & in, Ip4Addr & addr ) {
  const auto text = in.peekWord();
  const char * at = text.data();
  const char * const end = at + text.size();
  uint32_t value = 0;
  for ( int shift = 24; shift >= 0; shift -= 8 ) {
    uint8_t byte = 0;
    const auto [ next, error ] = std::from_chars( at, end, byte );
    const bool leadingZero = next - at > 1 && *at == '0';
    const bool closed = shift ? next != end && *next == '.' : next == end;
    if ( error != std::errc() || leadingZero || !closed ) {
      in.fail( "an IPv4 address, as 10.0.0.1" );
    }
    value = value << 8 | byte;
    at = next + 1;
  }
  in.word();
  addr = value;
}

} // namespace Wire
