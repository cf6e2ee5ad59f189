// MAC addresses, 48 bits, the first byte highest. Text form: six bytes of two hexadecimal digits,
// "00:1c:73:0a:0b:0c", printed in lower case and read in either. The default is all zeros.
#pragma once

#include "Vex/WordValue.h"

namespace Wire {

class EthAddr
    : public Vex::WordValue< EthAddr, uint64_t, Vex::NarrowWord< uint64_t, uint16_t, 3 > > {
public:
  static constexpr unsigned bytes = 6;

  // Bits above the 48th are not looked at.
  constexpr EthAddr( uint64_t value = 0 ) : WordValue( value ) {}

  static constexpr std::string_view vexTypeName() { return "Wire::EthAddr"; }
};
static_assert( sizeof( EthAddr ) == EthAddr::bytes );

void appendText( Vex::TextBuffer & out, EthAddr addr );
void parseText( Vex::TextCursor & in, EthAddr & addr );

} // namespace Wire
