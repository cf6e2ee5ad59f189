#include "KezEvpn/KezEvpnVlanFloodSetSm.h"

#include "KezEvpn/frame/Explain.h"
#include "KezEvpn/frame/Findings.h"

namespace Kez {

using Tunnel::TunnelTable::TunnelId;

// --- What an operator is told

void EvpnVlanFloodSetSm::explain( const Subject & subject, Explanation & out ) const {
  if ( !initialized() ) {
    return;
  }
  Tally tally;
  if ( const auto * const via = subject.get< MplsFloodSetVia >() ) {
    if ( const auto entry = hwInfoMapKeyToFloodSetEntry( *via ) ) {
      for ( const auto & vmd : entry->vlanMacDestSet() ) {
        count( vmd, tally );
      }
    }
  } else if ( const auto * const vlanId = subject.get< Bridging::VlanId >() ) {
    if ( const auto vlanFloodSet = floodSetOutput()->vlanFloodSet( *vlanId ) ) {
      for ( const auto & [ mac, floodSet ] : vlanFloodSet->floodSet() ) {
        for ( const auto & dest : floodSet->destSet() ) {
          count( { *vlanId, mac, dest }, tally );
        }
      }
    }
  }
  const auto say = [ & ]( Standing standing, size_t number, std::string_view what ) {
    if ( number > 0 ) {
      out.add( standing, Count{ number, "flood-set destination" }, what );
    }
  };
  say( Standing::settled, tally.programmed, " programmed" );
  say( Standing::refused, tally.refused, " refused by hardware, which tries by itself" );
  say( Standing::waiting, tally.unanswered, " waiting for hardware's answer" );
  say( Standing::waiting, tally.withoutHwId,
       " waiting for the hardware id of the path, none published" );
  say( Standing::settled, tally.withoutTunnel, " of no valid tunnel, which is not supported" );
}

void EvpnVlanFloodSetSm::count( const VlanMacDest & vmd, Tally & tally ) const {
  if ( !mplsDestHwConfigHas( vmd ) ) {
    const bool isTunnel = destMplsTunnelId( vmd.dest ) != TunnelId::invalid();
    ++( isTunnel ? tally.withoutHwId : tally.withoutTunnel );
    return;
  }
  const auto config = mplsDestHwConfig( vmd );
  const auto status = vlanFloodSetHwStatus()->status( vmd.macVlanPair() );
  if ( isMplsDestConfigProgrammed( vmd.macVlanPair(), config ) ) {
    ++tally.programmed;
  } else if ( status && status->mplsDestStatusHas( config ) ) {
    ++tally.refused;
  } else {
    ++tally.unanswered;
  }
}

// --- What holds between events

// A destination has a configuration exactly while its path has a hardware id, of what is published
// of the path and its tunnel.
void EvpnVlanFloodSetSm::checkConfig( const VlanMacDest & vmd, const MplsFloodSetVia & via,
                                      Findings & out ) const {
  const bool answered = hwInfoMapping()->mappingHas( via );
  out.expect( mplsDestHwConfigHas( vmd ) == answered, vmd,
              answered ? " has no configuration" : " has a configuration, and its path no id" );
  const auto [ record, damage ] =
      hwTunnelIdMapping()->tunnelIdToHwTunnelIdTable().examine( via.tunnelId );
  if ( !answered || damage ) {
    return;
  }
  const auto & hwInfo = hwInfoMapping()->mapping( via );
  const MplsDestConfig wanted{ via.tunnelId, via.label, record ? record->hwTunnelId : HwTunnelId(),
                               hwInfo.hwIdForTunnelProgramming, hwInfo.l2IntfId };
  out.expect( mplsDestHwConfig( vmd ) == wanted, "the configuration of ", vmd, " is not ", wanted );
}

void EvpnVlanFloodSetSm::check( Findings & out ) const {
  if ( !initialized() ) {
    return;
  }
  size_t byTunnel = 0, byPath = 0, further = 0, published = 0;
  for ( const auto & [ tunnelId, entry ] : tunnelToFloodSetEntry() ) {
    out.expect( entry->vlanMacDestSets() > 0, "tunnelToFloodSetEntry has an empty tunnel ",
                tunnelId );
    byTunnel += entry->vlanMacDestSets();
  }
  for ( const auto & [ via, entry ] : hwInfoMapKeyToFloodSetEntry() ) {
    out.expect( entry->vlanMacDestSets() > 0, "hwInfoMapKeyToFloodSetEntry has an empty path ",
                via );
    byPath += entry->vlanMacDestSets();
    for ( const auto & vmd : entry->vlanMacDestSet() ) {
      const auto ofTunnel = tunnelToFloodSetEntry( via.tunnelId );
      out.expect( ofTunnel && ofTunnel->vlanMacDestSetHas( vmd ), "tunnelToFloodSetEntry lacks ",
                  vmd );
      checkConfig( vmd, via, out );
    }
  }
  size_t dests = 0;
  forEachDest( *floodSetOutput(),
               [ & ]( Bridging::VlanId vlanId, Wire::EthAddr mac, const L2Rib::Dest & dest ) {
                 const VlanMacDest vmd( vlanId, mac, dest );
                 const auto entry = hwInfoMapKeyToFloodSetEntry( mplsFloodSetVia( vmd ) );
                 out.expect( entry && entry->vlanMacDestSetHas( vmd ),
                             "hwInfoMapKeyToFloodSetEntry lacks ", vmd );
                 ++dests;
               } );
  out.expect( byPath == dests, "hwInfoMapKeyToFloodSetEntry has ", byPath, " destinations of ",
              dests );
  out.expect( byTunnel == byPath, "tunnelToFloodSetEntry has ", byTunnel,
              " destinations, hwInfoMapKeyToFloodSetEntry ", byPath );
  for ( const auto & [ vmd, config ] : mplsDestHwConfig() ) {
    const auto floodSet = vlanFloodSetHwConfig()->config( vmd.macVlanPair() );
    out.expect( isDestInFloodSet( vmd.vlanId, vmd.macAddr, vmd.dest ), vmd,
                " has a configuration, and is in no flood set" );
    out.expect( floodSet && floodSet->mplsDestConfigHas( config ), "the configuration of ", vmd,
                " is not published" );
  }
  for ( const auto & [ floodSetConfig, count ] : furtherDest() ) {
    further += count;
  }
  for ( const auto & [ macVlanPair, floodSet ] : vlanFloodSetHwConfig()->config() ) {
    out.expect( floodSet->mplsDestConfigs() > 0, "an empty flood set is published" );
    published += floodSet->mplsDestConfigs();
  }
  out.expect( published + further == mplsDestHwConfigs(), published, " configurations and ",
              further, " that share one are not those of ", mplsDestHwConfigs(), " destinations" );
}

} // namespace Kez
