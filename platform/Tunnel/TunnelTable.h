// Tunnel ids: unsigned 64-bit numbers whose upper bits are the tunnel's type. 0 is no tunnel.
#pragma once

#include "Vex/WordValue.h"
#include "Wire/IntfId.h"

namespace Tunnel::TunnelTable {

// A tunnel's id: its type above its index.
class TunnelId : public Vex::WordValue< TunnelId, uint64_t > {
public:
  // The range of the tunnel ids that dynamic tunnel interfaces lead to.
  static constexpr uint64_t minValue = 0;
  static constexpr uint64_t maxValue = ( uint64_t( 1 ) << 49 ) - 1;

  // The type stands above an index of this many bits.
  static constexpr unsigned typeShift = 44;

  constexpr TunnelId( uint64_t value = 0 ) : WordValue( value ) {}

  static constexpr TunnelId invalid() { return 0; }
  constexpr uint32_t type() const { return static_cast< uint32_t >( value() >> typeShift ); }

  // The dynamic tunnel interface that stands for the tunnel. Raises Vex::RangeError above
  // 56 bits, for which there is none.
  Wire::IntfId intfId() const;

  static constexpr std::string_view vexTypeName() { return "Tunnel::TunnelTable::TunnelId"; }
  static constexpr uint64_t vexLowest = 0;
  static constexpr uint64_t vexHighest = UINT64_MAX;
  static constexpr std::string_view vexExpected = "a tunnel id, a whole number of 64 bits";
};

} // namespace Tunnel::TunnelTable
