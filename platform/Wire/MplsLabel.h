// MPLS labels: 20 bits. 1048576, one above the largest label, stands for none and is the
// default; anything above raises Vex::RangeError. Prints as its number, none included.
#pragma once

#include "Vex/WordValue.h"

namespace Wire {

class MplsLabel
    : public Vex::WordValue< MplsLabel, uint32_t, Vex::NarrowWord< uint32_t, uint8_t, 3 > > {
public:
  static constexpr uint32_t none = 1048576;

  constexpr MplsLabel( uint32_t value = none ) : WordValue( value ) {
    if ( value > none ) {
      throw Vex::RangeError( "MplsLabel::value > 1048576 not allowed" );
    }
  }

  static constexpr std::string_view vexTypeName() { return "Wire::MplsLabel"; }
  static constexpr uint32_t vexLowest = 0;
  static constexpr uint32_t vexHighest = none;
  static constexpr std::string_view vexExpected =
      "an MPLS label, 0 to 1048575, or 1048576 for none";
};
static_assert( sizeof( MplsLabel ) == 3 );

} // namespace Wire
