#include "KezEvpn/KezEvpnVlanFloodSetSm.h"

#include "KezEvpn/frame/Explain.h"
#include "Ringlog/Trace.h"

namespace Kez {

static Ringlog::Handle traceHandle( "KezEvpnVlanFloodSetSm" );

using Ringlog::either;
using Tunnel::TunnelTable::TunnelId;

EvpnVlanFloodSetSm::EvpnVlanFloodSetSm( In< L2Rib::FloodSetOutput > floodSetOutput,
                                        In< TunnelIdToHwTunnelIdMapping > hwTunnelIdMapping,
                                        In< HwInfoMapping > hwInfoMapping,
                                        Out< EvpnVlanFloodSetHwConfig > vlanFloodSetHwConfig,
                                        In< EvpnVlanFloodSetHwStatus > vlanFloodSetHwStatus )
    : MplsFloodSetSm( traceHandle, floodSetOutput, hwTunnelIdMapping, vlanFloodSetHwStatus ),
      hwInfoMapping_( hwInfoMapping ), vlanFloodSetHwConfig_( vlanFloodSetHwConfig ),
      hwInfoMappingReactor_( *this ) {
  watchInputs();
  hwInfoMappingReactor_.notifierIs( hwInfoMapping );
}

Vex::Ptr< EvpnVlanFloodSetSm > evpnVlanFloodSetSmFactory(
    In< L2Rib::FloodSetOutput > floodSetOutput, In< TunnelIdToHwTunnelIdMapping > hwTunnelIdMapping,
    In< HwInfoMapping > hwInfoMapping, Out< EvpnVlanFloodSetHwConfig > vlanFloodSetHwConfig,
    In< EvpnVlanFloodSetHwStatus > vlanFloodSetHwStatus ) {
  return Vex::makePtr< EvpnVlanFloodSetSm >( floodSetOutput, hwTunnelIdMapping, hwInfoMapping,
                                             vlanFloodSetHwConfig, vlanFloodSetHwStatus );
}

void EvpnVlanFloodSetSm::VexHwInfoMapping::onAttribute( Vex::AttrId id, const void * key ) {
  const auto sm = this->sm();
  if ( id == HwInfoMapping::mappingAttr && sm->initialized() ) {
    sm->handleHwInfoMapping( HwInfoMapping::mappingAttr.key( key ) );
  }
}

void EvpnVlanFloodSetSm::handleInitialized() {
  TRACE( 8, "handleInitialized" );
  initializedIs( false ); // so that nothing is heard of what goes
  clearMappings();
  vlanFloodSetHwConfig()->configDelAll();
  initializedIs( true );
  processEveryMplsDest();
}

void EvpnVlanFloodSetSm::clearMappings() {
  std::vector< VlanMacDest > configured;
  configured.reserve( configured_ );
  for ( const auto & vmd : mplsDestHwConfig().range() ) {
    configured.push_back( vmd );
  }
  furtherDestDelAll();
  tunnelToFloodSetEntryDelAll();
  hwInfoMapKeyToFloodSetEntryDelAll();
  configured_ = 0;
  for ( const auto & vmd : configured ) {
    vexNotify( mplsDestHwConfigAttr, &vmd );
  }
}

void EvpnVlanFloodSetSm::makeUpForZombieMark() {
  for ( const auto & [ via, entry ] : hwInfoMapKeyToFloodSetEntry() ) {
    processDestsThatLeft( *entry );
  }
}

void EvpnVlanFloodSetSm::handleHwTunnelIdMapping( TunnelId tunnelId ) {
  TRACE( 8, "handleHwTunnelIdMapping ", tunnelId );
  const auto entry = tunnelToFloodSetEntry( tunnelId );
  if ( !entry ) {
    TRACE( 1, " no dests associated with this tunnel " );
    return;
  }
  for ( const auto & [ via, path ] : entry->paths() ) {
    for ( const auto & vmd : path->vlanMacDestSet() ) {
      processMplsDestConfig( vmd );
    }
  }
}

void EvpnVlanFloodSetSm::handleHwInfoMapping( const MplsFloodSetVia & via ) {
  TRACE( 8, "handleHwInfoMapping ( ", via, " ) " );
  const auto entry = hwInfoMapKeyToFloodSetEntry( via );
  if ( !entry ) {
    TRACE( 1, " hwId is not ready " );
    return;
  }
  for ( const auto & vmd : entry->vlanMacDestSet() ) {
    processMplsDestConfig( vmd );
  }
}

void EvpnVlanFloodSetSm::handleMplsDestStatus( const Bridging::MacVlanPair & macVlanPair,
                                               const MplsDestConfig & config ) {
  if ( !traceHandle.isOn( 1 ) ) {
    return;
  }
  if ( isMplsDestConfigProgrammed( macVlanPair, config ) ) {
    TRACE( 1, "  config is programmed in hardware" );
  } else {
    TRACE( 1, "  config is not programmed in hardware" );
  }
}

void EvpnVlanFloodSetSm::processMplsDest( Bridging::VlanId vlanId, const Wire::EthAddr & mac,
                                          const L2Rib::Dest & dest ) {
  TRACE( 8, "processMplsDest vlan: ", vlanId, " mac: ", mac, " dest: ", dest );
  VEX_ASSERT( dest.destType() == L2Rib::destTypeMpls_ );
  VEX_ASSERT( initialized() );
  const VlanMacDest vmd( vlanId, mac, dest );
  const bool inFloodSet = updateInternalMapping( vmd );
  processMplsDestConfig( vmd, inFloodSet );
}

bool EvpnVlanFloodSetSm::updateInternalMapping( const VlanMacDest & vmd ) {
  TRACE( 8, "updateInternalMapping vlan: ", vmd.vlanId, " mac: ", vmd.macAddr,
         " dest: ", vmd.dest );
  const auto via = mplsFloodSetVia( vmd );
  if ( isDestInFloodSet( vmd.vlanId, vmd.macAddr, vmd.dest ) ) {
    TRACE( 1, "   add entry to internal mappings" );
    addToPath( via, vmd );
    return true;
  }
  TRACE( 1, "   remove entry from internal mappings" );
  // One that has a configuration goes with it, which is next.
  if ( !mplsDestHwConfigHas( vmd ) ) {
    takeFromPath( via, vmd );
  }
  return false;
}

void EvpnVlanFloodSetSm::addToPath( const MplsFloodSetVia & via, const VlanMacDest & vmd ) {
  auto path = hwInfoMapKeyToFloodSetEntry( via );
  const auto tunnel = tunnelToFloodSetEntryIs( via.tunnelId );
  if ( !path ) {
    path = hwInfoMapKeyToFloodSetEntryIs( via );
    tunnel->pathIs( path );
  }
  const size_t before = path->vlanMacDestSets();
  path->vlanMacDestSetIs( vmd );
  if ( path->vlanMacDestSets() != before ) {
    tunnel->vexNotify( TunnelVlanMacDestSet::vlanMacDestSetAttr, &vmd );
  }
}

void EvpnVlanFloodSetSm::takeFromPath( const MplsFloodSetVia & via, const VlanMacDest & vmd ) {
  const auto tunnel = tunnelToFloodSetEntry( via.tunnelId );
  if ( !tunnel || !tunnel->vlanMacDestSetHas( vmd ) ) {
    return; // it went with its configuration
  }
  if ( hwInfoMapKeyToFloodSetEntryMemberDel( via, vmd ) ) {
    tunnel->pathDel( via );
  }
  tunnel->vexNotify( TunnelVlanMacDestSet::vlanMacDestSetAttr, &vmd );
  if ( tunnel->paths().size() == 0 ) {
    tunnelToFloodSetEntryDel( via.tunnelId );
  }
}

void EvpnVlanFloodSetSm::processMplsDestConfig( const VlanMacDest & vmd ) {
  processMplsDestConfig( vmd, isDestInFloodSet( vmd.vlanId, vmd.macAddr, vmd.dest ) );
}

void EvpnVlanFloodSetSm::processMplsDestConfig( const VlanMacDest & vmd, bool inFloodSet ) {
  TRACE( 8, "processMplsDestConfig vlan: ", vmd.vlanId, " mac: ", vmd.macAddr,
         " dest: ", vmd.dest );
  const auto via = mplsFloodSetVia( vmd );
  const bool hwIdReady = hwInfoMapping()->mappingHas( via );
  if ( hwIdReady && inFloodSet ) {
    addOrUpdateMplsDestHwConfig( vmd );
    return;
  }
  if ( !hwIdReady ) {
    TRACE( 1, "   hwId not ready for dest, tunnelId: ", via.tunnelId, " label: ", via.label );
  }
  deleteMplsDestHwConfig( vmd );
}

EvpnVlanFloodSetSm::MplsDestHwConfigs EvpnVlanFloodSetSm::mplsDestHwConfig() const {
  return MplsDestHwConfigs( *this );
}

DestsOverPaths EvpnVlanFloodSetSm::MplsDestHwConfigs::range() const {
  return { sm_.hwInfoMapKeyToFloodSetEntry_.members(), DestsOverPaths::Of::configured };
}

std::optional< MplsDestConfig >
EvpnVlanFloodSetSm::MplsDestHwConfigs::find( const VlanMacDest & vmd ) const {
  const auto path = vmd.dest.destType() == L2Rib::destTypeMpls_
                        ? sm_.hwInfoMapKeyToFloodSetEntry( mplsFloodSetVia( vmd ) )
                        : nullptr;
  return path ? path->config( vmd ) : std::nullopt;
}

MplsDestConfig EvpnVlanFloodSetSm::createMplsDestConfig( const VlanMacDest & vmd ) const {
  const auto key = mplsFloodSetVia( vmd );
  const auto tunnelId = key.tunnelId;
  VEX_ASSERT( tunnelId != Tunnel::TunnelTable::TunnelId::invalid() );
  VEX_ASSERT( hwInfoMapping()->mappingHas( key ) );
  const auto & hwInfo = hwInfoMapping()->mapping( key );
  return { tunnelId, key.label, hwTunnelId( tunnelId ), hwInfo.hwIdForTunnelProgramming,
           hwInfo.l2IntfId };
}

void EvpnVlanFloodSetSm::addOrUpdateMplsDestHwConfig( const VlanMacDest & vmd ) {
  const auto config = createMplsDestConfig( vmd );
  const auto path = hwInfoMapKeyToFloodSetEntry( mplsFloodSetVia( vmd ) );
  VEX_ASSERT( path );
  const auto existing = path->configIs( vmd, config );
  if ( existing == config ) {
    TRACE( 1, "   no change in hardware config, skip " );
    return;
  }
  vexNotify( mplsDestHwConfigAttr, &vmd );
  const FloodSetMplsDestConfig floodSetConfig( vmd.macVlanPair(), config );
  if ( existing ) {
    furtherDestInc( floodSetConfig );
    TRACE( 1, "   update hardware config, existing: ( tunnelId: ", existing->tunnelId,
           " label: ", existing->label, " hwTunnelId: ", existing->hwTunnelId,
           " hwId: ", existing->hwIdForTunnelProgramming, " l2IntfId: ", existing->l2IntfId,
           either( " ), new: ( tunnelId ", " ), new: ( tunnelId: " ), config.tunnelId,
           " label: ", config.label, " hwTunnelId: ", config.hwTunnelId,
           " hwId: ", config.hwIdForTunnelProgramming, " l2IntfId: ", config.l2IntfId );
    withdraw( { vmd.macVlanPair(), *existing } );
    publish( floodSetConfig );
    return;
  }
  ++configured_;
  TRACE( 1, "   add hardware config: tunnelId: ", config.tunnelId, " label: ", config.label,
         " hwTunnelId: ", config.hwTunnelId, " hwId: ", config.hwIdForTunnelProgramming,
         " l2IntfId: ", config.l2IntfId );
  const auto floodSet = vlanFloodSetHwConfig()->config( floodSetConfig.macVlanPair );
  if ( floodSet && !floodSet->mplsDestConfigHas( config ) ) {
    floodSet->mplsDestConfigIs( config );
    return;
  }
  furtherDestInc( floodSetConfig );
  publish( floodSetConfig );
}

// Publishes nothing for a configuration that no destination has any more: hardware may have
// answered to the withdrawal of the old one, or to the flood set, and the answer have led to yet
// another, or have taken the flood set away again.
void EvpnVlanFloodSetSm::publish( const FloodSetMplsDestConfig & floodSetConfig ) {
  const auto & [ macVlanPair, config ] = floodSetConfig;
  while ( furtherDestHas( floodSetConfig ) ) {
    const auto floodSet = vlanFloodSetHwConfig()->configIs( macVlanPair );
    if ( vlanFloodSetHwConfig()->config( macVlanPair ) != floodSet ||
         !furtherDestHas( floodSetConfig ) ) {
      continue;
    }
    if ( !floodSet->mplsDestConfigHas( config ) ) {
      furtherDestDrop( floodSetConfig );
      floodSet->mplsDestConfigIs( config );
    }
    return;
  }
  vlanFloodSetHwConfig()->configDelIfEmpty( macVlanPair );
}

// One destination less has it; with the last one it goes.
void EvpnVlanFloodSetSm::withdraw( const FloodSetMplsDestConfig & floodSetConfig ) {
  if ( furtherDestHas( floodSetConfig ) ) {
    furtherDestDrop( floodSetConfig );
  } else if ( const auto floodSet = vlanFloodSetHwConfig()->config( floodSetConfig.macVlanPair ) ) {
    floodSet->mplsDestConfigDel( floodSetConfig.config );
  }
}

void EvpnVlanFloodSetSm::furtherDestDrop( const FloodSetMplsDestConfig & floodSetConfig ) {
  if ( furtherDestDec( floodSetConfig ) == 0 ) {
    furtherDestDel( floodSetConfig );
  }
}

void EvpnVlanFloodSetSm::deleteMplsDestHwConfig( const VlanMacDest & vmd ) {
  const auto via = mplsFloodSetVia( vmd );
  const auto path = hwInfoMapKeyToFloodSetEntry( via );
  const auto config = path ? path->configDel( vmd ) : std::nullopt;
  if ( !config ) {
    return;
  }
  TRACE( 1, "   remove hardware config: tunnelId: ", config->tunnelId, " label: ", config->label,
         " hwTunnelId: ", config->hwTunnelId, " hwId: ", config->hwIdForTunnelProgramming,
         " l2IntfId: ", config->l2IntfId );
  const auto macVlanPair = vmd.macVlanPair();
  --configured_;
  vexNotify( mplsDestHwConfigAttr, &vmd );
  if ( !isDestInFloodSet( vmd.vlanId, vmd.macAddr, vmd.dest ) ) {
    takeFromPath( via, vmd );
  }
  withdraw( { macVlanPair, *config } );
  vlanFloodSetHwConfig()->configDelIfEmpty( macVlanPair );
}

} // namespace Kez
