#include "KezEvpn/KezEvpnVlanFloodSetSm.h"

#include "KezEvpn/frame/Explain.h"
#include "KezEvpn/frame/Findings.h"
#include "KezEvpn/frame/Missing.h"

#include <set>

namespace Kez {

using Tunnel::TunnelTable::TunnelId;

// --- What an operator is told

void EvpnVlanFloodSetSm::explain( const Subject & subject, Explanation & out ) const {
  if ( !initialized() ) {
    return;
  }
  if ( const auto * const vmd = subject.get< VlanMacDest >() ) {
    explainDest( *vmd, out );
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
  say( Standing::waiting, tally.withoutHwTunnelId,
       " programmed without a hardware tunnel id, which their tunnel lacks" );
  if ( tally.refused > 0 ) {
    out.refused( Count{ tally.refused, "flood-set destination" }, " refused by hardware",
                 Because{ tally.why }, ", which tries by itself" );
  }
  say( Standing::waiting, tally.unanswered, " waiting for hardware's answer" );
  say( Standing::waiting, tally.withoutHwId,
       " waiting for the hardware id of the path, none published" );
  say( Standing::settled, tally.withoutTunnel, " of no valid tunnel, which is not supported" );
}

EvpnVlanFloodSetSm::State EvpnVlanFloodSetSm::stateOf( const VlanMacDest & vmd ) const {
  if ( !mplsDestHwConfigHas( vmd ) ) {
    return destMplsTunnelId( vmd.dest ) == TunnelId::invalid() ? State::withoutTunnel
                                                               : State::withoutHwId;
  }
  const auto config = mplsDestHwConfig( vmd );
  const auto status = vlanFloodSetHwStatus()->status( vmd.macVlanPair() );
  if ( isMplsDestConfigProgrammed( vmd.macVlanPair(), config ) ) {
    return config.hwTunnelId.valid() ? State::programmed : State::withoutHwTunnelId;
  }
  return status && status->mplsDestStatusHas( config ) ? State::refused : State::unanswered;
}

Refusal EvpnVlanFloodSetSm::refusalOf( const VlanMacDest & vmd ) const {
  return vlanFloodSetHwStatus()->refusal( { vmd.macVlanPair(), mplsDestHwConfig( vmd ) } );
}

void EvpnVlanFloodSetSm::count( const VlanMacDest & vmd, Tally & tally ) const {
  switch ( stateOf( vmd ) ) {
  case State::withoutTunnel:
    ++tally.withoutTunnel;
    break;
  case State::withoutHwId:
    ++tally.withoutHwId;
    break;
  case State::unanswered:
    ++tally.unanswered;
    break;
  case State::refused:
    ++tally.refused;
    tally.why = refusalOf( vmd ).why;
    break;
  case State::withoutHwTunnelId:
    ++tally.withoutHwTunnelId;
    break;
  case State::programmed:
    ++tally.programmed;
    break;
  }
}

void EvpnVlanFloodSetSm::explainDest( const VlanMacDest & vmd, Explanation & out ) const {
  if ( !isDestInFloodSet( vmd.vlanId, vmd.macAddr, vmd.dest ) ) {
    return;
  }
  const auto config = mplsDestHwConfig( vmd );
  switch ( stateOf( vmd ) ) {
  case State::withoutTunnel:
    out.say( "of no valid tunnel, which is not supported" );
    return;
  case State::withoutHwId:
    out.awaits( "waiting for the hardware id of path ", mplsFloodSetVia( vmd ),
                ", none published" );
    return;
  case State::unanswered:
    out.awaits( "waiting for hardware's answer" );
    break;
  case State::refused:
    if ( const auto refusal = refusalOf( vmd ); refusal.tries > 0 ) {
      out.refused( Refused{ refusal }, ", which it tries by itself" );
    } else {
      out.refused( "refused by hardware, which tries by itself" );
    }
    break;
  case State::withoutHwTunnelId:
    out.awaits( "programmed without a hardware tunnel id, which tunnel ", config.tunnelId,
                " lacks" );
    break;
  case State::programmed:
    out.say( "programmed" );
    break;
  }
  out.say( "asked for with hardware tunnel id ", config.hwTunnelId, ", hardware id ",
           config.hwIdForTunnelProgramming, " on ", config.l2IntfId );
  const auto status = vlanFloodSetHwStatus()->status( vmd.macVlanPair() );
  if ( !status ) {
    return;
  }
  for ( const auto & [ other, answer ] : status->mplsDestStatus() ) {
    if ( other != config && other.tunnelId == config.tunnelId && other.label == config.label &&
         answer == HwProgrammingStatus::programmed ) {
      out.awaits( "in hardware still with hardware tunnel id ", other.hwTunnelId, ", hardware id ",
                  other.hwIdForTunnelProgramming, " on ", other.l2IntfId );
    }
  }
}

void EvpnVlanFloodSetSm::addDest( const VlanMacDest & vmd, Missing & out ) const {
  switch ( stateOf( vmd ) ) {
  case State::withoutHwId:
    out.add( {}, vmd, "waiting for the hardware id of the path" );
    break;
  case State::unanswered:
    out.add( {}, vmd, "waiting for hardware's answer" );
    break;
  case State::refused: {
    const auto refusal = refusalOf( vmd );
    out.add( { Standing::refused,
               refusal.tries > 0 ? std::optional( refusal.first ) : std::nullopt,
               {} },
             vmd, "refused by hardware", Because{ refusal.why } );
    break;
  }
  case State::withoutHwTunnelId:
    out.add( {}, vmd, "programmed without a hardware tunnel id, which tunnel ",
             destMplsTunnelId( vmd.dest ), " lacks" );
    break;
  case State::withoutTunnel:
  case State::programmed:
    break;
  }
}

// Of the destinations those are looked at that share a flood set with one that is not answered or
// was refused, a path with one that has no configuration, or a tunnel without a hardware tunnel id.
void EvpnVlanFloodSetSm::addMissing( Missing & out ) const {
  if ( !initialized() ) {
    return;
  }
  const auto addIf = [ & ]( const VlanMacDest & vmd, State state ) {
    if ( stateOf( vmd ) == state ) {
      addDest( vmd, out );
    }
  };
  size_t dests = 0;
  for ( const auto & [ tunnelId, entry ] : tunnelToFloodSetEntry() ) {
    dests += entry->vlanMacDestSets();
    const auto [ record, damage ] =
        hwTunnelIdMapping()->tunnelIdToHwTunnelIdTable().examine( tunnelId );
    if ( !record && !damage && tunnelId != TunnelId::invalid() ) {
      for ( const auto & vmd : entry->vlanMacDestSet().range() ) {
        addIf( vmd, State::withoutHwTunnelId );
      }
    }
  }
  size_t withoutConfig = dests - std::min( dests, mplsDestHwConfigs() );
  for ( const auto & [ via, entry ] : hwInfoMapKeyToFloodSetEntry() ) {
    if ( withoutConfig == 0 ) {
      break;
    }
    if ( !hwInfoMapping()->mappingHas( via ) ) {
      withoutConfig -= std::min( withoutConfig, entry->vlanMacDestSets() );
      for ( const auto & vmd : entry->vlanMacDestSet() ) {
        addIf( vmd, State::withoutHwId );
      }
    }
  }
  std::set< Bridging::MacVlanPair > refused;
  for ( const auto & [ dest, refusal ] : vlanFloodSetHwStatus()->refusal() ) {
    refused.insert( dest.macVlanPair );
  }
  for ( const auto & [ pair, config ] : vlanFloodSetHwConfig()->config() ) {
    const auto status = vlanFloodSetHwStatus()->status( pair );
    const bool allAnswered = status && status->mplsDestStatuss() >= config->mplsDestConfigs();
    if ( allAnswered && !refused.contains( pair ) ) {
      continue;
    }
    const auto vlanFloodSet = floodSetOutput()->vlanFloodSet( pair.vlanId );
    const auto floodSet = vlanFloodSet ? vlanFloodSet->floodSet( pair.macAddr ) : nullptr;
    if ( !floodSet ) {
      continue;
    }
    for ( const auto & dest : floodSet->destSet() ) {
      const VlanMacDest vmd( pair.vlanId, pair.macAddr, dest );
      addIf( vmd, State::unanswered );
      addIf( vmd, State::refused );
    }
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
  size_t configured = 0;
  for ( const auto & vmd : mplsDestHwConfig().range() ) {
    ++configured;
    const auto config = mplsDestHwConfig( vmd );
    const auto floodSet = vlanFloodSetHwConfig()->config( vmd.macVlanPair() );
    out.expect( isDestInFloodSet( vmd.vlanId, vmd.macAddr, vmd.dest ), vmd,
                " has a configuration, and is in no flood set" );
    out.expect( floodSet && floodSet->mplsDestConfigHas( config ), "the configuration of ", vmd,
                " is not published" );
  }
  out.expect( configured == mplsDestHwConfigs(), "mplsDestHwConfig has ", configured,
              " destinations, and counts ", mplsDestHwConfigs() );
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
