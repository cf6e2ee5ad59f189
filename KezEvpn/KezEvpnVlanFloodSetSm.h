// Publishes, for every MPLS destination of a flood set whose path has a hardware id, the complete
// configuration that hardware programs it with.
//
// Reads the flood sets, TunnelIdToHwTunnelIdMapping and HwInfoMapping; writes
// EvpnVlanFloodSetHwConfig. What is published is a function of the three: a destination whose
// path is not in HwInfoMapping has no configuration, one whose tunnel has no hardware tunnel id
// has one without. An update removes the old configuration and adds the new one. Destinations of
// a flood set that come to the same configuration share it, and it goes with the last of them.
// Between events `tunnelToFloodSetEntry` and `hwInfoMapKeyToFloodSetEntry` are what the flood sets
// say, and `mplsDestHwConfig` is of destinations in these.
// Starting, the machine publishes everything anew. Hardware may answer within the writes; what it
// made of a configuration is traced, no more.
#pragma once

#include "KezEvpn/frame/MplsFloodSetSm.h"

namespace Kez {

class EvpnVlanFloodSetSm : public MplsFloodSetSm {
public:
  class VexHwInfoMapping : public Vex::ReactorOf< EvpnVlanFloodSetSm, HwInfoMapping > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
  };

  // The configuration of each destination that has one.
  class MplsDestHwConfigs {
  public:
    using Key = VlanMacDest;
    using Value = MplsDestConfig;
    explicit MplsDestHwConfigs( const EvpnVlanFloodSetSm & sm ) : sm_( sm ) {}

    size_t size() const { return sm_.configured_; }
    bool has( const VlanMacDest & vmd ) const { return find( vmd ).has_value(); }
    // The default one where there is none.
    MplsDestConfig get( const VlanMacDest & vmd ) const {
      return find( vmd ).value_or( MplsDestConfig() );
    }
    DestsOverPaths range() const;

  private:
    std::optional< MplsDestConfig > find( const VlanMacDest & vmd ) const;

    const EvpnVlanFloodSetSm & sm_;
  };

  VEX_ENTITY( EvpnVlanFloodSetSm, "Kez::EvpnVlanFloodSetSm", MplsFloodSetSm )
  VEX_INPUT( 1, hwInfoMapping, HwInfoMapping )
  VEX_OUTPUT( 2, vlanFloodSetHwConfig, EvpnVlanFloodSetHwConfig )
  VEX_COMPUTED_MAP( 3, mplsDestHwConfig, MplsDestHwConfigs )
  VEX_ENTITIES( 4, tunnelToFloodSetEntry, TunnelVlanMacDestSet )
  VEX_ENTITIES( 5, hwInfoMapKeyToFloodSetEntry, MplsFloodSetViaToVlanMacDestSet )
  // How many destinations of a flood set have a configuration in `mplsDestHwConfig` beyond the
  // one that it is published for: all that have it, while it is about to be published.
  VEX_COUNTER( 6, furtherDest, FloodSetMplsDestConfig )
  VEX_ATTRIBUTES( hwInfoMapping, vlanFloodSetHwConfig, mplsDestHwConfig, tunnelToFloodSetEntry,
                  hwInfoMapKeyToFloodSetEntry, furtherDest )

  EvpnVlanFloodSetSm( In< L2Rib::FloodSetOutput > floodSetOutput,
                      In< TunnelIdToHwTunnelIdMapping > hwTunnelIdMapping,
                      In< HwInfoMapping > hwInfoMapping,
                      Out< EvpnVlanFloodSetHwConfig > vlanFloodSetHwConfig,
                      In< EvpnVlanFloodSetHwStatus > vlanFloodSetHwStatus );
  // Takes what the constructor takes.
  template< class... Arguments >
  static Vex::Ptr< EvpnVlanFloodSetSm > EvpnVlanFloodSetSmIs( const Arguments &... arguments ) {
    return Vex::makePtr< EvpnVlanFloodSetSm >( arguments... );
  }

  void handleInitialized() override;
  void handleHwTunnelIdMapping( Tunnel::TunnelTable::TunnelId tunnelId ) override;
  void handleHwInfoMapping( const MplsFloodSetVia & via );
  void handleMplsDestStatus( const Bridging::MacVlanPair & macVlanPair,
                             const MplsDestConfig & config ) override;

  void processMplsDest( Bridging::VlanId vlanId, const Wire::EthAddr & mac,
                        const L2Rib::Dest & dest ) override;
  // Whether the destination is in its flood set.
  bool updateInternalMapping( const VlanMacDest & vmd );
  void processMplsDestConfig( const VlanMacDest & vmd );
  MplsDestConfig createMplsDestConfig( const VlanMacDest & vmd ) const;
  void addOrUpdateMplsDestHwConfig( const VlanMacDest & vmd );
  void deleteMplsDestHwConfig( const VlanMacDest & vmd );
  void explain( const Subject & subject, Explanation & out ) const override;
  void addMissing( Missing & out ) const override;
  void check( Findings & out ) const override;

private:
  // Where a destination stands.
  enum class State {
    withoutTunnel, // which it would lead over
    withoutHwId,   // of its path
    unanswered,
    refused,
    withoutHwTunnelId, // but programmed
    programmed
  };
  State stateOf( const VlanMacDest & vmd ) const;
  Refusal refusalOf( const VlanMacDest & vmd ) const;
  void explainDest( const VlanMacDest & vmd, Explanation & out ) const;
  void addDest( const VlanMacDest & vmd, Missing & out ) const;
  // Of destinations, how many stand where.
  struct Tally {
    size_t programmed = 0;
    size_t withoutHwTunnelId = 0; // programmed all the same
    size_t refused = 0;
    Vex::String why; // of one of them
    size_t unanswered = 0;
    size_t withoutHwId = 0;
    size_t withoutTunnel = 0;
  };
  void count( const VlanMacDest & vmd, Tally & tally ) const;
  void checkConfig( const VlanMacDest & vmd, const MplsFloodSetVia & via, Findings & out ) const;

  void makeUpForZombieMark() override;
  void clearMappings();
  void processMplsDestConfig( const VlanMacDest & vmd, bool inFloodSet );
  void addToPath( const MplsFloodSetVia & via, const VlanMacDest & vmd );
  void takeFromPath( const MplsFloodSetVia & via, const VlanMacDest & vmd );
  void publish( const FloodSetMplsDestConfig & floodSetConfig );
  void withdraw( const FloodSetMplsDestConfig & floodSetConfig );
  void furtherDestDrop( const FloodSetMplsDestConfig & floodSetConfig );

  VexHwInfoMapping hwInfoMappingReactor_;
  size_t configured_ = 0; // destinations
};

Vex::Ptr< EvpnVlanFloodSetSm > evpnVlanFloodSetSmFactory(
    In< L2Rib::FloodSetOutput > floodSetOutput, In< TunnelIdToHwTunnelIdMapping > hwTunnelIdMapping,
    In< HwInfoMapping > hwInfoMapping, Out< EvpnVlanFloodSetHwConfig > vlanFloodSetHwConfig,
    In< EvpnVlanFloodSetHwStatus > vlanFloodSetHwStatus );

} // namespace Kez
