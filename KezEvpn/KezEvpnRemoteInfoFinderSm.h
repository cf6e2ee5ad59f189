// Counts, for every remote MPLS tunnel, the flood-set destinations that use it.
//
// Reads FloodSetOutput down to each FloodSet::destSet; writes EvpnRemoteInfo::remoteTunnelId. A
// tunnel's count is the number of (VLAN, MAC, destination) whose MPLS data names it; a tunnel
// without any has no entry. The input's sets are the only record of what has been counted, so
// that `remoteInfo` must be fresh when the machine is made, and what changes while its
// notifications are off is not counted before all is counted anew, after a zombie mark. Everything
// is done within the notification; one that would count below zero is fatal.
#pragma once

#include "KezEvpn/KezEvpn.h"
#include "KezEvpn/frame/FloodSetReactors.h"

namespace Kez {

class EvpnRemoteInfoFinderSm : public StateMachine {
public:
  class VexFloodSet : public FloodSetReactor< EvpnRemoteInfoFinderSm > {
  public:
    using FloodSetReactor::FloodSetReactor;
    void handleFloodSet() override;
    void handleDestSet( const L2Rib::Dest & dest ) override;

  private:
    bool counted_ = false; // what stood when this reactor was made
  };
  using VexVlanFloodSet = VlanFloodSetReactor< EvpnRemoteInfoFinderSm, VexFloodSet >;

  VEX_ENTITY( EvpnRemoteInfoFinderSm, "Kez::EvpnRemoteInfoFinderSm", StateMachine )
  VEX_INPUT( 1, floodSetOutput, L2Rib::FloodSetOutput )
  VEX_OUTPUT( 2, remoteInfo, EvpnRemoteInfo )
  VEX_REACTORS( 3, vlanFloodSet, VexVlanFloodSet )
  VEX_ATTRIBUTES( floodSetOutput, remoteInfo, vlanFloodSet )

  using VexFloodSetOutput =
      Vex::MirrorReactor< L2Rib::FloodSetOutput::vlanFloodSetEntities, vlanFloodSetReactors >;

  EvpnRemoteInfoFinderSm( In< L2Rib::FloodSetOutput > floodSetOutput,
                          Out< EvpnRemoteInfo > remoteInfo );
  // Takes what the constructor takes.
  template< class... Arguments >
  static Vex::Ptr< EvpnRemoteInfoFinderSm >
  EvpnRemoteInfoFinderSmIs( const Arguments &... arguments ) {
    return Vex::makePtr< EvpnRemoteInfoFinderSm >( arguments... );
  }

  void vex_handleFloodSet( FloodSetReactor< EvpnRemoteInfoFinderSm > & reactor ) {
    reactor.handleFloodSet();
  }
  // Counts a destination that came or went, in or out as it stands in the input now.
  void processMplsDest( Bridging::VlanId vlanId, const Wire::EthAddr & mac,
                        const L2Rib::Dest & dest );
  void explain( const Subject & subject, Explanation & out ) const override;
  void check( Findings & out ) const override;

private:
  template< class Stands >
  void countMplsDest( Bridging::VlanId vlanId, Wire::EthAddr mac, const L2Rib::Dest & dest,
                      Stands && stands );
  void makeUpForZombieMark() override;
  // By tunnel, how many destinations in the input are reached over it.
  using Counts = Vex::Collection< Tunnel::TunnelTable::TunnelId, uint32_t >;
  void countDests( Counts & counts ) const;

  VexFloodSetOutput floodSetOutputReactor_;
};

Vex::Ptr< EvpnRemoteInfoFinderSm >
evpnRemoteInfoFinderSmFactory( In< L2Rib::FloodSetOutput > floodSetOutput,
                               Out< EvpnRemoteInfo > remoteInfo );

} // namespace Kez
