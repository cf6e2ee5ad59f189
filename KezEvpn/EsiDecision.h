// What a pair needs to have its ESI data programmed: decided on the published EVPN status alone,
// from the first input that is missing on.
#pragma once

#include "Evpn/EvpnStatus.h"
#include "KezEvpn/KezEvpn.h"

namespace Kez {

struct EsiDecision {
  enum class Lack { nothing, segment, designatedForwarder, remoteLabel, usableLabel };

  Lack lack = Lack::nothing;
  Wire::TepIntfId dfTepIntfId;      // from Lack::remoteLabel on
  Evpn::EncapTypeLabel remoteLabel; // from Lack::usableLabel on
};
EsiDecision decideEsi( const Evpn::EvpnStatus & evpnStatus, const IntfVlanKey & key );

// What each port of the pair lacks when the pair lacks nothing.
enum class EsiPortLack { nothing, hwTunnelId, localLabel };
EsiPortLack esiPortLack( const Evpn::EvpnStatus & evpnStatus, Wire::IntfId intfId,
                         bool hwTunnelIdPublished );

// 0 is none.
bool localEsiLabelPublished( const Evpn::EvpnStatus & evpnStatus, Wire::IntfId intfId );

} // namespace Kez
