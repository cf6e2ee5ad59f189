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
  Vex::TextCursor word( in.peekWord() );
  uint32_t value = 0;
  for ( int shift = 24; shift >= 0; shift -= 8 ) {
    uint8_t byte = 0;
    if ( !Vex::readNumber( word, byte ) || !( shift ? word.skip( "." ) : word.done() ) ) {
      in.fail( "an IPv4 address, as 10.0.0.1" );
    }
    value = value << 8 | byte;
  }
  in.word();
  addr = value;
}

} // namespace Wire
