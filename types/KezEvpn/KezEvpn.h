// The library's value types, its published status entities with their factories, and the set
// entities that machines keep as private state. Everything is for one thread.
#pragma once

#include "Bridging/VlanId.h"
#include "Kez/HwTunnelId.h"
#include "Kez/KezPortList.h"
#include "L2Rib/Dest.h"
#include "Tunnel/TunnelTable.h"
#include "Vex/Attributes.h"
#include "Wire/TepIntfId.h"

namespace Kez {

// --- Values

// An interface in a VLAN.
struct IntfVlanKey {
  Wire::IntfId intfId;
  Bridging::VlanId vlanId = 1;
  VEX_VALUE( IntfVlanKey, "Kez::IntfVlanKey", intfId, vlanId )
};

// An interface and a tunnel.
struct IntfTunnelKey {
  Wire::IntfId intfId;
  Tunnel::TunnelTable::TunnelId tunnelId;
  VEX_VALUE( IntfTunnelKey, "Kez::IntfTunnelKey", intfId, tunnelId )
};

// An interface in a VLAN, and a tunnel.
struct IntfVlanTunnelKey {
  Wire::IntfId intfId;
  Bridging::VlanId vlanId = 1;
  Tunnel::TunnelTable::TunnelId tunnelId;
  VEX_VALUE( IntfVlanTunnelKey, "Kez::IntfVlanTunnelKey", intfId, vlanId, tunnelId )
};

// The hardware tunnel id that a tunnel has.
struct TunnelIdToHwTunnelId {
  Tunnel::TunnelTable::TunnelId key;
  HwTunnelId hwTunnelId;
  VEX_VALUE( TunnelIdToHwTunnelId, "Kez::TunnelIdToHwTunnelId", key, hwTunnelId )

