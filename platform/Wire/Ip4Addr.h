// IPv4 addresses, the first byte highest. Text form: "10.0.0.1", without leading zeros. The
// default is 0.0.0.0.
#pragma once

#include "Vex/WordValue.h"

namespace Wire {

class Ip4Addr : public Vex::WordValue< Ip4Addr, uint32_t > {
public:
  constexpr Ip4Addr( uint32_t value = 0 ) : WordValue( value ) {}

  static constexpr std::string_view vexTypeName() { return "Wire::Ip4Addr"; }
};

void appendText( Vex::TextBuffer & out, Ip4Addr addr );
void parseText( Vex::TextCursor & in, Ip4Addr & addr );

} // namespace Wire
