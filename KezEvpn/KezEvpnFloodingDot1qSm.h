// Programs VLANs whose EVPN service carries a dot1q tag: the VLAN with its tag, and on every port
// behind each member interface the mapping of the VLAN to the tag.
//
// Reads EvpnStatus::vlanToDot1q, MplsConfig::vlanServiceDot1qEnabled (off when there is no such
// input), EvpnVlanStatus and EvpnLagMemberInfo; calls the flooding helper. A VLAN that is published
// is in `programmedDot1q`, with the tag that hardware has, or its creation is to be tried again.
// Interfaces are reviewed a second after what concerns them changed, from the queue
// `intfVlanQueue`. What hardware refused is in `unprogrammedDot1q` and tried again every
// `defaultUnprogrammedRetryInterval`; a VLAN stands there under the default interface. Both
// collections have a review due while they have members.
#pragma once

#include "KezEvpn/frame/PortProgrammingSm.h"

namespace Kez {

class EvpnFloodingDot1qSm : public PortProgrammingSm {
public:
  using VexReviewIntfVlan = ReviewTask< IntfVlanKey >;

  class VexEvpnStatus : public Vex::ReactorOf< EvpnFloodingDot1qSm, Evpn::EvpnStatus > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
  };

  class VexEvpnMplsConfig : public Vex::ReactorOf< EvpnFloodingDot1qSm, Evpn::MplsConfig > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
  };

  class VexVlanStatus : public Vex::MemberReactor< EvpnFloodingDot1qSm, EvpnVlanMemberInfo > {
  public:
    using MemberReactor::MemberReactor;
    Bridging::VlanId vlanId() const { return fwkKey(); }

    void handleVlanStatus();
    void handleMember( Wire::IntfId intfId );

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
    void handleNotifier() override;
  };

  VEX_ENTITY( EvpnFloodingDot1qSm, "Kez::EvpnFloodingDot1qSm", PortProgrammingSm )
  VEX_INPUT( 1, evpnVlanStatus, EvpnVlanStatus )
  VEX_INPUT( 2, evpnMplsConfig, Evpn::MplsConfig )
  // The tag with which hardware has the VLAN.
  VEX_MAP( 3, programmedDot1q, Bridging::VlanId, Bridging::VlanIdOrNone )
  // The tag that the pair is to be mapped to.
  VEX_MAP( 4, intfVlanDot1q, IntfVlanKey, Bridging::VlanIdOrNone )
  VEX_SHOWN_ENTITIES( 5, dot1qStatus, PortStatuses< IntfVlanStatus > )
  VEX_SET( 6, unprogrammedDot1q, IntfVlanKey )
  VEX_SET( 7, intfVlanQueue, IntfVlanKey )
  VEX_OUTPUT( 8, reviewIntfVlan, VexReviewIntfVlan )
  VEX_TUNABLE( 9, defaultIntfVlanDelay, Vex::Seconds, 1.0 )
  VEX_REACTORS( 10, vlanStatus, VexVlanStatus )
  VEX_ATTRIBUTES( evpnVlanStatus, evpnMplsConfig, programmedDot1q, intfVlanDot1q, dot1qStatus,
                  unprogrammedDot1q, intfVlanQueue, reviewIntfVlan, defaultIntfVlanDelay,
                  vlanStatus )

  using VexEvpnVlanStatus =
      Vex::MirrorReactor< EvpnVlanStatus::vlanStatusEntities, vlanStatusReactors >;

  EvpnFloodingDot1qSm( Out< KezHelper::EvpnFloodingSmHelper > floodingHelper,
                       Out< Loom::TaskScheduler > scheduler,
                       In< EvpnLagMemberInfo > evpnLagMemberInfo,
                       In< EvpnVlanStatus > evpnVlanStatus, In< Evpn::EvpnStatus > evpnStatus,
                       In< Evpn::MplsConfig > evpnMplsConfig );
  ~EvpnFloodingDot1qSm() override;
  // Takes what the constructor takes.
  template< class... Arguments >
  static Vex::Ptr< EvpnFloodingDot1qSm > EvpnFloodingDot1qSmIs( const Arguments &... arguments ) {
    return Vex::makePtr< EvpnFloodingDot1qSm >( arguments... );
  }

  void handleInitialized() override;
  void handleVlanDot1q( Bridging::VlanId vlanId );
  void handleVlanServiceDot1qEnabled();
  void handleLagPort( Wire::IntfId lagIntfId ) override;
  void vex_handleVlanStatus( VexVlanStatus & reactor ) { reactor.handleVlanStatus(); }
  void explain( const Subject & subject, Explanation & out ) const override;
  void addMissing( Missing & out ) const override;

  Bridging::VlanIdOrNone dot1qTagForVlan( Bridging::VlanId vlanId ) const;
  void processIntfVlan( Wire::IntfId intfId, Bridging::VlanId vlanId );
  void addIntfVlanMapping( Wire::IntfId intfId, Bridging::VlanId vlanId );
  void deleteIntfVlanMapping( Wire::IntfId intfId, Bridging::VlanId vlanId );
  void addOrUpdateIntfVlanDot1qMapping( Wire::IntfId intfId, Bridging::VlanId vlanId,
                                        Bridging::VlanIdOrNone dot1q );
  void deleteIntfVlanDot1qMapping( Wire::IntfId intfId, Bridging::VlanId vlanId );
  void programDot1q( Wire::IntfId intfId, Bridging::VlanId vlanId, Bridging::VlanIdOrNone dot1q );
  void programDot1qHelper( Wire::IntfId logIntfId, Wire::IntfId phyIntfId, Bridging::VlanId vlanId,
                           Bridging::VlanIdOrNone dot1q );
  void unprogramDot1q( Wire::IntfId intfId, Bridging::VlanId vlanId, Bridging::VlanIdOrNone dot1q );
  void unprogramDot1qHelper( Wire::IntfId logIntfId, Wire::IntfId phyIntfId,
                             Bridging::VlanId vlanId, Bridging::VlanIdOrNone dot1q );

  void doReviewUnprogrammed() override;
  void maybeScheduleIntfVlanReview( Wire::IntfId intfId, Bridging::VlanId vlanId );
  void reviewIntfVlanIs( Out< Loom::TaskScheduler > scheduler, Loom::TaskPriority priority,
                         const Vex::String & name );
  void vex_handleReviewIntfVlan_taskRun();
  void doReviewIntfVlan();
  void check( Findings & out ) const override;
  void addAuditParts( KezHelper::AuditParts & out ) override;
  bool settled() const override { return intfVlanQueues() == 0; }

