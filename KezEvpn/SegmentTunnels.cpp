#include "KezEvpn/SegmentTunnels.h"

namespace Kez {

using Tunnel::TunnelTable::TunnelId;

// Over either of the two interfaces that may lead to a tunnel.
bool SegmentTunnels::labelled( Wire::IntfId esIntfId, TunnelId tunnelId ) const {
  const auto status = evpnStatus_->ethernetSegmentStatus( esIntfId );
  if ( !status ) {
    return false;
  }
  const bool overDynamicTunnel =
      tunnelId.value() <= TunnelId::maxValue &&
      status->remoteEsiLabelHas( Wire::DynamicTunnelIntfId::intfId( tunnelId ) );
  return overDynamicTunnel ||
         status->remoteEsiLabelHas( Wire::FecIdIntfId::srTePolicyIntfId( tunnelId ) );
}

bool SegmentTunnels::sharedEsiLabelConfigured( Wire::IntfId esIntfId ) const {
  const auto status = evpnStatus_->ethernetSegmentStatus( esIntfId );
  return status && status->sharedEsiLabelValid();
}

HwTunnelIdType SegmentTunnels::neededType( TunnelId tunnelId ) const {
  const auto info = infoOf_.get( tunnelId );
  return info && info->sharedEsiLabelConfiguredIntfs() > 0 ? hwTunnelIdTypeSharedEsi
                                                           : hwTunnelIdTypeDefault;
}

void SegmentTunnels::add( Wire::IntfId esIntfId, TunnelId tunnelId ) {
  tunnelsOf_.make( owner_, tunnelsOfId_, esIntfId )->tunnelIdIs( tunnelId );
  const auto info = infoOf_.make( owner_, infoOfId_, tunnelId );
  info->intfIdIs( esIntfId );
  info->sharedEsiLabelConfiguredIntfIs( esIntfId, sharedEsiLabelConfigured( esIntfId ) );
}

void SegmentTunnels::remove( Wire::IntfId esIntfId, TunnelId tunnelId ) {
  const auto info = infoOf_.get( tunnelId );
  info->sharedEsiLabelConfiguredIntfDel( esIntfId );
  info->intfIdDel( esIntfId );
  tunnelsOf_.memberDel( owner_, tunnelsOfId_, esIntfId, tunnelId );
  if ( info->intfIds() == 0 ) {
    infoOf_.del( owner_, infoOfId_, tunnelId );
  }
}

} // namespace Kez
