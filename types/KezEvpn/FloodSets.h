// How the MPLS destinations of flood sets travel to hardware and back: the values, the published
// entities with their factories, and the indexes that machines keep as private state.
//
// Destinations that are reached alike share a path, a MplsFloodSetVia, which has one hardware id.
// A configuration is the key of its own status: change any field of it, and it is another one.
#pragma once

#include "Bridging/MacVlanPair.h"
#include "KezEvpn/KezEvpn.h"
#include "KezEvpn/Refusal.h"
#include "Vex/Interned.h"

#include <vector>

namespace Kez {

// --- Values

// A destination of the flood set of a VLAN and a MAC address.
struct VlanMacDest {
  Bridging::VlanId vlanId;
  Wire::EthAddr macAddr;
  L2Rib::Dest dest;
  VEX_VALUE( VlanMacDest, "Kez::VlanMacDest", vlanId, macAddr, dest )

  Bridging::MacVlanPair macVlanPair() const { return { macAddr, vlanId }; }
};
static_assert( sizeof( VlanMacDest ) == 32 );

// A path: a tunnel and the label under which frames go over it, in a VLAN of its own where the
// tunnel's type asks for that.
struct MplsFloodSetVia {
  Tunnel::TunnelTable::TunnelId tunnelId;
  Wire::MplsLabel label;
  Bridging::VlanIdOrNone vlanId;
  VEX_VALUE( MplsFloodSetVia, "Kez::MplsFloodSetVia", tunnelId, label, vlanId )
};

// What hardware gave for a path.
struct MplsDestHwInfo {
  uint64_t hwIdForTunnelProgramming = 0; // 0 for none
  Wire::IntfId l2IntfId;
  VEX_VALUE( MplsDestHwInfo, "Kez::MplsDestHwInfo", hwIdForTunnelProgramming, l2IntfId )
};

// A destination of a flood set as hardware is configured with it.
struct MplsDestConfig {
  Tunnel::TunnelTable::TunnelId tunnelId;
  Wire::MplsLabel label;
  NarrowHwTunnelId hwTunnelId;
  uint64_t hwIdForTunnelProgramming = 0;
  Wire::IntfId l2IntfId;
  VEX_VALUE( MplsDestConfig, "Kez::MplsDestConfig", tunnelId, label, hwTunnelId,
             hwIdForTunnelProgramming, l2IntfId )
};
static_assert( sizeof( MplsDestConfig ) == 32 );

// A configuration in one flood set.
struct FloodSetMplsDestConfig {
  Bridging::MacVlanPair macVlanPair;
  MplsDestConfig config;
  VEX_VALUE( FloodSetMplsDestConfig, "Kez::FloodSetMplsDestConfig", macVlanPair, config )
};
static_assert( sizeof( FloodSetMplsDestConfig ) == 40 );

// The path over a tunnel with a label, in a VLAN. Tunnels of type 14 have a path a VLAN, and
// raise Vex::RangeError for a VLAN above 4094; any other tunnel's is the same for all VLANs.
MplsFloodSetVia mplsFloodSetVia( Tunnel::TunnelTable::TunnelId tunnelId, Wire::MplsLabel label,
                                 Bridging::VlanId vlanId );
// Asserts that the destination is MPLS.
MplsFloodSetVia mplsFloodSetVia( const VlanMacDest & dest );

// --- Published status

// What hardware is configured with for a flood set.
class VlanFloodSetConfig : public MachineState {
  VEX_ENTITY( VlanFloodSetConfig, "Kez::VlanFloodSetConfig" )
  VEX_KEY( VlanFloodSetConfig, macVlanPair, Bridging::MacVlanPair )
  VEX_SET( 1, mplsDestConfig, MplsDestConfig )
  VEX_ATTRIBUTES( mplsDestConfig )
};
Vex::Ptr< VlanFloodSetConfig > vlanFloodSetConfigFactory( const Bridging::MacVlanPair & key );

// A flood set has an entry exactly while it has a configuration.
class EvpnVlanFloodSetHwConfig : public MachineState {
  VEX_ENTITY( EvpnVlanFloodSetHwConfig, "Kez::EvpnVlanFloodSetHwConfig" )
  VEX_ENTITIES( 1, config, VlanFloodSetConfig )
  VEX_ATTRIBUTES( config )
};
Vex::Ptr< EvpnVlanFloodSetHwConfig > evpnVlanFloodSetHwConfigFactory();

// Written by the hardware side, as the one below.
class VlanFloodSetStatus : public Vex::Entity {
  VEX_ENTITY( VlanFloodSetStatus, "Kez::VlanFloodSetStatus" )
  VEX_KEY( VlanFloodSetStatus, macVlanPair, Bridging::MacVlanPair )
  VEX_MAP( 1, mplsDestStatus, MplsDestConfig, HwProgrammingStatus )
  VEX_ATTRIBUTES( mplsDestStatus )
};
Vex::Ptr< VlanFloodSetStatus > vlanFloodSetStatusFactory( const Bridging::MacVlanPair & key );

// What hardware has of all flood sets.
class EvpnVlanFloodSetHwStatus : public Vex::Entity {
  VEX_ENTITY( EvpnVlanFloodSetHwStatus, "Kez::EvpnVlanFloodSetHwStatus" )
  VEX_ENTITIES( 1, status, VlanFloodSetStatus )
  // Of configurations that hardware tries again by itself; empty where it does not say.
  VEX_MAP( 2, refusal, FloodSetMplsDestConfig, Refusal )
  VEX_ATTRIBUTES( status, refusal )
};
Vex::Ptr< EvpnVlanFloodSetHwStatus > evpnVlanFloodSetHwStatusFactory();

// What hardware gave for each path.
class HwInfoMapping : public MachineState {
  VEX_ENTITY( HwInfoMapping, "Kez::HwInfoMapping" )
  VEX_MAP( 1, mapping, MplsFloodSetVia, MplsDestHwInfo )
  VEX_ATTRIBUTES( mapping )
};
Vex::Ptr< HwInfoMapping > hwInfoMappingFactory();

// --- Private state

// The paths over a tunnel.
class TunnelIdToMplsFloodSetVia : public MachineState {
  VEX_ENTITY( TunnelIdToMplsFloodSetVia, "Kez::TunnelIdToMplsFloodSetVia" )
  VEX_KEY( TunnelIdToMplsFloodSetVia, tunnelId, Tunnel::TunnelTable::TunnelId )
  VEX_SET( 1, mplsFloodSetViaSet, MplsFloodSetVia )
  VEX_ATTRIBUTES( mplsFloodSetViaSet )
};
Vex::Ptr< TunnelIdToMplsFloodSetVia >
tunnelIdToMplsFloodSetViaFactory( Tunnel::TunnelTable::TunnelId tunnelId );

// The flood sets in which hardware has the path programmed.
class MplsFloodSetViaToFloodSetStatus : public MachineState {
  VEX_ENTITY( MplsFloodSetViaToFloodSetStatus, "Kez::MplsFloodSetViaToFloodSetStatus" )
  VEX_KEY( MplsFloodSetViaToFloodSetStatus, mplsFloodSetVia, MplsFloodSetVia )
  // Each with the number of a programmed configuration in `configs_`; 0 when it has others alone.
  VEX_NOTED_SET( 1, status, Bridging::MacVlanPair, uint32_t )
  // How many of a flood set's programmed configurations lead over the path beyond the first.
  VEX_COUNTER( 2, furtherConfig, Bridging::MacVlanPair )
  // Those that no flood set has a number of.
  VEX_SET( 3, furtherProgrammed, FloodSetMplsDestConfig )
  VEX_ATTRIBUTES( status, furtherConfig, furtherProgrammed )

  // Whether it was told of the configuration that hardware has it programmed.
  bool programmedHas( const FloodSetMplsDestConfig & floodSetConfig ) const;
  void programmedIs( const FloodSetMplsDestConfig & floodSetConfig, bool programmed );
  std::vector< FloodSetMplsDestConfig > programmed() const;

private:
  void note( const FloodSetMplsDestConfig & floodSetConfig );
  void forget( const FloodSetMplsDestConfig & floodSetConfig );

  Vex::Interned< MplsDestConfig > configs_;
};
Vex::Ptr< MplsFloodSetViaToFloodSetStatus >
mplsFloodSetViaToFloodSetStatusFactory( const MplsFloodSetVia & via );

} // namespace Kez