  // "[<key>] <hwTunnelId>", for diagnostics of the table that keeps these.
  Vex::String rookString() const;
};

// What a port's ESI data name that may change under them.
struct EsiIds {
  HwTunnelId hwTunnelId;
  Wire::MplsLabel localEsiLabel;
  VEX_VALUE( EsiIds, "Kez::EsiIds", hwTunnelId, localEsiLabel )
};

// A port and what its ESI data name.
struct EsiPort {
  Wire::IntfId intfId;
  EsiIds ids;
  VEX_VALUE( EsiPort, "Kez::EsiPort", intfId, ids )
};

// The outcome of a hardware programming call. `notProgrammed` is a transient failure, to be
// tried again; `invalidHwId` says that the hardware tunnel id passed was not valid.
VEX_ENUM( HwProgrammingStatus, "Kez::HwProgrammingStatus", programmed, notProgrammed, invalidHwId )

// The tunnel that an SR-TE policy or dynamic tunnel interface stands for. Raises Vex::RangeError
// for an interface without a tunnel id and for a dynamic tunnel's above TunnelId::maxValue.
Tunnel::TunnelTable::TunnelId srTeOrDynamicTunnelIntfIdToTunnelId( Wire::IntfId intfId );

// The tunnel that an MPLS destination is reached through: its interface's, for an SR-TE policy,
// otherwise the one that it names. Asserts that the destination is MPLS.
Tunnel::TunnelTable::TunnelId destMplsTunnelId( const L2Rib::Dest & dest );

using Wire::isLag;

// What a machine writes, published or private: reflection reads it and does not write it.
class MachineState : public Vex::Entity {
public:
  static constexpr Vex::Access vexAccess = Vex::Access::readOnly;
};

// --- Published status

// The interfaces that are members of a VLAN for EVPN.
class EvpnVlanMemberInfo : public MachineState {
  VEX_ENTITY( EvpnVlanMemberInfo, "Kez::EvpnVlanMemberInfo" )
  VEX_KEY( EvpnVlanMemberInfo, vlanId, Bridging::VlanId )
  VEX_SET( 1, member, Wire::IntfId )
  VEX_ATTRIBUTES( member )
};

// The member interfaces of every VLAN that has any.
class EvpnVlanStatus : public MachineState {
  VEX_ENTITY( EvpnVlanStatus, "Kez::EvpnVlanStatus" )
  VEX_ENTITIES( 1, vlanStatus, EvpnVlanMemberInfo )
  VEX_ATTRIBUTES( vlanStatus )
};
Vex::Ptr< EvpnVlanStatus > evpnVlanStatusFactory();

// The member ports of every LAG that has any.
class EvpnLagMemberInfo : public MachineState {
  VEX_ENTITY( EvpnLagMemberInfo, "Kez::EvpnLagMemberInfo" )
  VEX_MAP( 1, lagToPort, Wire::IntfId, KezPortList )
  VEX_ATTRIBUTES( lagToPort )
};
Vex::Ptr< EvpnLagMemberInfo > evpnLagMemberInfoFactory();

// How many flood-set destinations use each remote tunnel. A count that reaches 0 stays until its
// writer deletes it; one that falls below 0 wraps.
class EvpnRemoteInfo : public MachineState {
  VEX_ENTITY( EvpnRemoteInfo, "Kez::EvpnRemoteInfo" )
  VEX_COUNTER( 1, remoteTunnelId, Tunnel::TunnelTable::TunnelId )
  VEX_ATTRIBUTES( remoteTunnelId )
};
Vex::Ptr< EvpnRemoteInfo > evpnRemoteInfoFactory();

// --- Private state

// The VLANs of an interface.
class IntfVlanSet : public MachineState {
  VEX_ENTITY( IntfVlanSet, "Kez::IntfVlanSet" )
  VEX_KEY( IntfVlanSet, intfId, Wire::IntfId )
  VEX_SET( 1, vlanId, Bridging::VlanId )
  VEX_ATTRIBUTES( vlanId )
};

// The interfaces of a VLAN.
class VlanIntfSet : public MachineState {
  VEX_ENTITY( VlanIntfSet, "Kez::VlanIntfSet" )
  VEX_KEY( VlanIntfSet, vlanId, Bridging::VlanId )
  VEX_SET( 1, intfId, Wire::IntfId )
  VEX_ATTRIBUTES( intfId )
};

// The tunnels of an interface.
class IntfTunnelSet : public MachineState {
  VEX_ENTITY( IntfTunnelSet, "Kez::IntfTunnelSet" )
  VEX_KEY( IntfTunnelSet, intfId, Wire::IntfId )
  VEX_SET( 1, tunnelId, Tunnel::TunnelTable::TunnelId )
  VEX_ATTRIBUTES( tunnelId )
};

// The pairs of an interface and a VLAN whose traffic goes over a tunnel.
class TunnelIntfVlanSet : public MachineState {
  VEX_ENTITY( TunnelIntfVlanSet, "Kez::TunnelIntfVlanSet" )
  VEX_KEY( TunnelIntfVlanSet, tunnelId, Tunnel::TunnelTable::TunnelId )
  VEX_SET( 1, intfVlan, IntfVlanKey )
  VEX_ATTRIBUTES( intfVlan )
};

// The VLANs of an interface whose traffic goes over a tunnel.
class IntfTunnelVlanSet : public MachineState {
  VEX_ENTITY( IntfTunnelVlanSet, "Kez::IntfTunnelVlanSet" )
  VEX_KEY( IntfTunnelVlanSet, intfTunnel, IntfTunnelKey )
  VEX_SET( 1, vlanId, Bridging::VlanId )
  VEX_ATTRIBUTES( vlanId )
};

// Tunnels that hold hardware tunnel ids of one type.
class TunnelIdSet : public MachineState {
  VEX_ENTITY( TunnelIdSet, "Kez::TunnelIdSet" )
  VEX_KEY( TunnelIdSet, hwTunnelIdType, HwTunnelIdType )
  VEX_SET( 1, tunnelId, Tunnel::TunnelTable::TunnelId )
  VEX_ATTRIBUTES( tunnelId )
};

// The Ethernet segments that use a tunnel, and those of them that have the shared ESI label
// configured. No `intfId`, and no segment uses the tunnel.
class TunnelInfo : public MachineState {
  VEX_ENTITY( TunnelInfo, "Kez::TunnelInfo" )
  VEX_KEY( TunnelInfo, tunnelId, Tunnel::TunnelTable::TunnelId )
  VEX_SET( 1, intfId, Wire::IntfId )
  VEX_SET( 2, sharedEsiLabelConfiguredIntf, Wire::IntfId )
  VEX_ATTRIBUTES( intfId, sharedEsiLabelConfiguredIntf )
};

// The hardware state of an interface and VLAN, by port of the interface.
class IntfVlanStatus : public MachineState {
  VEX_ENTITY( IntfVlanStatus, "Kez::IntfVlanStatus" )
  VEX_KEY( IntfVlanStatus, intfVlan, IntfVlanKey )
  VEX_SET( 1, programmed, Wire::IntfId )
  VEX_SET( 2, unprogrammed, Wire::IntfId )   // programming failed, and is to be tried again
  VEX_SET( 3, forceReprogram, Wire::IntfId ) // to be programmed again though in `programmed`
  VEX_ATTRIBUTES( programmed, unprogrammed, forceReprogram )

public:
  // What is known of a programmed port.
  using Port = Wire::IntfId;
  void portIs( Port port ) { programmedIs( port ); }
  void portDel( Wire::IntfId port ) { programmedDel( port ); }
};

// The same of ESI data, and what each programmed port was programmed with.
class EsiStatus : public IntfVlanStatus {
  VEX_ENTITY( EsiStatus, "Kez::EsiStatus", IntfVlanStatus )
  VEX_MAP( 4, ids, Wire::IntfId, EsiIds )
  VEX_ATTRIBUTES( ids )

public:
  using IntfVlanStatus::IntfVlanStatus;
  using Port = EsiPort;
  void portIs( const Port & port ) {
    idsIs( port.intfId, port.ids );
    programmedIs( port.intfId );
  }
  void portDel( Wire::IntfId port ) {
    idsDel( port );
    programmedDel( port );
  }
};

} // namespace Kez
