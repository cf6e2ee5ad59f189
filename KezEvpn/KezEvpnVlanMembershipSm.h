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
#include "KezEvpn/frame/StateMachine.h"

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

  KezEvpnVlanMembershipSm( In< Bridging::Config > bridgingConfig,
                           In< Bridging::VlanStatusDir > vlanStatusDir,
                           In< Evpn::EvpnStatus > evpnStatus,
                           Out< EvpnVlanStatus > evpnVlanStatus );
  // Takes what the constructor takes.
  template< class... Arguments >
  static Vex::Ptr< KezEvpnVlanMembershipSm >
  KezEvpnVlanMembershipSmIs( const Arguments &... arguments ) {
    return Vex::makePtr< KezEvpnVlanMembershipSm >( arguments... );
  }

  void processIntfVlan( Wire::IntfId intfId, Bridging::VlanId vlanId );
  void addIntfToEvpnVlanStatus( Wire::IntfId intfId, Bridging::VlanId vlanId );
  void removeIntfVlanFromEvpnVlanStatus( Wire::IntfId intfId, Bridging::VlanId vlanId );
  void handleEncapBumFilter( Wire::IntfId intfId );
  void vex_handleVlanConfig( VexVlanConfig & reactor ) { reactor.handleVlanConfig(); }
  void vex_handleVlanStatus( VexVlanStatus & reactor ) { reactor.handleVlanStatus(); }
  void explain( const Subject & subject, Explanation & out ) const override;
  void check( Findings & out ) const override;

private:
  bool isConfigured( Wire::IntfId intfId, Bridging::VlanId vlanId ) const;
  bool isOperational( Wire::IntfId intfId, Bridging::VlanId vlanId ) const;
  // Whether the pair is to be a member, and by what.
  struct Decision {
    bool byConfiguration;
    bool member;
  };
  template< class IsConfigured, class IsOperational >
  Decision decideBy( Wire::IntfId intfId, IsConfigured && isConfigured,
                     IsOperational && isOperational ) const;
  Decision decide( Wire::IntfId intfId, Bridging::VlanId vlanId ) const;
  // What there is of a VLAN, for several interfaces of it: looked up again where it has left.
  struct Vlan {
    const Bridging::VlanId vlanId;
    const size_t intfs = 1; // for which room is made
    Vex::Ptr< const Bridging::VlanConfig > config = {};
    Vex::Ptr< const Bridging::VlanStatus > status = {};
    Vex::Ptr< EvpnVlanMemberInfo > published = {};
  };
  void lookUp( Vlan & vlan ) const;
  // What is known of a pair: a walk over a VLAN's configuration or status stands on it.
  enum class Known { nothing, configured, operational };
  void processIntf( Wire::IntfId intfId, Vlan & vlan, Known known );
  void addIntf( Wire::IntfId intfId, Vlan & vlan );
  void makeUpForZombieMark() override;
  void processPublished();
  void explainPair( const IntfVlanKey & key, Explanation & out ) const;

  VexBridgingConfig bridgingConfigReactor_;
  VexVlanStatusDir vlanStatusDirReactor_;
  VexEvpnStatus evpnStatusReactor_;
  bool started_ = false; // what is configured stands in the index
};

Vex::Ptr< KezEvpnVlanMembershipSm > kezEvpnVlanMembershipSmFactory(
    In< Bridging::Config > bridgingConfig, In< Bridging::VlanStatusDir > vlanStatusDir,
    In< Evpn::EvpnStatus > evpnStatus, Out< EvpnVlanStatus > evpnVlanStatus );

} // namespace Kez
