// Decides for every (interface, VLAN) pair whether the interface is a member of the VLAN for
// EVPN, and publishes the members of each VLAN.
//
// An interface whose encapsulated BUM traffic is filtered (EvpnStatus::encapBumFilter) is a member
// where Config lists it; any other is one where the VLAN's port status lists it. Writes
// EvpnVlanStatus::vlanStatus: a VLAN has an entry exactly while it has a member. Nothing can fail
// softly, and everything is done within the notification. All three inputs must be there whenever
// a pair is evaluated; a missing one is fatal.
#pragma once

#include "Bridging/VlanConfig.h"
#include "Evpn/EvpnStatus.h"
#include "KezEvpn/KezEvpn.h"
#include "KezEvpn/StateMachine.h"

namespace Kez {

class KezEvpnVlanMembershipSm : public StateMachine {
public:
  class VexVlanConfig : public Vex::MemberReactor< KezEvpnVlanMembershipSm, Bridging::VlanConfig > {
  public:
    using MemberReactor::MemberReactor;
    Bridging::VlanId vlanId() const { return fwkKey(); }

    void handleVlanConfig();
    void handleIntf( Wire::IntfId intfId );

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
    void handleNotifier() override;
  };

  class VexVlanStatus : public Vex::MemberReactor< KezEvpnVlanMembershipSm, Bridging::VlanStatus > {
  public:
    using MemberReactor::MemberReactor;
    Bridging::VlanId vlanId() const { return fwkKey(); }

    void handleVlanStatus();
    void handleIntf( Wire::IntfId intfId );

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
    void handleNotifier() override;
  };

  class VexEvpnStatus : public Vex::ReactorOf< KezEvpnVlanMembershipSm, Evpn::EvpnStatus > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
  };

  VEX_ENTITY( KezEvpnVlanMembershipSm, "Kez::KezEvpnVlanMembershipSm", StateMachine )
  VEX_INPUT( 1, bridgingConfig, Bridging::Config )
  VEX_INPUT( 2, vlanStatusDir, Bridging::VlanStatusDir )
  VEX_INPUT( 3, evpnStatus, Evpn::EvpnStatus )
  VEX_OUTPUT( 4, evpnVlanStatus, EvpnVlanStatus )
  // Per interface, the VLANs whose configuration lists it; no entry when there is none.
  VEX_ENTITIES( 5, intfVlanConfigSet, IntfVlanSet )
  VEX_REACTORS( 6, vlanConfig, VexVlanConfig )
  VEX_REACTORS( 7, vlanStatus, VexVlanStatus )
  VEX_ATTRIBUTES( bridgingConfig, vlanStatusDir, evpnStatus, evpnVlanStatus, intfVlanConfigSet,
                  vlanConfig, vlanStatus )

  using VexBridgingConfig =
      Vex::MirrorReactor< Bridging::Config::vlanConfigEntities, vlanConfigReactors >;
  using VexVlanStatusDir =
      Vex::MirrorReactor< Bridging::VlanStatusDir::vlanStatusEntities, vlanStatusReactors >;

  KezEvpnVlanMembershipSm( const Vex::Ptr< const Bridging::Config > & bridgingConfig,
                           const Vex::Ptr< const Bridging::VlanStatusDir > & vlanStatusDir,
                           const Vex::Ptr< const Evpn::EvpnStatus > & evpnStatus,
                           const Vex::Ptr< EvpnVlanStatus > & evpnVlanStatus );
  static Vex::Ptr< KezEvpnVlanMembershipSm >
  KezEvpnVlanMembershipSmIs( const Vex::Ptr< const Bridging::Config > & bridgingConfig,
                             const Vex::Ptr< const Bridging::VlanStatusDir > & vlanStatusDir,
                             const Vex::Ptr< const Evpn::EvpnStatus > & evpnStatus,
                             const Vex::Ptr< EvpnVlanStatus > & evpnVlanStatus );

  void processIntfVlan( Wire::IntfId intfId, Bridging::VlanId vlanId );
  void addIntfToEvpnVlanStatus( Wire::IntfId intfId, Bridging::VlanId vlanId );
  void removeIntfVlanFromEvpnVlanStatus( Wire::IntfId intfId, Bridging::VlanId vlanId );
  void handleEncapBumFilter( Wire::IntfId intfId );
  void explain( const Subject & subject, Explanation & out ) const override;

private:
  bool isConfigured( Wire::IntfId intfId, Bridging::VlanId vlanId ) const;
  bool isOperational( Wire::IntfId intfId, Bridging::VlanId vlanId ) const;
  bool isToBeMember( Wire::IntfId intfId, Bridging::VlanId vlanId ) const {
    return evpnStatus()->encapBumFilterHas( intfId ) ? isConfigured( intfId, vlanId )
                                                     : isOperational( intfId, vlanId );
  }
  void makeUpForZombieMark() override;
  void processPublished();
  void explainPair( const IntfVlanKey & key, Explanation & out ) const;

  VexBridgingConfig bridgingConfigReactor_;
  VexVlanStatusDir vlanStatusDirReactor_;
  VexEvpnStatus evpnStatusReactor_;
};

Vex::Ptr< KezEvpnVlanMembershipSm >
kezEvpnVlanMembershipSmFactory( const Vex::Ptr< const Bridging::Config > & bridgingConfig,
                                const Vex::Ptr< const Bridging::VlanStatusDir > & vlanStatusDir,
                                const Vex::Ptr< const Evpn::EvpnStatus > & evpnStatus,
                                const Vex::Ptr< EvpnVlanStatus > & evpnVlanStatus );

} // namespace Kez
