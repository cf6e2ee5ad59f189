// Gives every remote tunnel that flooding or an Ethernet segment uses a hardware tunnel id, and
// publishes which.
//
// Reads EvpnStatus::ethernetSegmentStatus (each segment's remote ESI labels lead to the tunnels
// that it uses) and EvpnRemoteInfo::remoteTunnelId; gets and gives back ids through the helper;
// writes TunnelIdToHwTunnelIdMapping. A tunnel is mapped when its count comes to be 1 or a segment
// comes to use it, with an id of the shared-ESI type if one of its segments has the shared ESI
// label configured and there is such an id, else of the default type. A tunnel that no segment
// uses is a zombie: it keeps its id, and readers keep using it, until a segment's tunnel needs one
// of that type and none is free. It has none then until its count comes to be 1 again, a segment
// uses it, or all counts are read anew, after a zombie mark. A tunnel for which there is no id at
// all is parked in `unprogrammedTunnel` until a tunnel's last segment leaves it or an id is given
// back; one that no segment uses takes no zombie's id then either. A tunnel for whose record there
// is no room is parked too, and a review is due while one waits for that: nobody tells when there
// is.
//
// With the tunable `retryLackingTunnel` a tunnel that is used and lacks an id of the type that it
// needs is always parked, one that gave its id up and one that has an id of the other type too, and
// parked tunnels are also tried again every `defaultUnprogrammedRetryInterval`. To a tunnel that no
// segment uses ids of both types are the same.
//
// The ids that are free and those that are mapped are all ids of the pools, each once. So
// `handleInitialized()` is called once, and gives nothing back. On a helper whose ids are all free
// it empties the mapping. On one over hardware that is taken over (`idsStay`), the ids in use that
// the mapping or the helper has a tunnel for go on: no record that stays is away for a moment, and
// their tunnels are zombies until something uses them. Damage met in the mapping is fatal, in a
// look-up too.
#pragma once

#include "Evpn/EvpnStatus.h"
#include "Kez/KezCommonSmData.h"
#include "KezEvpn/HwTunnelIdRecords.h"
#include "KezEvpn/SegmentTunnels.h"
#include "KezEvpn/frame/Parking.h"

namespace Kez {

class EvpnHwTunnelIdSm : public RetryingSm< Tunnel::TunnelTable::TunnelId > {
public:
  using TunnelId = Tunnel::TunnelTable::TunnelId;

  class VexSegmentStatus
      : public Vex::MemberReactor< EvpnHwTunnelIdSm, Evpn::EthernetSegmentStatus > {
  public:
    using MemberReactor::MemberReactor;
    Wire::IntfId esIntfId() const { return fwkKey(); }

    void handleSegmentStatus();
    void handleRemoteEsiLabel( Wire::IntfId labelIntfId );
    void handleSharedEsiLabel();

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
    void handleNotifier() override;
  };

  class VexRemoteInfo : public Vex::ReactorOf< EvpnHwTunnelIdSm, EvpnRemoteInfo > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
    void handleNotifier() override;
  };

