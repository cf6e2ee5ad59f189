#include "KezEvpn/KezEvpnFloodSetFecSm.h"

#include "KezEvpn/frame/Explain.h"
#include "KezEvpn/frame/Findings.h"
#include "KezEvpn/frame/Missing.h"

namespace Kez {

// --- What an operator is told

void EvpnFloodSetFecSm::explain( const Subject & subject, Explanation & out ) const {
  if ( !initialized() ) {
    return;
  }
  if ( const auto * const via = subject.get< MplsFloodSetVia >() ) {
    explainPath( *via, out );
  } else if ( const auto * const vmd = subject.get< VlanMacDest >() ) {
    if ( isDestInFloodSet( vmd->vlanId, vmd->macAddr, vmd->dest ) ) {
      explainPath( mplsFloodSetVia( *vmd ), out );
    }
  } else if ( const auto * const tunnelId = subject.get< Tunnel::TunnelTable::TunnelId >() ) {
    if ( const auto tunnelInfo = tunnelInfoCache( *tunnelId ) ) {
      out.say( "has paths ", Members{ tunnelInfo->mplsFloodSetViaSet() } );
    }
  }
}

void EvpnFloodSetFecSm::explainPath( const MplsFloodSetVia & via, Explanation & out ) const {
  switch ( useOf( via ) ) {
  case Use::destinations:
    out.say( "used by ",
             Count{ floodSetEntryCache( via )->vlanMacDestSets(), "flood-set destination" } );
    break;
  case Use::hardware:
    out.awaits( "used by no destination any more, waiting for hardware to unprogram ",
                Count{ floodSetStatusCache( via )->statuss(), "flood set" } );
    break;
  case Use::none:
    break;
  }
  if ( !mplsFloodSetViaCacheHas( via ) ) {
    return;
  }
  const auto fecId = mplsFloodSetViaCache( via );
  if ( !mplsFloodSetFecRequest()->hwFecIdRequestHas( fecId ) ) {
    out.awaits( "keeps FEC ", fecId, " until hardware takes its answer back" );
    return;
  }
  const bool answered = hasFecResponse( fecId );
  const auto refusal = mplsFloodSetFecResponse()->refusal( fecId );
  if ( answered ) {
    const auto response = mplsFloodSetFecResponse()->hwFecIdResponse( fecId );
    out.say( "hardware answered for FEC ", fecId, " with id ", response.hwFecId, " on ",
             response.l2IntfId );
  } else if ( refusal.tries == 0 ) {
    out.awaits( "waiting for hardware's answer for FEC ", fecId, ", none published" );
  }
  if ( refusal.tries > 0 ) {
    out.refused( Refused{ refusal }, answered ? ", a change of FEC " : ", FEC ", fecId,
                 ", which it tries by itself" );
  }
  const auto [ record, damage ] =
      hwTunnelIdMapping()->tunnelIdToHwTunnelIdTable().examine( via.tunnelId );
  if ( damage ) {
    out.awaits( damage->what() );
  } else if ( !record || !record->hwTunnelId.valid() ) {
    out.awaits( "its tunnel has no hardware tunnel id" );
  }
}

// A path is either answered, refused, or waits: which numbers there are is known without a walk.
void EvpnFloodSetFecSm::addMissing( Missing & out ) const {
  if ( !initialized() ) {
    return;
  }
  const auto & response = mplsFloodSetFecResponse();
  size_t refusedAnswered = 0;
  for ( const auto & [ fecId, refusal ] : response->refusal() ) {
    if ( fecIdCacheHas( fecId ) ) {
      const bool answered = hasFecResponse( fecId );
      out.add( { Standing::refused, refusal.first, {} }, fecIdCache( fecId ),
               answered ? "with the FEC of before" : "without a FEC", ", refused by hardware",
               Because{ refusal.why } );
      refusedAnswered += answered ? 1 : 0;
    }
  }
  const size_t accountedFor = hwInfoMapping()->mappings() + response->refusals() - refusedAnswered;
  if ( fecIdCaches() <= accountedFor ) {
    return;
  }
  for ( const auto & [ fecId, via ] : fecIdCache() ) {
    if ( mplsFloodSetFecRequest()->hwFecIdRequestHas( fecId ) && !hasFecResponse( fecId ) &&
         !response->refusalHas( fecId ) ) {
      out.add( {}, via, "waiting for hardware's answer for a FEC" );
    }
  }
}

// --- What holds between events

void EvpnFloodSetFecSm::check( Findings & out ) const {
  if ( !initialized() ) {
    return;
  }
  checkFecIds( out );
  size_t used = 0, dests = 0, configs = 0, told = 0, programmed = 0;
  for ( const auto & [ via, entry ] : floodSetEntryCache() ) {
    out.expect( entry->vlanMacDestSets() > 0, "floodSetEntryCache has an empty path ", via );
    out.expect( mplsFloodSetFecRequest()->fecHas( mplsFloodSetViaCache( via ) ), "path ", via,
                " is used and not requested" );
    used += entry->vlanMacDestSets();
  }
  forEachDest( *floodSetOutput(), [ & ]( Bridging::VlanId vlanId, Wire::EthAddr mac,
                                         const L2Rib::Dest & dest ) {
    if ( destMplsTunnelId( dest ) == Tunnel::TunnelTable::TunnelId::invalid() ) {
      return;
    }
    const VlanMacDest vmd( vlanId, mac, dest );
    const auto entry = floodSetEntryCache( mplsFloodSetVia( vmd ) );
    out.expect( entry && entry->vlanMacDestSetHas( vmd ), "floodSetEntryCache lacks ", vmd );
    ++dests;
  } );
  out.expect( used == dests, "floodSetEntryCache has ", used, " destinations of ", dests );
  for ( const auto & [ macVlanPair, status ] : vlanFloodSetHwStatus()->status() ) {
    for ( const auto & [ config, hwProgrammingStatus ] : status->mplsDestStatus() ) {
      const bool isProgrammed = hwProgrammingStatus == HwProgrammingStatus::programmed;
      const auto entry = floodSetStatusCache(
          mplsFloodSetVia( config.tunnelId, config.label, macVlanPair.vlanId ) );
      out.expect( ( entry && entry->programmedHas( { macVlanPair, config } ) ) == isProgrammed,
                  "floodSetStatusCache is not as hardware says of ", config );
      programmed += isProgrammed ? 1 : 0;
    }
  }
  for ( const auto & [ via, entry ] : floodSetStatusCache() ) {
    out.expect( entry->statuss() > 0, "floodSetStatusCache has an empty path ", via );
    told += entry->programmed().size();
    configs += entry->statuss();
    for ( const auto & [ macVlanPair, further ] : entry->furtherConfig() ) {
      configs += further;
    }
  }
  out.expect( told == programmed, "floodSetStatusCache has ", told, " configurations of ",
              programmed );
  out.expect( configs == told, "floodSetStatusCache counts ", configs, " configurations of ",
              told );
  for ( const auto & [ via, hwInfo ] : hwInfoMapping()->mapping() ) {
    const auto response = mplsFloodSetFecResponse()->hwFecIdResponse( mplsFloodSetViaCache( via ) );
    out.expect( mplsFloodSetViaCacheHas( via ) &&
                    hwInfo == MplsDestHwInfo{ response.hwFecId, response.l2IntfId },
                "path ", via, " is published with ", hwInfo, ", and not answered so" );
  }
}

// What destinations use is requested with its tunnel's hardware tunnel id as it is now.
void EvpnFloodSetFecSm::checkRequest( Rook::Fib::FecId fecId, const MplsFloodSetVia & via,
                                      Findings & out ) const {
  const auto [ record, damage ] =
      hwTunnelIdMapping()->tunnelIdToHwTunnelIdTable().examine( via.tunnelId );
  if ( useOf( via ) == Use::destinations && !damage ) {
    const auto hwTunnelId = record ? record->hwTunnelId : HwTunnelId();
    const auto & request = mplsFloodSetFecRequest();
    out.expect( request->fecHas( fecId ) && request->hwFecIdRequestHas( fecId ) &&
                    request->hwFecIdRequest( fecId ).hwTunnelId == hwTunnelId,
                "path ", via, " is not requested with hardware tunnel id ", hwTunnelId );
  }
}

// Ids and paths are inverses, held by a request or a response, and the numbers in use.
void EvpnFloodSetFecSm::checkFecIds( Findings & out ) const {
  size_t requested = 0, byTunnel = 0;
  for ( const auto & [ fecId, via ] : fecIdCache() ) {
    out.expect( mplsFloodSetViaCache( via ) == fecId, "path ", via, " has another FEC than ",
                fecId );
    const bool isRequested = mplsFloodSetFecRequest()->fecHas( fecId );
    out.expect( isRequested || mplsFloodSetFecResponse()->hwFecIdResponseHas( fecId ), "FEC ",
                fecId, " is neither requested nor answered" );
    const auto tunnelInfo = tunnelInfoCache( via.tunnelId );
    out.expect( !isRequested || ( tunnelInfo && tunnelInfo->mplsFloodSetViaSetHas( via ) ),
                "tunnelInfoCache lacks path ", via );
    out.expect( hwInfoMapping()->mappingHas( via ) == hasFecResponse( fecId ), "path ", via,
                " is either answered or published, but not both" );
    checkRequest( fecId, via, out );
    requested += isRequested ? 1 : 0;
  }
  for ( const auto & [ tunnelId, tunnelInfo ] : tunnelInfoCache() ) {
    out.expect( tunnelInfo->mplsFloodSetViaSets() > 0, "tunnelInfoCache has an empty tunnel ",
                tunnelId );
    byTunnel += tunnelInfo->mplsFloodSetViaSets();
  }
  out.expect( byTunnel == requested, "tunnelInfoCache has ", byTunnel, " paths, requested are ",
              requested );
  const auto used = numAllocatorStatus()->counts().used;
  out.expect( mplsFloodSetViaCaches() == fecIdCaches() && used == fecIdCaches(), fecIdCaches(),
              " FECs, ", mplsFloodSetViaCaches(), " paths and ", used, " numbers in use" );
}

} // namespace Kez
