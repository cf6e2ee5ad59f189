// FECs, the flood sets' destinations and MAC entries as hardware has them: FECs by an id of
// hardware's own, with what they are used for.
#pragma once

#include "KezEvpn/FecRequests.h"
#include "KezHelper/HwTable.h"

#include <map>

namespace KezHelper {

// What hardware has of a FEC.
struct HwFec {
  bool sharesOut = false; // among its vias, of which another kind has one
  Rook::Fib::FecVias via;
  Kez::HwTunnelIds hwTunnelId;
  VEX_VALUE( HwFec, "KezHelper::HwFec", sharesOut, via, hwTunnelId )
};

using HwFecTable = HwTable< uint64_t, HwFec >;

// The FECs that hardware has from an earlier life and that nothing has been answered with yet. What
// is requested is known by its contents, since a machine that starts numbers its FECs anew: of
// those with equal contents any one is as good.
class InheritedFecs {
public:
  void add( uint64_t hwFecId, const HwFec & fec ) { hwFecIds_.emplace( fec, hwFecId ); }
  // The hardware id of one with these contents, which is inherited no more.
  std::optional< uint64_t > claim( const HwFec & fec ) { return take( hwFecIds_.find( fec ) ); }
  // Of any one, likewise.
  std::optional< uint64_t > take() { return take( hwFecIds_.begin() ); }
  size_t size() const { return hwFecIds_.size(); }

private:
  using HwFecIds = std::multimap< HwFec, uint64_t >;
  std::optional< uint64_t > take( HwFecIds::iterator at ) {
    if ( at == hwFecIds_.end() ) {
      return std::nullopt;
    }
    const auto hwFecId = at->second;
    hwFecIds_.erase( at );
    return hwFecId;
  }

  HwFecIds hwFecIds_;
};

} // namespace KezHelper
