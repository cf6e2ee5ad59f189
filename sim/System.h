// The agent as the simulation sees it: its inputs, its outputs, the simulated switch, and the
// machines, for the state that they keep. Valid until the agent restarts.
#pragma once

#include "Bridging/VlanConfig.h"
#include "Evpn/EvpnStatus.h"
#include "Kez/LagConfig.h"
#include "KezEvpn/KezEvpnEsiFilteringDecapSm.h"
#include "KezEvpn/KezEvpnFloodFilterSm.h"
#include "KezEvpn/KezEvpnFloodSetFecSm.h"
#include "KezEvpn/KezEvpnFloodingDot1qSm.h"
#include "KezEvpn/KezEvpnFloodingEsiSm.h"
#include "KezEvpn/KezEvpnHwTunnelIdSm.h"
#include "KezEvpn/KezEvpnVlanFloodSetFilterSm.h"
#include "KezEvpn/KezEvpnVlanFloodSetSm.h"
#include "KezEvpn/KezEvpnVlanMembershipSm.h"
#include "KezEvpn/KezMacAddrFecRequestSm.h"
#include "KezHelper/Audit.h"
#include "KezHelper/Later.h"
#include "agent/Wiring.h"
#include "switch/SimulatedSwitch.h"
#include "switch/SwitchFloodSets.h"
#include "switch/SwitchMacs.h"

namespace Sim {

struct System {
  explicit System( const Agent::Wiring & wiring );

  const Agent::Wiring & wiring;

  const Vex::Ptr< Kez::LagCreatorConfigDir > lagConfigDir;
  const Vex::Ptr< Bridging::Config > bridgingConfig;
  const Vex::Ptr< Bridging::VlanStatusDir > vlanStatusDir;
  const Vex::Ptr< Evpn::EvpnStatus > evpnStatus;
  const Vex::Ptr< Evpn::MplsConfig > evpnMplsConfig;
  const Vex::Ptr< L2Rib::FloodSetOutput > floodSetOutput;
  const Vex::Ptr< L2Rib::HostOutput > hostOutput;
  const Vex::Ptr< Kez::FeatureToggles > toggles;
  const Vex::Ptr< Mpls::LfibStatus > lfibStatus;
  const Vex::Ptr< Mpls::LfibTrackingStatus > lfibTrackingStatus;

  const Vex::Ptr< Kez::EvpnLagMemberInfo > evpnLagMemberInfo;
  const Vex::Ptr< Kez::EvpnVlanStatus > evpnVlanStatus;
  const Vex::Ptr< Kez::EvpnRemoteInfo > evpnRemoteInfo;
  const Vex::Ptr< Kez::TunnelIdToHwTunnelIdMapping > tunnelIdHwTunnelId;
  const Vex::Ptr< Mpls::LfibHwStatus > lfibHwStatus;
  const Vex::Ptr< L2Rib::FloodSetOutput > mplsFloodSetOutput;
  const Vex::Ptr< Kez::FecIdToHwFecIdRequest > fecRequest;
  const Vex::Ptr< Kez::HwInfoMapping > hwInfoMapping;
  const Vex::Ptr< Kez::EvpnVlanFloodSetHwConfig > hwConfig;
  const Vex::Ptr< Kez::FecIdToHwFecIdRequest > macFecRequest;
  const Vex::Ptr< Kez::MacAddrFecStatus > macStatus;

  const Vex::Ptr< Switch::SimulatedSwitch > hardware;
  const Vex::Ptr< KezHelper::EvpnFloodingSmHelper > floodingHelper;
  const Vex::Ptr< Kez::FecIdToHwFecIdResponse > fecResponse;
  const Vex::Ptr< Kez::EvpnVlanFloodSetHwStatus > hwStatus;
  const Vex::Ptr< Switch::SwitchFloodSets > switchFloodSets;
  const Vex::Ptr< Kez::FecIdToHwFecIdResponse > macFecResponse;
  const Vex::Ptr< Kez::MacAddrHwStatus > macHwStatus;
  const Vex::Ptr< Switch::SwitchMacs > switchMacs;

  const Vex::Ptr< KezHelper::Audit > audit;
  const Vex::Ptr< KezHelper::LateCalls > lateCalls;
  const Vex::Ptr< Kez::KezEvpnVlanMembershipSm > membershipSm;
  const Vex::Ptr< Kez::EvpnFloodingDot1qSm > dot1qSm;
  const Vex::Ptr< Kez::KezEvpnFloodFilterSm > floodFilterSm;
  const Vex::Ptr< Kez::EvpnHwTunnelIdSm > hwTunnelIdSm;
  const Vex::Ptr< Kez::EvpnFloodingEsiSm > esiSm;
  const Vex::Ptr< Kez::EvpnFloodSetFecSm > fecSm;
  const Vex::Ptr< Kez::EvpnVlanFloodSetSm > floodSetSm;
  const Vex::Ptr< Kez::VlanFloodSetFilterSm > filterSm;
  const Vex::Ptr< Kez::KezMacAddrFecRequestSm > macSm;
  const Vex::Ptr< Kez::EsiFilteringDecapSm > decapSm;
};

} // namespace Sim