  class VexHelper : public Vex::ReactorOf< EvpnHwTunnelIdSm, KezHelper::EvpnHwTunnelIdSmHelper > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
  };

  VEX_ENTITY( EvpnHwTunnelIdSm, "Kez::EvpnHwTunnelIdSm", RetryingSm< TunnelId > )
  VEX_OUTPUT( 1, hwTunnelIdHelper, KezHelper::EvpnHwTunnelIdSmHelper )
  VEX_OUTPUT( 2, scheduler, Loom::TaskScheduler )
  VEX_INPUT( 3, acsd, KezCommonSmData )
  VEX_INPUT( 4, evpnStatus, Evpn::EvpnStatus )
  VEX_INPUT( 5, remoteInfo, EvpnRemoteInfo )
  VEX_OUTPUT( 6, tunnelIdHwTunnelId, TunnelIdToHwTunnelIdMapping )
  VEX_OWN_REACTORS( 7, segmentStatus, VexSegmentStatus )
  // The tunnels that a segment's remote ESI labels lead to; no entry when there is none.
  VEX_ENTITIES( 8, intfTunnelSet, IntfTunnelSet )
  // The segments that use a tunnel; no entry when there is none.
  VEX_ENTITIES( 9, tunnelInfo, TunnelInfo )
  // By type, the tunnels whose mapped id is of the type and that no segment uses.
  VEX_ENTITIES( 10, zombieTunnelId, TunnelIdSet )
  // The tunnels that were refused an id, or room for it in the mapping, and lack it.
  VEX_SET( 11, unprogrammedTunnel, TunnelId )
  VEX_HANDLED_TUNABLE( 12, retryLackingTunnel, bool, false )
  VEX_ATTRIBUTES( hwTunnelIdHelper, scheduler, acsd, evpnStatus, remoteInfo, tunnelIdHwTunnelId,
                  segmentStatus, intfTunnelSet, tunnelInfo, zombieTunnelId, unprogrammedTunnel,
                  retryLackingTunnel )

  using VexEvpnStatus =
      Vex::MirrorReactor< Evpn::EvpnStatus::ethernetSegmentStatusEntities, segmentStatusReactors >;

  EvpnHwTunnelIdSm( Out< KezHelper::EvpnHwTunnelIdSmHelper > hwTunnelIdHelper,
                    Out< Loom::TaskScheduler > scheduler, In< KezCommonSmData > acsd,
                    In< Evpn::EvpnStatus > evpnStatus, In< EvpnRemoteInfo > remoteInfo,
                    Out< TunnelIdToHwTunnelIdMapping > tunnelIdHwTunnelId );
  // Takes what the constructor takes.
  template< class... Arguments >
  static Vex::Ptr< EvpnHwTunnelIdSm > EvpnHwTunnelIdSmIs( const Arguments &... arguments ) {
    return Vex::makePtr< EvpnHwTunnelIdSm >( arguments... );
  }

  void handleInitialized() override;
  void handleRemoteTunnelId( TunnelId tunnelId );
  // The helper has ids again, or tunnels need not keep theirs any more.
  void handleHelper();
  void vex_handleSegmentStatus( VexSegmentStatus & reactor ) {
    reactor.handleSegmentStatus();
    reactor.handleSharedEsiLabel();
  }

  void segmentStatusIs( In< Evpn::EthernetSegmentStatus > status );
  // A segment that loses its reactor uses no tunnel any more, also while it stands in the input.
  void segmentStatusDel( Wire::IntfId esIntfId );
  void segmentStatusDelAll();

  void programHwTunnelId( Wire::IntfId esIntfId, TunnelId tunnelId );
  void unProgramHwTunnelId( Wire::IntfId esIntfId, TunnelId tunnelId );
  void publishHwTunnelId( TunnelId tunnelId );
  void maybeReprogramHwTunnelId( TunnelId tunnelId );
  // For the tunnel; an id that is not valid when there is none.
  HwTunnelId getHwTunnelId( HwTunnelIdType hwTunnelIdType, bool attemptZombieRelease,
                            TunnelId tunnelId = TunnelId::invalid() );
  bool releaseOneZombieTunnelId( HwTunnelIdType hwTunnelIdType );

  void doReviewUnprogrammed() override;
  void explain( const Subject & subject, Explanation & out ) const override;
  void addMissing( Missing & out ) const override;
  void check( Findings & out ) const override;
  void addAuditParts( KezHelper::AuditParts & out ) override;

private:
  bool usedBySegment( TunnelId tunnelId ) const { return tunnelInfoHas( tunnelId ); }
  bool isWanted( TunnelId tunnelId ) const {
    return usedBySegment( tunnelId ) || remoteInfo()->remoteTunnelIdHas( tunnelId );
  }
  bool labelled( Wire::IntfId esIntfId, TunnelId tunnelId ) const {
    return segmentTunnels_.labelled( esIntfId, tunnelId );
  }
  bool sharedEsiLabelConfigured( Wire::IntfId esIntfId ) const {
    return segmentTunnels_.sharedEsiLabelConfigured( esIntfId );
  }
  HwTunnelIdType neededType( TunnelId tunnelId ) const {
    return segmentTunnels_.neededType( tunnelId );
  }
  std::optional< TunnelIdToHwTunnelId > mapped( TunnelId tunnelId ) const {
    return hwTunnelIdRecord( *tunnelIdHwTunnelId(), tunnelId );
  }
  size_t parked() const override { return unprogrammedTunnels(); }
  Vex::String refusalReason() const override { return hwTunnelIdHelper()->refusalReason(); }
  bool retriesRefused() const override { return retryLackingTunnel(); }
  bool makeRoom( HwTunnelIdType hwTunnelIdType, bool used );
  using IdsInUse = KezHelper::EvpnHwTunnelIdSmHelper::HwTunnelIds;
  void takeOver( const IdsInUse & inUse );
  // What a tunnel that is used lacks: an id at all, or one of the type that its segments need.
  enum class Lack { nothing, id, type };
  Lack lackOf( TunnelId tunnelId ) const;
  void settleLack( TunnelId tunnelId );
  void retryLackingTunnelChanged();
  void explainSegment( const Subject & subject, Explanation & out ) const;
  void addLack( TunnelId tunnelId, Missing & out ) const;
  void explainWait( TunnelId tunnelId, Explanation & out ) const;
  void explainLack( TunnelId tunnelId, Explanation & out ) const;
  void checkRetried( Findings & out ) const;
  std::optional< TunnelId > recordedFor( HwTunnelId hwTunnelId ) const;

  SegmentTunnels segmentTunnels_;
  Parking< TunnelId > parking_;
  VexEvpnStatus evpnStatusReactor_;
  VexRemoteInfo remoteInfoReactor_;
  VexHelper helperReactor_;
};

Vex::Ptr< EvpnHwTunnelIdSm >
evpnHwTunnelIdSmFactory( Out< KezHelper::EvpnHwTunnelIdSmHelper > hwTunnelIdHelper,
                         Out< Loom::TaskScheduler > scheduler, In< KezCommonSmData > acsd,
                         In< Evpn::EvpnStatus > evpnStatus, In< EvpnRemoteInfo > remoteInfo,
                         Out< TunnelIdToHwTunnelIdMapping > tunnelIdHwTunnelId );

} // namespace Kez
