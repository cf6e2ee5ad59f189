// Gives every path that MPLS destinations of flood sets use a FEC of its own, asks hardware for
// its id, and publishes what hardware answered.
//
// Reads the flood sets, TunnelIdToHwTunnelIdMapping, the hardware status and the FEC responses;
// writes FecIdToHwFecIdRequest and HwInfoMapping. A path's request is there from the first
// destination that uses it until none does and no flood set has it programmed. Its FEC id is kept
// until request and response are both gone, so that a path that comes back meanwhile has it still,
// and then rests. After every event:
//   - `fecIdCache` and `mplsFloodSetViaCache` are inverses, their numbers are the allocator's in
//     use, and each id is held by the request or the response;
//   - `floodSetEntryCache` is what the flood sets say, `floodSetStatusCache` what the hardware
//     status says;
//   - `tunnelInfoCache` is the paths with a request, and HwInfoMapping the answered ones.
// Starting, the machine clears its outputs. The ids that the requests and responses of an earlier
// one held are passed over once, since answers to those may still come.
#pragma once

#include "KezEvpn/frame/FecRequestSm.h"
#include "KezEvpn/frame/MplsFloodSetSm.h"

namespace Kez {

class EvpnFloodSetFecSm : public FecRequestSm< MplsFloodSetSm > {
public:
  using VexMplsFloodSetFecResponse = VexFecResponse;

  VEX_ENTITY( EvpnFloodSetFecSm, "Kez::EvpnFloodSetFecSm", FecRequestSm< MplsFloodSetSm > )
  VEX_OUTPUT( 1, mplsFloodSetFecRequest, FecIdToHwFecIdRequest )
  VEX_INPUT( 2, mplsFloodSetFecResponse, FecIdToHwFecIdResponse )
  VEX_OUTPUT( 3, hwInfoMapping, HwInfoMapping )
  VEX_MAP( 8, fecIdCache, Rook::Fib::FecId, MplsFloodSetVia )
  VEX_MAP( 9, mplsFloodSetViaCache, MplsFloodSetVia, Rook::Fib::FecId )
  VEX_ENTITIES( 10, floodSetEntryCache, MplsFloodSetViaToVlanMacDestSet )
  VEX_ENTITIES( 11, floodSetStatusCache, MplsFloodSetViaToFloodSetStatus )
  VEX_ENTITIES( 12, tunnelInfoCache, TunnelIdToMplsFloodSetVia )
  VEX_ATTRIBUTES( mplsFloodSetFecRequest, mplsFloodSetFecResponse, hwInfoMapping, fecIdCache,
                  mplsFloodSetViaCache, floodSetEntryCache, floodSetStatusCache, tunnelInfoCache )

  EvpnFloodSetFecSm( In< L2Rib::FloodSetOutput > floodSetOutput,
                     In< TunnelIdToHwTunnelIdMapping > hwTunnelIdMapping,
                     In< EvpnVlanFloodSetHwStatus > vlanFloodSetHwStatus,
                     Out< FecIdToHwFecIdRequest > mplsFloodSetFecRequest,
                     In< FecIdToHwFecIdResponse > mplsFloodSetFecResponse,
                     Out< HwInfoMapping > hwInfoMapping, Out< Loom::TimerWheel > timerWheel );
  // Takes what the constructor takes.
  template< class... Arguments >
  static Vex::Ptr< EvpnFloodSetFecSm > EvpnFloodSetFecSmIs( const Arguments &... arguments ) {
    return Vex::makePtr< EvpnFloodSetFecSm >( arguments... );
  }

  void handleInitialized() override;
  void handleHwTunnelIdMapping( Tunnel::TunnelTable::TunnelId tunnelId ) override;
  void handleMplsDestStatus( const Bridging::MacVlanPair & macVlanPair,
                             const MplsDestConfig & config ) override;
  void handleFecResponse( Rook::Fib::FecId fecId ) override;
  void explain( const Subject & subject, Explanation & out ) const override;
  void addMissing( Missing & out ) const override;
  void check( Findings & out ) const override;

  void processMplsDest( Bridging::VlanId vlanId, const Wire::EthAddr & mac,
                        const L2Rib::Dest & dest ) override;
  void processFecRequest( const MplsFloodSetVia & via );
  void createOrUpdateFecRequest( const MplsFloodSetVia & via );
  void removeFecRequest( const MplsFloodSetVia & via );
  Rook::Fib::FecId getOrAllocateFecId( const MplsFloodSetVia & via );
  Rook::Fib::Fec buildFec( Rook::Fib::FecId fecId, const MplsFloodSetVia & via ) const;
  void updateCachesForFecId( Rook::Fib::FecId fecId, const MplsFloodSetVia & via, bool deleted );
  void updateTunnelInfoCache( const MplsFloodSetVia & via, bool deleted );
  void maybeDeleteFecId( Rook::Fib::FecId fecId );

private:
  // What keeps a path's request.
  enum class Use { none, destinations, hardware };
  Use useOf( const MplsFloodSetVia & via ) const;
  void explainPath( const MplsFloodSetVia & via, Explanation & out ) const;
  void checkFecIds( Findings & out ) const;
  void checkRequest( Rook::Fib::FecId fecId, const MplsFloodSetVia & via, Findings & out ) const;

  FecIdToHwFecIdRequest & fecRequest() const override { return *mplsFloodSetFecRequest(); }
  const FecIdToHwFecIdResponse & fecResponse() const override { return *mplsFloodSetFecResponse(); }
  void handleVlanFloodSetStatusNotInitialized() override;
  void makeUpForZombieMark() override;
  void clearOutputs();
  void clearCaches();
  void updateFloodSetStatusCache( const MplsFloodSetVia & via,
                                  const FloodSetMplsDestConfig & floodSetConfig, bool programmed );
};

// The FEC id of a number of the allocator. Asserts that it is not negative.
Rook::Fib::FecId indexToFecId( int64_t index );

Vex::Ptr< EvpnFloodSetFecSm >
evpnFloodSetFecSmFactory( In< L2Rib::FloodSetOutput > floodSetOutput,
                          In< TunnelIdToHwTunnelIdMapping > hwTunnelIdMapping,
                          In< EvpnVlanFloodSetHwStatus > vlanFloodSetHwStatus,
                          Out< FecIdToHwFecIdRequest > mplsFloodSetFecRequest,
                          In< FecIdToHwFecIdResponse > mplsFloodSetFecResponse,
                          Out< HwInfoMapping > hwInfoMapping, Out< Loom::TimerWheel > timerWheel );

} // namespace Kez
