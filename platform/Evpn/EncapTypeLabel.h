// A label with the type of the encapsulation that it is for, in one 32-bit word: the type in the
// top byte, the MPLS label below. The word 0, the default, stands for no label. Text form:
// "<type>:<label>", "2:100"; none is "0:0".
#pragma once

#include "Wire/MplsLabel.h"

namespace Evpn {

class EncapTypeLabel : public Vex::WordValue< EncapTypeLabel, uint32_t > {
public:
  constexpr EncapTypeLabel() : WordValue( 0 ) {}
  constexpr EncapTypeLabel( uint8_t encapType, Wire::MplsLabel label )
      : WordValue( uint32_t( encapType ) << 24 | label.value() ) {}

  constexpr uint8_t encapType() const { return static_cast< uint8_t >( value() >> 24 ); }
  constexpr Wire::MplsLabel mplsLabel() const { return value() & 0xffffff; }

  static constexpr std::string_view vexTypeName() { return "Evpn::EncapTypeLabel"; }
};

void appendText( Vex::TextBuffer & out, EncapTypeLabel label );
void parseText( Vex::TextCursor & in, EncapTypeLabel & label );

} // namespace Evpn
