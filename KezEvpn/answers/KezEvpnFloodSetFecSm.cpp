#include "KezEvpn/KezEvpnFloodSetFecSm.h"

#include "KezEvpn/frame/Explain.h"
#include "KezEvpn/frame/Findings.h"

namespace Kez {

// --- What an operator is told

void EvpnFloodSetFecSm::explain( const Subject & subject, Explanation & out ) const {
  if ( !initialized() ) {
    return;
  }
  if ( const auto * const via = subject.get< MplsFloodSetVia >() ) {
    explainPath( *via, out );
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
    out.say( "used by no destination any more, waiting for hardware to unprogram ",
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
    out.say( "keeps FEC ", fecId, " until hardware takes its answer back" );
    return;
  }
  if ( hasFecResponse( fecId ) ) {
    const auto response = mplsFloodSetFecResponse()->hwFecIdResponse( fecId );
    out.say( "hardware answered for FEC ", fecId, " with id ", response.hwFecId, " on ",
             response.l2IntfId );
  } else {
    out.say( "waiting for hardware's answer for FEC ", fecId, ", none published" );
  }
  const auto mapping =
      examine( hwTunnelIdMapping()->tunnelIdToHwTunnelIdTable(), via.tunnelId, out );
  if ( !mapping || !mapping->hwTunnelId.valid() ) {
    out.say( "its tunnel has no hardware tunnel id" );
  }
}

} // namespace Kez
