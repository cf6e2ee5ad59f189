// VLAN ids. A VlanId is 1 to 4094 where it is parsed; made from a number it is not checked, and
// by default it is 1. A VlanIdOrNone is a VLAN id or none, which is the default, prints and
// parses as 0 and comes before every VLAN id; above 4094 it raises Vex::RangeError.
#pragma once

#include "Vex/WordValue.h"

namespace Bridging {

class VlanId : public Vex::WordValue< VlanId, uint16_t > {
public:
  constexpr VlanId( uint16_t value = 1 ) : WordValue( value ) {}

  static constexpr std::string_view vexTypeName() { return "Bridging::VlanId"; }
  static constexpr uint16_t vexLowest = 1;
  static constexpr uint16_t vexHighest = 4094;
  static constexpr std::string_view vexExpected = "a VLAN id, 1 to 4094";
};

// A VLAN's id or tag, 1 to 4094, or 0 for none. Others raise Vex::RangeError.
class VlanIdOrNone : public Vex::WordValue< VlanIdOrNone, uint16_t > {
public:
  constexpr VlanIdOrNone( uint32_t value = 0 ) : WordValue( checked( value ) ) {}
  constexpr VlanIdOrNone( VlanId vlanId ) : VlanIdOrNone( uint32_t( vlanId.value() ) ) {}

  static constexpr std::string_view vexTypeName() { return "Bridging::VlanIdOrNone"; }
  static constexpr uint16_t vexLowest = 0;
  static constexpr uint16_t vexHighest = 4094;
  static constexpr std::string_view vexExpected = "a VLAN id, 1 to 4094, or 0 for none";

private:
  static constexpr uint16_t checked( uint32_t value ) {
    if ( value > vexHighest ) {
      throw Vex::RangeError( "VlanIdOrNone::value > 4094 not allowed" );
    }
    return static_cast< uint16_t >( value );
  }
};

} // namespace Bridging
