// Programs the split-horizon ("ESI") data of multihomed Ethernet segments on every port behind a
// segment's interface, for every VLAN of which another switch is designated forwarder: the tunnel
// to that switch, the ESI label that it advertised, and the label that this switch did.
//
// Reads `ethernetSegmentStatus` and `localEsiLabel` of EvpnStatus, EvpnLagMemberInfo and
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
// local label's value changes; a label of a wrong encapsulation type leaves what stands. Two
// tunables make hardware follow there too. Under `reprogramChangedEsi` no data names another
// hardware tunnel id than its tunnel has, also where the new data is refused.
#pragma once

#include "KezEvpn/EsiDecision.h"
#include "KezEvpn/TunnelIdToHwTunnelIdMapping.h"
#include "KezEvpn/frame/PortProgrammingSm.h"

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
  VEX_SHOWN_ENTITIES( 7, esiStatus, PortStatuses< EsiStatus > )
  VEX_SET( 8, unprogrammedEsi, IntfVlanKey )
  // A programmed port is programmed anew when its tunnel's hardware id or the value of the local
  // label changes.
  VEX_HANDLED_TUNABLE( 9, reprogramChangedEsi, bool, false )
  // A label of a wrong encapsulation type is none: what was programmed with the one before is
  // deleted.
  VEX_HANDLED_TUNABLE( 10, unprogramUnusableLabel, bool, false )
  VEX_ATTRIBUTES( tunnelIdHwTunnelId, segmentStatus, intfVlanTunnel, tunnelIntfVlanSet,
                  intfTunnelVlanSet, intfVlanTunnelLabel, esiStatus, unprogrammedEsi,
                  reprogramChangedEsi, unprogramUnusableLabel )

  // Follows the segments, and hears of the local labels.
  class VexEvpnStatus : public Vex::MirrorReactor< Evpn::EvpnStatus::ethernetSegmentStatusEntities,
                                                   segmentStatusReactors > {
  public:
    using MirrorReactor::MirrorReactor;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
  };

  EvpnFloodingEsiSm( Out< KezHelper::EvpnFloodingSmHelper > floodingHelper,
                     Out< Loom::TaskScheduler > scheduler,
                     In< EvpnLagMemberInfo > evpnLagMemberInfo, In< Evpn::EvpnStatus > evpnStatus,
                     In< TunnelIdToHwTunnelIdMapping > tunnelIdHwTunnelId );
  // Takes what the constructor takes.
  template< class... Arguments >
  static Vex::Ptr< EvpnFloodingEsiSm > EvpnFloodingEsiSmIs( const Arguments &... arguments ) {
    return Vex::makePtr< EvpnFloodingEsiSm >( arguments... );
  }

  void handleInitialized() override;
  void handleLocalEsiLabel( Wire::IntfId intfId );
  void handleLagPort( Wire::IntfId lagIntfId ) override;
  void handleTunnelIdMapping( const TunnelId & tunnelId );
  void vex_handleSegmentStatus( VexSegmentStatus & reactor ) { reactor.handleSegmentStatus(); }
  void doReviewUnprogrammed() override;
  void explain( const Subject & subject, Explanation & out ) const override;
  void addMissing( Missing & out ) const override;
  void check( Findings & out ) const override;
  void addAuditParts( KezHelper::AuditParts & out ) override;

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
  size_t parked() const override { return unprogrammedEsis(); }
  void reprogramChangedEsiChanged() { tunableChanged( reprogramChangedEsi() ); }
  void unprogramUnusableLabelChanged() { tunableChanged( unprogramUnusableLabel() ); }
  void tunableChanged( bool follows );
  // Of an interface; null for none.
  template< class Vlans > void processVlans( Wire::IntfId intfId, const Vlans & vlans ) {
    if ( vlans ) {
      for ( const auto vlanId : vlans->vlanId() ) {
        processIntfVlan( intfId, vlanId );
      }
    }
  }
  void deleteTriple( const IntfVlanKey & key, TunnelId tunnelId );
  void makeRoomForPairs();

  using Decision = EsiDecision;
  using Lack = Decision::Lack;
  Decision decide( const IntfVlanKey & key ) const { return decideEsi( *evpnStatus(), key ); }
  using PortLack = EsiPortLack;
  PortLack portLackOf( Wire::IntfId intfId, bool hwTunnelIdPublished ) const {
    return esiPortLack( *evpnStatus(), intfId, hwTunnelIdPublished );
  }
  // What a pair that has a label asks for on each of its ports; the ids unless something lacks.
  struct Asked {
    TunnelId tunnelId;
    PortLack lack;
    EsiIds ids;
  };
  Asked askedFor( const IntfVlanKey & key ) const;
  void programEsiPort( const IntfVlanKey & key, Wire::IntfId phyIntfId, Wire::MplsLabel label,
                       const Asked & asked );
  EsiIds idsAskedFor( const IntfVlanKey & key ) const;
  // The ports that hardware has with other ids than the inputs say: other ones in any way, or
  // another hardware tunnel id, which none is too.
  enum class Changed { any, hwTunnelId };
  std::vector< Wire::IntfId > changedPorts( const IntfVlanKey & key, Changed changed ) const;
  // And those of them that nothing is due for. An unusable label leaves a local label in place.
  std::vector< Wire::IntfId > laggingPorts( const IntfVlanKey & key ) const;
  void dropPortsOfOtherHwTunnelId( const IntfVlanKey & key );
  void deleteEsiData( const IntfVlanKey & key, Wire::IntfId port );
  std::optional< KezHelper::EsiData > dataOnRecord( const KezHelper::PortVlanKey & key ) const;
  // On each port of the interface.
  std::optional< KezHelper::EsiData > dataAskedFor( const IntfVlanKey & pair ) const;
  void explainPair( const IntfVlanKey & key, Explanation & out ) const;
  void explainPairsOf( const Subject & subject, Explanation & out ) const;
  bool addWait( const IntfVlanKey & key, Missing & out ) const;
  void explainLag( const IntfVlanKey & key, Explanation & out ) const;
  std::optional< TunnelIdToHwTunnelId > mapped( TunnelId tunnelId ) const {
    return tunnelIdHwTunnelId()->tunnelIdToHwTunnelIdTable().safeRecord( tunnelId );
  }
  bool localEsiLabelPublished( Wire::IntfId intfId ) const {
    return Kez::localEsiLabelPublished( *evpnStatus(), intfId );
  }

  Parking< IntfVlanKey > parking_;
  PortStatus< EsiStatus > ports_;
  VexEvpnStatus evpnStatusReactor_;
  VexTunnelIdHwTunnelId tunnelIdHwTunnelIdReactor_;
};

Vex::Ptr< EvpnFloodingEsiSm > evpnFloodingEsiSmFactory(
    Out< KezHelper::EvpnFloodingSmHelper > floodingHelper, Out< Loom::TaskScheduler > scheduler,
    In< EvpnLagMemberInfo > evpnLagMemberInfo, In< Evpn::EvpnStatus > evpnStatus,
    In< TunnelIdToHwTunnelIdMapping > tunnelIdHwTunnelId );

} // namespace Kez
