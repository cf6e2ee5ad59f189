// Programs every port behind an interface that a VLAN's flood filter holds as one that is not
// designated forwarder, so that no BUM traffic of the VLAN leaves it.
//
// Reads EvpnStatus::evpnVlanFloodStatus and EvpnLagMemberInfo; calls the flooding helper. What
// hardware refused is in `unprogrammedFilter`, and a review of it is due while it has members:
// after `defaultUnprogrammedRetryInterval`, and at once when a port was unprogrammed.
#pragma once

#include "KezEvpn/frame/PortProgrammingSm.h"

namespace Kez {

class KezEvpnFloodFilterSm : public PortProgrammingSm {
public:
  class VexEvpnVlanFloodStatus
      : public Vex::MemberReactor< KezEvpnFloodFilterSm, Evpn::EvpnVlanFloodStatus > {
  public:
    using MemberReactor::MemberReactor;
    Bridging::VlanId vlanId() const { return fwkKey(); }
    Vex::Ptr< const Evpn::EvpnVlanFloodStatus > evpnVlanFloodStatus() const { return notifier(); }

    void handleEvpnVlanFloodStatus();
    void handleFloodFilter( Wire::IntfId intfId );

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
    void handleNotifier() override;
  };

  VEX_ENTITY( KezEvpnFloodFilterSm, "Kez::KezEvpnFloodFilterSm", PortProgrammingSm )
  VEX_SHOWN_ENTITIES( 1, programmedStatus, PortStatuses< IntfVlanStatus > )
  VEX_SET( 2, unprogrammedFilter, IntfVlanKey )
  VEX_REACTORS( 3, evpnVlanFloodStatus, VexEvpnVlanFloodStatus )
  VEX_ATTRIBUTES( programmedStatus, unprogrammedFilter, evpnVlanFloodStatus )

  using VexEvpnStatus = Vex::MirrorReactor< Evpn::EvpnStatus::evpnVlanFloodStatusEntities,
                                            evpnVlanFloodStatusReactors >;

  KezEvpnFloodFilterSm( Out< KezHelper::EvpnFloodingSmHelper > floodingHelper,
                        Out< Loom::TaskScheduler > scheduler,
                        In< EvpnLagMemberInfo > evpnLagMemberInfo,
                        In< Evpn::EvpnStatus > evpnStatus );
  // Takes what the constructor takes.
  template< class... Arguments >
  static Vex::Ptr< KezEvpnFloodFilterSm > KezEvpnFloodFilterSmIs( const Arguments &... arguments ) {
    return Vex::makePtr< KezEvpnFloodFilterSm >( arguments... );
  }

  void handleInitialized() override;
  void handleLagPort( Wire::IntfId intfId ) override;
  void vex_handleEvpnVlanFloodStatus( VexEvpnVlanFloodStatus & reactor ) {
    reactor.handleEvpnVlanFloodStatus();
  }
  void maybeScheduleUnprogrammedReview( bool immediate ) override;
  void doReviewUnprogrammed() override;
  void explain( const Subject & subject, Explanation & out ) const override;
  void addMissing( Missing & out ) const override;
  void check( Findings & out ) const override;
  void addAuditParts( KezHelper::AuditParts & out ) override;

  void processIntfVlan( Wire::IntfId intfId, Bridging::VlanId vlanId );
  void addIntfVlanMapping( Wire::IntfId intfId, Bridging::VlanId vlanId );
  void deleteIntfVlanMapping( Wire::IntfId intfId, Bridging::VlanId vlanId );
  void programFloodFilter( Wire::IntfId intfId, Bridging::VlanId vlanId );
  void programFloodFilterHelper( Wire::IntfId logIntfId, Wire::IntfId phyIntfId,
                                 Bridging::VlanId vlanId );
  void unprogramFloodFilter( Wire::IntfId intfId, Bridging::VlanId vlanId );
  void unprogramFloodFilterHelper( Wire::IntfId logIntfId, Wire::IntfId phyIntfId,
                                   Bridging::VlanId vlanId );

private:
  void explainPairsOf( const Subject & subject, Explanation & out ) const;
  size_t parked() const override { return unprogrammedFilters(); }
  bool isFloodFilterApplied( Wire::IntfId intfId, Bridging::VlanId vlanId ) const {
    const auto vlanFloodStatus = evpnStatus()->evpnVlanFloodStatus( vlanId );
    return vlanFloodStatus && vlanFloodStatus->floodFilterHas( intfId );
  }

  Parking< IntfVlanKey > parking_;
  PortStatus< IntfVlanStatus > ports_;
  VexEvpnStatus evpnStatusReactor_;
};

Vex::Ptr< KezEvpnFloodFilterSm > kezEvpnFloodFilterSmFactory(
    Out< KezHelper::EvpnFloodingSmHelper > floodingHelper, Out< Loom::TaskScheduler > scheduler,
    In< EvpnLagMemberInfo > evpnLagMemberInfo, In< Evpn::EvpnStatus > evpnStatus );

} // namespace Kez
