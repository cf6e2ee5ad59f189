#include "KezEvpn/EsiDecision.h"

namespace Kez {

// The last label word whose encapsulation type is of no use for ESI filtering.
static constexpr uint32_t lastUnusableLabel = 0x1ffffff;

EsiDecision decideEsi( const Evpn::EvpnStatus & evpnStatus, const IntfVlanKey & key ) {
  using Lack = EsiDecision::Lack;
  const auto status = evpnStatus.ethernetSegmentStatus( key.intfId );
  if ( !status ) {
    return { Lack::segment, {}, {} };
  }
  if ( !status->designatedForwarderTepHas( key.vlanId ) ) {
    return { Lack::designatedForwarder, {}, {} };
  }
  const auto dfTepIntfId = status->designatedForwarderTep( key.vlanId );
  if ( !status->remoteEsiLabelHas( dfTepIntfId ) ) {
    return { Lack::remoteLabel, dfTepIntfId, {} };
  }
  const auto label = status->remoteEsiLabel( dfTepIntfId );
  const bool usable = label.value() > lastUnusableLabel;
  return { usable ? Lack::nothing : Lack::usableLabel, dfTepIntfId, label };
}

EsiPortLack esiPortLack( const Evpn::EvpnStatus & evpnStatus, Wire::IntfId intfId,
                         bool hwTunnelIdPublished ) {
  if ( !hwTunnelIdPublished ) {
    return EsiPortLack::hwTunnelId;
  }
  return localEsiLabelPublished( evpnStatus, intfId ) ? EsiPortLack::nothing
                                                      : EsiPortLack::localLabel;
}

bool localEsiLabelPublished( const Evpn::EvpnStatus & evpnStatus, Wire::IntfId intfId ) {
  return evpnStatus.localEsiLabel( intfId ) != Evpn::EncapTypeLabel();
}

} // namespace Kez
