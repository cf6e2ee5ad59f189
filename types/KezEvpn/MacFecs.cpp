#include "KezEvpn/MacFecs.h"

namespace Kez {

using Tunnel::TunnelTable::TunnelId;

TunnelId destTunnelId( const L2Rib::Dest & dest ) {
  return dest.destType() == L2Rib::destTypeMpls_     ? destMplsTunnelId( dest )
         : dest.destType() == L2Rib::destTypeTunnel_ ? dest.tunnelId()
                                                     : TunnelId::invalid();
}

std::vector< TunnelId > fecTunnelIds( const Rook::Fib::Fec & fec ) {
  std::vector< TunnelId > tunnelIds;
  for ( const auto & via : fec.via ) {
    if ( Wire::DynamicTunnelIntfId::isDynamicTunnelIntfId( via.intfId ) ) {
      tunnelIds.push_back( Wire::DynamicTunnelIntfId::tunnelId( via.intfId ) );
    }
  }
  return tunnelIds;
}

MaxChainLength::MaxChainLength( uint32_t value ) : WordValue( value ) {
  if ( value < 2 || value > 3 ) {
    throw Vex::RangeError( "KezMacAddrFecRequestSm::maxChainLength < 2 or > 3 not allowed" );
  }
}

void parseText( Vex::TextCursor & in, MaxChainLength & length ) {
  uint32_t value = 0;
  parseText( in, value );
  length = value;
}

// The new FEC counts before the old one is left, so that who hears of that finds the host moved.
void MacAddrHwStatus::programmedIs( const Bridging::MacVlanPair & pair, Rook::Fib::FecId fecId ) {
  const bool stood = hostHas( pair );
  const auto before = host( pair );
  if ( stood && before == fecId ) {
    return;
  }
  hostIs( pair, fecId );
  fecHostInc( fecId );
  if ( stood ) {
    leave( before );
  }
}

void MacAddrHwStatus::programmedDel( const Bridging::MacVlanPair & pair ) {
  if ( hostHas( pair ) ) {
    const auto before = host( pair );
    hostDel( pair );
    leave( before );
  }
}

void MacAddrHwStatus::leave( Rook::Fib::FecId fecId ) {
  if ( fecHostDec( fecId ) == 0 ) {
    fecHostDel( fecId );
  }
}

size_t MacChain::hosts() const {
  return hosts_.size();
}

Vex::Ptr< MacAddrFecStatus > macAddrFecStatusFactory() {
  return Vex::makePtr< MacAddrFecStatus >();
}

Vex::Ptr< MacAddrHwStatus > macAddrHwStatusFactory() {
  return Vex::makePtr< MacAddrHwStatus >();
}

} // namespace Kez
