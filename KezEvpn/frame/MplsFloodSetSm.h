// What the two machines share that follow the MPLS destinations of flood sets to hardware: they
// watch the same flood sets, hardware tunnel ids and hardware status, and look up the same things
// in them. Nothing is handled before `initialized`.
#pragma once

#include "KezEvpn/FloodSetPaths.h"
#include "KezEvpn/TunnelIdToHwTunnelIdMapping.h"
#include "KezEvpn/frame/FloodSetReactors.h"
#include "Ringlog/Trace.h"

namespace Kez {

class MplsFloodSetSm : public InitializedSm {
public:
  class VexFloodSet : public FloodSetReactor< MplsFloodSetSm > {
  public:
    using FloodSetReactor::FloodSetReactor;
    void handleFloodSet() override;
    void handleDestSet( const L2Rib::Dest & dest ) override;
  };
  using VexVlanFloodSet = VlanFloodSetReactor< MplsFloodSetSm, VexFloodSet >;

  class VexHwTunnelIdMapping
      : public Vex::ReactorOf< MplsFloodSetSm, TunnelIdToHwTunnelIdMapping > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
  };

  class VexVlanFloodSetStatus : public Vex::MemberReactor< MplsFloodSetSm, VlanFloodSetStatus > {
  public:
    using MemberReactor::MemberReactor;
    const Bridging::MacVlanPair & macVlanPair() const { return fwkKey(); }

    void handleVlanFloodSetStatus();
    void handleMplsDestStatus( const MplsDestConfig & config );

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
    void handleNotifier() override;
  };

  VEX_ENTITY( MplsFloodSetSm, "Kez::MplsFloodSetSm", InitializedSm )
  VEX_INPUT( 40, floodSetOutput, L2Rib::FloodSetOutput )
  VEX_INPUT( 41, hwTunnelIdMapping, TunnelIdToHwTunnelIdMapping )
  VEX_INPUT( 42, vlanFloodSetHwStatus, EvpnVlanFloodSetHwStatus )
  VEX_REACTORS( 43, vlanFloodSet, VexVlanFloodSet )
  VEX_REACTORS( 44, vlanFloodSetStatus, VexVlanFloodSetStatus )
  VEX_ATTRIBUTES( floodSetOutput, hwTunnelIdMapping, vlanFloodSetHwStatus, vlanFloodSet,
                  vlanFloodSetStatus )

  using VexFloodSetOutput =
      Vex::MirrorReactor< L2Rib::FloodSetOutput::vlanFloodSetEntities, vlanFloodSetReactors >;
  using VexVlanFloodSetHwStatus =
      Vex::MirrorReactor< EvpnVlanFloodSetHwStatus::statusEntities, vlanFloodSetStatusReactors >;

  // A destination that came or went, as it stands in the input now. Asserts that it is MPLS.
  virtual void processMplsDest( Bridging::VlanId vlanId, const Wire::EthAddr & mac,
                                const L2Rib::Dest & dest ) = 0;
  virtual void handleHwTunnelIdMapping( Tunnel::TunnelTable::TunnelId tunnelId ) = 0;
  virtual void handleMplsDestStatus( const Bridging::MacVlanPair & macVlanPair,
                                     const MplsDestConfig & config ) = 0;

  void vex_handleFloodSet( FloodSetReactor< MplsFloodSetSm > & reactor ) {
    reactor.handleFloodSet();
  }
  void vex_handleVlanFloodSetStatus( VexVlanFloodSetStatus & reactor ) {
    reactor.handleVlanFloodSetStatus();
  }
  bool isDestInFloodSet( Bridging::VlanId vlanId, const Wire::EthAddr & mac,
                         const L2Rib::Dest & dest ) const;
  bool isMplsDestConfigProgrammed( const Bridging::MacVlanPair & macVlanPair,
                                   const MplsDestConfig & config ) const;

protected:
  MplsFloodSetSm( Ringlog::Handle & traceHandle, In< L2Rib::FloodSetOutput > floodSetOutput,
                  In< TunnelIdToHwTunnelIdMapping > hwTunnelIdMapping,
                  In< EvpnVlanFloodSetHwStatus > vlanFloodSetHwStatus );

  // For the constructor of a machine, last.
  void watchInputs();
  // For the start of a machine.
  void processEveryMplsDest();
  void handleEveryVlanFloodSetStatus();

  // For making up for a zombie mark, which is the machine's own to do.
  void makeUpForZombieMark() override = 0;
  void processDestsThatLeft( const MplsFloodSetViaToVlanMacDestSet & entry );

  // Of a flood set's status, before `initialized`.
  virtual void handleVlanFloodSetStatusNotInitialized() {}

  // Not valid for a tunnel without one. A damaged table is handed to its corruption handler, and
  // read as having none.
  HwTunnelId hwTunnelId( Tunnel::TunnelTable::TunnelId tunnelId ) const;

private:
  VexFloodSetOutput floodSetOutputReactor_;
  VexHwTunnelIdMapping hwTunnelIdMappingReactor_;
  VexVlanFloodSetHwStatus vlanFloodSetHwStatusReactor_;
};

} // namespace Kez
