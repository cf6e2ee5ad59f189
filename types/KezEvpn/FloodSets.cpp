#include "KezEvpn/FloodSets.h"

namespace Kez {

using Tunnel::TunnelTable::TunnelId;

namespace {

constexpr uint32_t typeOfTunnelsWithAPathAVlan = 14;

} // namespace

MplsFloodSetVia mplsFloodSetVia( TunnelId tunnelId, Wire::MplsLabel label,
                                 Bridging::VlanId vlanId ) {
  const bool pathAVlan = tunnelId.type() == typeOfTunnelsWithAPathAVlan;
  return { tunnelId, label, pathAVlan ? Bridging::VlanIdOrNone( vlanId ) : 0u };
}

MplsFloodSetVia mplsFloodSetVia( const VlanMacDest & dest ) {
  return mplsFloodSetVia( destMplsTunnelId( dest.dest ), dest.dest.mpls().label(), dest.vlanId );
}

Vex::Ptr< VlanFloodSetConfig > vlanFloodSetConfigFactory( const Bridging::MacVlanPair & key ) {
  return Vex::makePtr< VlanFloodSetConfig >( key );
}

Vex::Ptr< EvpnVlanFloodSetHwConfig > evpnVlanFloodSetHwConfigFactory() {
  return Vex::makePtr< EvpnVlanFloodSetHwConfig >();
}

Vex::Ptr< VlanFloodSetStatus > vlanFloodSetStatusFactory( const Bridging::MacVlanPair & key ) {
  return Vex::makePtr< VlanFloodSetStatus >( key );
}

Vex::Ptr< EvpnVlanFloodSetHwStatus > evpnVlanFloodSetHwStatusFactory() {
  return Vex::makePtr< EvpnVlanFloodSetHwStatus >();
}

Vex::Ptr< HwInfoMapping > hwInfoMappingFactory() {
  return Vex::makePtr< HwInfoMapping >();
}

Vex::Ptr< TunnelIdToMplsFloodSetVia > tunnelIdToMplsFloodSetViaFactory( TunnelId tunnelId ) {
  return Vex::makePtr< TunnelIdToMplsFloodSetVia >( tunnelId );
}

Vex::Ptr< MplsFloodSetViaToFloodSetStatus >
mplsFloodSetViaToFloodSetStatusFactory( const MplsFloodSetVia & via ) {
  return Vex::makePtr< MplsFloodSetViaToFloodSetStatus >( via );
}

// --- A path's programmed configurations

bool MplsFloodSetViaToFloodSetStatus::programmedHas(
    const FloodSetMplsDestConfig & floodSetConfig ) const {
  const auto * const number = statusNote( floodSetConfig.macVlanPair );
  return number && ( ( *number && configs_[ *number ] == floodSetConfig.config ) ||
                     furtherProgrammedHas( floodSetConfig ) );
}

void MplsFloodSetViaToFloodSetStatus::programmedIs( const FloodSetMplsDestConfig & floodSetConfig,
                                                    bool programmed ) {
  if ( programmed == programmedHas( floodSetConfig ) ) {
    return;
  }
  const auto & pair = floodSetConfig.macVlanPair;
  if ( programmed ) {
    if ( statusHas( pair ) ) {
      furtherConfigInc( pair );
    } else {
      statusIs( pair );
    }
    note( floodSetConfig );
    return;
  }
  forget( floodSetConfig );
  if ( furtherConfig( pair ) > 1 ) {
    furtherConfigDec( pair );
  } else if ( furtherConfigHas( pair ) ) {
    furtherConfigDel( pair );
  } else {
    statusDel( pair );
  }
}

void MplsFloodSetViaToFloodSetStatus::note( const FloodSetMplsDestConfig & floodSetConfig ) {
  if ( uint32_t & number = *statusNote( floodSetConfig.macVlanPair ); number == 0 ) {
    number = configs_.take( floodSetConfig.config );
  } else {
    furtherProgrammedIs( floodSetConfig );
  }
}

void MplsFloodSetViaToFloodSetStatus::forget( const FloodSetMplsDestConfig & floodSetConfig ) {
  if ( uint32_t & number = *statusNote( floodSetConfig.macVlanPair );
       number && configs_[ number ] == floodSetConfig.config ) {
    configs_.drop( number );
    number = 0;
  } else {
    furtherProgrammedDel( floodSetConfig );
  }
}

std::vector< FloodSetMplsDestConfig > MplsFloodSetViaToFloodSetStatus::programmed() const {
  std::vector< FloodSetMplsDestConfig > all;
  for ( const auto & pair : status() ) {
    if ( const uint32_t number = *statusNote( pair ) ) {
      all.emplace_back( pair, configs_[ number ] );
    }
  }
  for ( const auto & further : furtherProgrammed() ) {
    all.push_back( further );
  }
  return all;
}

} // namespace Kez
