// The door through which the flooding machines program hardware: VLANs, mappings of a VLAN to a
// dot1q tag on a port, split-horizon (ESI) data of a port, and ports that are not designated
// forwarder. A platform derives from this class; what it leaves out refuses.
//
// The parent interface is the one that configuration names, a LAG or a port; the member
// interface is the port that is programmed, one of the LAG's or the parent itself. A create
// operation answers `notProgrammed` when it is to be tried again and `invalidHwId` when the
// hardware tunnel id that it was given is not valid; a deletion cannot fail.
#pragma once

#include "KezEvpn/KezEvpn.h"
#include "KezHelper/HwTable.h"
#include "KezHelper/KezBaseHelper.h"
#include "Wire/MplsLabel.h"

namespace KezHelper {

// What is programmed on a port for a VLAN, by the interface that it was programmed for: a port
// that moves between two LAGs can be there for both.
struct PortVlanKey {
  Wire::IntfId parentIntfId;
  Wire::IntfId memberIntfId;
  Bridging::VlanId vlanId = 1;
  VEX_VALUE( PortVlanKey, "KezHelper::PortVlanKey", parentIntfId, memberIntfId, vlanId )
};

// What a port of a segment has for floods to its designated forwarder.
struct EsiData {
  Tunnel::TunnelTable::TunnelId tunnelId;
  Kez::HwTunnelId hwTunnelId;
  Wire::MplsLabel dfEsiLabel;
  Wire::MplsLabel localEsiLabel;
  VEX_VALUE( EsiData, "KezHelper::EsiData", tunnelId, hwTunnelId, dfEsiLabel, localEsiLabel )
};

// The tables that can be asked, null for one that cannot.
struct EvpnFloodingInventory {
  const HwTable< Bridging::VlanId, Bridging::VlanIdOrNone > * vlan = nullptr; // to its tag
  const HwTable< PortVlanKey, Bridging::VlanIdOrNone > * dot1qMapping = nullptr;
  const HwTable< PortVlanKey, Vex::NoValue > * nonDfPort = nullptr;
  const HwTable< PortVlanKey, EsiData > * esiData = nullptr;
};

class EvpnFloodingSmHelper : public Kez::KezBaseHelper {
  VEX_ENTITY( EvpnFloodingSmHelper, "KezHelper::EvpnFloodingSmHelper", Kez::KezBaseHelper )
  // Hardware takes createEsiData over an entry that exists, as an update.
  VEX_ATTRIBUTE( 1, updateSupportedOnCreateEsiData, bool )
  // The CPU interface is to be programmed like a port.
  VEX_ATTRIBUTE( 2, programCpuIntf, bool )
  VEX_ATTRIBUTES( updateSupportedOnCreateEsiData, programCpuIntf )

public:
  using KezBaseHelper::KezBaseHelper;

  // The VLAN and port operations answer `notProgrammed`, or do nothing, where a platform leaves
  // them out.
  virtual Kez::HwProgrammingStatus createVlan( Bridging::VlanId vlanId,
                                               Bridging::VlanIdOrNone dot1q );
  virtual void deleteVlan( Bridging::VlanId vlanId, Bridging::VlanIdOrNone dot1q );
  virtual Kez::HwProgrammingStatus createNonDfPort( Wire::IntfId parentIntfId, Wire::IntfId intfId,
                                                    Bridging::VlanId vlanId );
  virtual void deleteNonDfPort( Wire::IntfId parentIntfId, Wire::IntfId intfId,
                                Bridging::VlanId vlanId );

  // These are refused as unimplemented.
  virtual Kez::HwProgrammingStatus createVlanToDot1qMapping( Wire::IntfId parentIntfId,
                                                             Wire::IntfId memberIntfId,
                                                             Bridging::VlanId vlanId,
                                                             Bridging::VlanIdOrNone dot1q );
  virtual void deleteVlanToDot1qMapping( Wire::IntfId parentIntfId, Wire::IntfId memberIntfId,
                                         Bridging::VlanId vlanId, Bridging::VlanIdOrNone dot1q );
  // `dfEsiLabel` is what the designated forwarder advertised, `localEsiLabel` what this switch
  // did.
  virtual Kez::HwProgrammingStatus
  createEsiData( Wire::IntfId parentIntfId, Wire::IntfId memberIntfId, Bridging::VlanId vlanId,
                 const Tunnel::TunnelTable::TunnelId & tid, const Kez::HwTunnelId & hwTid,
                 Wire::MplsLabel dfEsiLabel, Wire::MplsLabel localEsiLabel );
  virtual void deleteEsiData( Wire::IntfId parentIntfId, Wire::IntfId memberIntfId,
                              Bridging::VlanId vlanId, const Tunnel::TunnelTable::TunnelId & tid,
                              const Kez::HwTunnelId & hwTid );

  // What hardware has, which outlives nothing but the helper. Without it hardware is to be empty
  // when the machines start.
  virtual EvpnFloodingInventory inventory() const { return {}; }
};

} // namespace KezHelper
