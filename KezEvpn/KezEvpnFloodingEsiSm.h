// Programs the split-horizon ("ESI") data of multihomed Ethernet segments on every port behind a
// segment's interface, for every VLAN of which another switch is designated forwarder: the tunnel
// to that switch, the ESI label that it advertised, and the label that this switch did.
//
// Reads EvpnStatus::ethernetSegmentStatus and ::localEsiLabel, EvpnLagMemberInfo and
// TunnelIdToHwTunnelIdMapping; calls the flooding helper. Nothing is programmed until all of them
// are there. A pair moves on from mapped (`intfVlanSet`) over tunnel known (`intfVlanTunnel`) and
// label known (`intfVlanTunnelLabel`) to programmed (`esiStatus`); an input that goes away moves it
// back and deletes its data.
//
// `intfVlanTunnel`, `tunnelIntfVlanSet` and `intfTunnelVlanSet` describe the same triples, and no
// set is empty. What hardware refused is in `unprogrammedEsi` and tried again every
// `defaultUnprogrammedRetryInterval`, and at once when data was deleted. A pair that waits for an
// input is not there.
//
// Kept as it is: a programmed port is not programmed again when only its hardware tunnel id or the
// local label's value changes; a label of a wrong encapsulation type leaves what stands.
#pragma once

#include "KezEvpn/PortProgramming.h"
#include "KezEvpn/TunnelIdToHwTunnelIdMapping.h"

namespace Kez {

class EvpnFloodingEsiSm : public PortProgrammingSm {
public:
  using TunnelId = Tunnel::TunnelTable::TunnelId;

  class VexSegmentStatus
      : public Vex::MemberReactor< EvpnFloodingEsiSm, Evpn::EthernetSegmentStatus > {
  public:
    using MemberReactor::MemberReactor;
    Wire::IntfId intfId() const { return fwkKey(); }

    void handleSegmentStatus();
    void handleDFTep( Bridging::VlanId vlanId );
    void handleLabel( Wire::IntfId tepIntfId );

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
    void handleNotifier() override;
  };

  class VexTunnelIdHwTunnelId
      : public Vex::ReactorOf< EvpnFloodingEsiSm, TunnelIdToHwTunnelIdMapping > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
  };

  VEX_ENTITY( EvpnFloodingEsiSm, "Kez::EvpnFloodingEsiSm", PortProgrammingSm )
  VEX_INPUT( 1, tunnelIdHwTunnelId, TunnelIdToHwTunnelIdMapping )
  VEX_REACTORS( 2, segmentStatus, VexSegmentStatus )
  VEX_MAP( 3, intfVlanTunnel, IntfVlanKey, TunnelId )
  VEX_ENTITIES( 4, tunnelIntfVlanSet, TunnelIntfVlanSet )
  VEX_ENTITIES( 5, intfTunnelVlanSet, IntfTunnelVlanSet )
  VEX_MAP( 6, intfVlanTunnelLabel, IntfVlanTunnelKey, Wire::MplsLabel )
  VEX_ENTITIES( 7, esiStatus, IntfVlanStatus )
  VEX_SET( 8, unprogrammedEsi, IntfVlanKey )
  VEX_ATTRIBUTES( tunnelIdHwTunnelId, segmentStatus, intfVlanTunnel, tunnelIntfVlanSet,
                  intfTunnelVlanSet, intfVlanTunnelLabel, esiStatus, unprogrammedEsi )

  // Follows the segments, and hears of the local labels.
  class VexEvpnStatus : public Vex::MirrorReactor< Evpn::EvpnStatus::ethernetSegmentStatusEntities,
                                                   segmentStatusReactors > {
  public:
    using MirrorReactor::MirrorReactor;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
  };

  EvpnFloodingEsiSm( const Vex::Ptr< KezHelper::EvpnFloodingSmHelper > & floodingHelper,
                     const Vex::Ptr< Loom::TaskScheduler > & scheduler,
                     const Vex::Ptr< const EvpnLagMemberInfo > & evpnLagMemberInfo,
                     const Vex::Ptr< const Evpn::EvpnStatus > & evpnStatus,
                     const Vex::Ptr< const TunnelIdToHwTunnelIdMapping > & tunnelIdHwTunnelId );
  static Vex::Ptr< EvpnFloodingEsiSm >
  EvpnFloodingEsiSmIs( const Vex::Ptr< KezHelper::EvpnFloodingSmHelper > & floodingHelper,
                       const Vex::Ptr< Loom::TaskScheduler > & scheduler,
                       const Vex::Ptr< const EvpnLagMemberInfo > & evpnLagMemberInfo,
                       const Vex::Ptr< const Evpn::EvpnStatus > & evpnStatus,
                       const Vex::Ptr< const TunnelIdToHwTunnelIdMapping > & tunnelIdHwTunnelId );