private:
  // What a pair lacks to be mapped to a tag, the first of it.
  enum class Lack { nothing, vlanStatus, membership, publication, vlan };
  Lack lackOf( const IntfVlanKey & key ) const;
  // Whether the pair lacks nothing and is mapped to the tag that its VLAN is to have and has.
  bool isMappedAsAsked( const IntfVlanKey & key ) const;
  bool tagChangedUnheard( Bridging::VlanId vlanId, Bridging::VlanIdOrNone dot1q ) const;
  void explainPair( const IntfVlanKey & key, Explanation & out ) const;
  void explainVlan( Bridging::VlanId vlanId, Explanation & out ) const;
  void explainPairsOf( const Subject & subject, Explanation & out ) const;
  void addQueued( const IntfVlanKey & key, Missing & out ) const;
  void addWithoutVlan( const IntfVlanKey & key, Missing & out ) const;

  bool vlanServiceDot1qEnabled() const;
  // Under which the VLAN itself waits to be tried again.
  static IntfVlanKey vlanLevelKey( Bridging::VlanId vlanId ) { return { Wire::IntfId(), vlanId }; }
  void makeUpForZombieMark() override;
  size_t parked() const override { return unprogrammedDot1qs(); }
  void makeRoomForPairs();
  void reprogramVlan( Bridging::VlanId vlanId, Bridging::VlanIdOrNone dot1q );
  void reviewIntfsOf( Bridging::VlanId vlanId );
  // What hardware has of a LAG on a port that it has lost is to be programmed anew should the port
  // come back.
  void markLostPorts( const IntfVlanSet & vlansOfLag );

  Parking< IntfVlanKey > parking_;
  PortStatus< IntfVlanStatus > ports_;
  VexEvpnStatus evpnStatusReactor_;
  VexEvpnMplsConfig evpnMplsConfigReactor_;
  VexEvpnVlanStatus evpnVlanStatusReactor_;
};

Vex::Ptr< EvpnFloodingDot1qSm > evpnFloodingDot1qSmFactory(
    Out< KezHelper::EvpnFloodingSmHelper > floodingHelper, Out< Loom::TaskScheduler > scheduler,
    In< EvpnLagMemberInfo > evpnLagMemberInfo, In< EvpnVlanStatus > evpnVlanStatus,
    In< Evpn::EvpnStatus > evpnStatus, In< Evpn::MplsConfig > evpnMplsConfig );

} // namespace Kez
