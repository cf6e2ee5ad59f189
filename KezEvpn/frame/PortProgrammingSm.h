// The base of the machines that program, for pairs of an interface and a VLAN, every port of the
// interface through the flooding helper: their common inputs, and the two-way index of interfaces
// and VLANs. What hardware has of a pair is in the machine's PortStatus.
//
// `intfVlanSet` and `vlanIntfSet` hold the same pairs, and no empty set.
#pragma once

#include "Evpn/EvpnStatus.h"
#include "KezEvpn/frame/PortStatus.h"
#include "KezHelper/EvpnFloodingSmHelper.h"

namespace Kez {

class PortProgrammingSm : public RetryingSm< IntfVlanKey > {
public:
  class VexEvpnLagMemberInfo : public Vex::ReactorOf< PortProgrammingSm, EvpnLagMemberInfo > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
  };

  VEX_ENTITY( PortProgrammingSm, "Kez::PortProgrammingSm", RetryingSm< IntfVlanKey > )
  VEX_OUTPUT( 40, floodingHelper, KezHelper::EvpnFloodingSmHelper )
  VEX_OUTPUT( 41, scheduler, Loom::TaskScheduler )
  VEX_INPUT( 42, evpnLagMemberInfo, EvpnLagMemberInfo )
  VEX_INPUT( 43, evpnStatus, Evpn::EvpnStatus )
  VEX_ENTITIES( 44, intfVlanSet, IntfVlanSet )
  VEX_ENTITIES( 45, vlanIntfSet, VlanIntfSet )
  VEX_ATTRIBUTES( floodingHelper, scheduler, evpnLagMemberInfo, evpnStatus, intfVlanSet,
                  vlanIntfSet )

  virtual void handleLagPort( Wire::IntfId intfId ) = 0;
  void check( Findings & out ) const override;

protected:
  PortProgrammingSm( Ringlog::Handle & traceHandle, const ParkingPolicy & policy,
                     Out< KezHelper::EvpnFloodingSmHelper > floodingHelper,
                     Out< Loom::TaskScheduler > scheduler,
                     In< EvpnLagMemberInfo > evpnLagMemberInfo, In< Evpn::EvpnStatus > evpnStatus );

  Vex::String refusalReason() const override { return floodingHelper()->refusalReason(); }

  // For the end of a machine's constructor.
  void watchLagPorts() { evpnLagMemberInfoReactor_.notifierIs( evpnLagMemberInfo() ); }

  // Runs `what( key )` for each pair that the index has of a VLAN, an interface or a segment.
  template< class What > void forEachPairOf( const Subject & subject, What && what ) const {
    if ( const auto * const all = subject.get< Bridging::VlanId >() ) {
      if ( const auto intfs = vlanIntfSet( *all ) ) {
        for ( const auto intfId : intfs->intfId() ) {
          what( IntfVlanKey( intfId, *all ) );
        }
      }
    } else if ( const auto vlans = intfVlanSet( subject.intfId() ) ) {
      for ( const auto vlanId : vlans->vlanId() ) {
        what( IntfVlanKey( subject.intfId(), vlanId ) );
      }
    }
  }
  // Adds the pairs of LAGs without ports for which `isAsked( key )`.
  template< class IsAsked > void addPortless( Missing & out, IsAsked && isAsked ) const {
    for ( const auto & [ intfId, vlans ] : intfVlanSet() ) {
      if ( lagLack( *evpnLagMemberInfo(), intfId ) == LagLack::nothing ) {
        continue;
      }
      for ( const auto vlanId : vlans->vlanId() ) {
        if ( const IntfVlanKey key( intfId, vlanId ); isAsked( key ) ) {
          out.add( {}, key, "waiting for member ports of ", intfId );
        }
      }
    }
  }

  void addToIndex( Wire::IntfId intfId, Bridging::VlanId vlanId );
  void removeFromIndex( Wire::IntfId intfId, Bridging::VlanId vlanId );

private:
  VexEvpnLagMemberInfo evpnLagMemberInfoReactor_;
};

} // namespace Kez
