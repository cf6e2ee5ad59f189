#include "switch/SwitchFecs.h"

namespace Switch {

using Rook::Fib::FecId;
using Rook::Fib::FecKind;

// Those of flood sets from 1 on.
uint64_t hwFecIdOf( FecId fecId ) {
  constexpr unsigned kindShift = 32;
  const auto kind = uint64_t( fecId.kind() ) - uint64_t( FecKind::floodSetPath );
  return kind << kindShift | ( ( fecId.number() & UINT32_MAX ) + 1 );
}

Kez::HwFecIdResponse hwFecIdResponseOf( const Rook::Fib::Fec & fec ) {
  const bool sharesOut = fec.fecId.kind() == FecKind::macLoadBalance;
  return { hwFecIdOf( fec.fecId ),
           sharesOut ? Wire::IntfId( "LoadBalance" + Vex::text( fec.fecId.number() ) )
                     : fec.via.front().intfId };
}

} // namespace Switch
