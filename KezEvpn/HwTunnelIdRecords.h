// The records of hardware tunnel ids, as the machine that writes them reads them: damage that is
// met is fatal, since the id of a damaged record can neither be kept nor given back.
#pragma once

#include "KezEvpn/TunnelIdToHwTunnelIdMapping.h"
#include "KezHelper/EvpnHwTunnelIdSmHelper.h"

#include <functional>
#include <optional>

namespace Kez {

std::optional< TunnelIdToHwTunnelId > hwTunnelIdRecord( const TunnelIdToHwTunnelIdMapping & mapping,
                                                        Tunnel::TunnelTable::TunnelId tunnelId );

// Has the mapping go on over hardware that goes on too. Of the records those stay whose ids are in
// use, for their tunnels or for ones that hardware cannot say, of two with one id the first; none
// of them is away for a moment. A tunnel that has an id in use and no record gets one if there is
// room. An id that was got twice for a tunnel goes on as the mapping has it: who takes hardware
// over sees to the other one. `goesOn( record )` runs for every record, in the order of the ids in
// use; a new one is written after it.
void takeOverHwTunnelIdRecords(
    TunnelIdToHwTunnelIdMapping & mapping,
    const KezHelper::EvpnHwTunnelIdSmHelper::HwTunnelIds & inUse,
    const std::function< void( const TunnelIdToHwTunnelId & record ) > & goesOn );

} // namespace Kez