  void handleInitialized() override;
  void handleLocalEsiLabel( Wire::IntfId intfId );
  void handleLagPort( Wire::IntfId lagIntfId ) override;
  void handleTunnelIdMapping( const TunnelId & tunnelId );
  void explain( const Subject & subject, Explanation & out ) const override;

  void addIntfVlanMapping( Wire::IntfId intfId, Bridging::VlanId vlanId );
  void deleteIntfVlanMapping( Wire::IntfId intfId, Bridging::VlanId vlanId );
  void processIntfVlan( Wire::IntfId intfId, Bridging::VlanId vlanId );
  void addOrUpdateIntfVlanTunnelMapping( Wire::IntfId intfId, Bridging::VlanId vlanId,
                                         TunnelId tunnelId );
  void deleteIntfVlanTunnelMapping( Wire::IntfId intfId, Bridging::VlanId vlanId );
  void addOrUpdateIntfVlanTunnelLabelMapping( Wire::IntfId intfId, Bridging::VlanId vlanId,
                                              TunnelId tunnelId, Wire::MplsLabel label );
  void deleteIntfVlanTunnelLabelMapping( Wire::IntfId intfId, Bridging::VlanId vlanId,
                                         TunnelId tunnelId );
  void programEsi( Wire::IntfId intfId, Bridging::VlanId vlanId, Wire::MplsLabel label );
  void programEsiHelper( Wire::IntfId logicalIntfId, Wire::IntfId phyIntfId,
                         Bridging::VlanId vlanId, Wire::MplsLabel label );
  void unprogramEsi( Wire::IntfId intfId, Bridging::VlanId vlanId );
  void unprogramEsiHelper( Wire::IntfId logicalIntfId, Wire::IntfId phyIntfId,
                           Bridging::VlanId vlanId );

private:
  void makeUpForZombieMark() override;
  void retry( const IntfVlanKey & key ) override;
  void deleteTriple( const IntfVlanKey & key, TunnelId tunnelId );
  void forceReprogram( const IntfVlanKey & key );

  // What a pair lacks to have its data programmed, the first of it.
  enum class Lack { nothing, segment, designatedForwarder, remoteLabel, usableLabel };
  struct Decision {
    Lack lack = Lack::nothing;
    Wire::TepIntfId dfTepIntfId;
    Evpn::EncapTypeLabel remoteLabel;
  };
  Decision decide( const IntfVlanKey & key ) const;
  // And each of its ports, then.
  enum class PortLack { nothing, hwTunnelId, localLabel };
  PortLack portLackOf( Wire::IntfId intfId, bool hwTunnelIdPublished ) const;
  void explainPair( const IntfVlanKey & key, Explanation & out ) const;
  std::optional< TunnelIdToHwTunnelId > mapped( TunnelId tunnelId ) const {
    return tunnelIdHwTunnelId()->tunnelIdToHwTunnelIdTable().safeRecord( tunnelId );
  }
  bool localEsiLabelPublished( Wire::IntfId intfId ) const {
    return evpnStatus()->localEsiLabel( intfId ) != Evpn::EncapTypeLabel();
  }

  VexEvpnStatus evpnStatusReactor_;
  VexTunnelIdHwTunnelId tunnelIdHwTunnelIdReactor_;
};

Vex::Ptr< EvpnFloodingEsiSm > evpnFloodingEsiSmFactory(
    const Vex::Ptr< KezHelper::EvpnFloodingSmHelper > & floodingHelper,
    const Vex::Ptr< Loom::TaskScheduler > & scheduler,
    const Vex::Ptr< const EvpnLagMemberInfo > & evpnLagMemberInfo,
    const Vex::Ptr< const Evpn::EvpnStatus > & evpnStatus,
    const Vex::Ptr< const TunnelIdToHwTunnelIdMapping > & tunnelIdHwTunnelId );

} // namespace Kez
