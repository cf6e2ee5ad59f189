#include "switch/SwitchFecs.h"

namespace Switch {

using Rook::Fib::FecId;
using Rook::Fib::FecKind;

// Below the kind a number from 1 on; the kind of flood sets is 0.
static constexpr unsigned kindShift = 32;

uint64_t hwFecIdOf( FecId fecId ) {
  const auto kind = uint64_t( fecId.kind() ) - uint64_t( FecKind::floodSetPath );
  return kind << kindShift | ( ( fecId.number() & UINT32_MAX ) + 1 );
}

uint64_t hwFecKindOf( uint64_t hwFecId ) {
  return hwFecId >> kindShift;
}

Kez::HwFecIdResponse hwFecIdResponseOf( uint64_t hwFecId, const HwFec & fec ) {
  const auto number = ( hwFecId & UINT32_MAX ) - 1;
  return { hwFecId, fec.sharesOut ? Wire::IntfId( "LoadBalance" + Vex::text( number ) )
                                  : fec.via.front().intfId };
}

} // namespace Switch
