// All twelve machines over one set of entities, made and started in the order in which they have to
// stand. A host makes the entities, and keeps the machines for as long as they are to live.
#pragma once

#include "Bridging/VlanConfig.h"
#include "Evpn/EvpnStatus.h"
#include "Kez/KezCommonSmData.h"
#include "Kez/LagConfig.h"
#include "Kez/Toggles.h"
#include "KezEvpn/FecRequests.h"
#include "KezEvpn/FloodSets.h"
#include "KezEvpn/KezEvpn.h"
#include "KezEvpn/MacFecs.h"
#include "KezEvpn/TunnelIdToHwTunnelIdMapping.h"
#include "KezEvpn/frame/StateMachine.h"
#include "KezHelper/EsiFilteringDecapHelper.h"
#include "KezHelper/EvpnFloodingSmHelper.h"
#include "KezHelper/EvpnHwTunnelIdSmHelper.h"
#include "L2Rib/FloodSet.h"
#include "L2Rib/HostOutput.h"
#include "Loom/TaskScheduler.h"
#include "Mpls/LfibStatus.h"

#include <functional>

namespace Kez {

// What the machines read, write and call. All of it stands when they start.
struct MachineEntities {
  // inputs
  Vex::Ptr< KezCommonSmData > acsd;
  Vex::Ptr< LagCreatorConfigDir > lagConfigDir;
  Vex::Ptr< Bridging::Config > bridgingConfig;
  Vex::Ptr< Bridging::VlanStatusDir > vlanStatusDir;
  Vex::Ptr< Evpn::EvpnStatus > evpnStatus;
  Vex::Ptr< Evpn::MplsConfig > evpnMplsConfig;
  Vex::Ptr< L2Rib::FloodSetOutput > floodSetOutput;
  Vex::Ptr< L2Rib::HostOutput > hostOutput;
  Vex::Ptr< FeatureToggles > toggles;
  Vex::Ptr< Mpls::LfibStatus > lfibStatus;
  Vex::Ptr< Mpls::LfibTrackingStatus > lfibTrackingStatus;
  // outputs
  Vex::Ptr< EvpnLagMemberInfo > evpnLagMemberInfo;
  Vex::Ptr< EvpnVlanStatus > evpnVlanStatus;
  Vex::Ptr< EvpnRemoteInfo > evpnRemoteInfo;
  Vex::Ptr< TunnelIdToHwTunnelIdMapping > tunnelIdHwTunnelId;
  Vex::Ptr< Mpls::LfibHwStatus > lfibHwStatus;
  Vex::Ptr< L2Rib::FloodSetOutput > mplsFloodSetOutput;
  Vex::Ptr< FecIdToHwFecIdRequest > mplsFloodSetFecRequest;
  Vex::Ptr< HwInfoMapping > hwInfoMapping;
  Vex::Ptr< EvpnVlanFloodSetHwConfig > vlanFloodSetHwConfig;
  Vex::Ptr< FecIdToHwFecIdRequest > macAddrFecRequest;
  Vex::Ptr< MacAddrFecStatus > macAddrFecStatus;
  // hardware
  Vex::Ptr< KezHelper::EvpnFloodingSmHelper > flooding;
  Vex::Ptr< KezHelper::EvpnHwTunnelIdSmHelper > tunnelIds;
  Vex::Ptr< KezHelper::EsiFilteringDecapHelper > decap;
  Vex::Ptr< FecIdToHwFecIdResponse > mplsFloodSetFecResponse;
  Vex::Ptr< EvpnVlanFloodSetHwStatus > vlanFloodSetHwStatus;
  Vex::Ptr< FecIdToHwFecIdResponse > macAddrFecResponse;
  Vex::Ptr< MacAddrHwStatus > macAddrHwStatus;

  Vex::Ptr< Loom::TaskScheduler > scheduler;
};

// `what( name, entity )` for each of the inputs; of the outputs; and of what hardware answers in.
// By these names hosts know them.
template< class What > void forEachInput( MachineEntities & of, What && what ) {
  what( "acsd", of.acsd );
  what( "lagConfigDir", of.lagConfigDir );
  what( "bridgingConfig", of.bridgingConfig );
  what( "vlanStatusDir", of.vlanStatusDir );
  what( "evpnStatus", of.evpnStatus );
  what( "evpnMplsConfig", of.evpnMplsConfig );
  what( "floodSetOutput", of.floodSetOutput );
  what( "hostOutput", of.hostOutput );
  what( "toggles", of.toggles );
  what( "lfibStatus", of.lfibStatus );
  what( "lfibTrackingStatus", of.lfibTrackingStatus );
}
template< class What > void forEachOutput( MachineEntities & of, What && what ) {
  what( "evpnLagMemberInfo", of.evpnLagMemberInfo );
  what( "evpnVlanStatus", of.evpnVlanStatus );
  what( "evpnRemoteInfo", of.evpnRemoteInfo );
  what( "tunnelIdHwTunnelId", of.tunnelIdHwTunnelId );
  what( "lfibHwStatus", of.lfibHwStatus );
  what( "mplsFloodSetOutput", of.mplsFloodSetOutput );
  what( "mplsFloodSetFecRequest", of.mplsFloodSetFecRequest );
  what( "hwInfoMapping", of.hwInfoMapping );
  what( "vlanFloodSetHwConfig", of.vlanFloodSetHwConfig );
  what( "macAddrFecRequest", of.macAddrFecRequest );
  what( "macAddrFecStatus", of.macAddrFecStatus );
}
template< class What > void forEachAnswer( MachineEntities & of, What && what ) {
  what( "mplsFloodSetFecResponse", of.mplsFloodSetFecResponse );
  what( "vlanFloodSetHwStatus", of.vlanFloodSetHwStatus );
  what( "macAddrFecResponse", of.macAddrFecResponse );
  what( "macAddrHwStatus", of.macAddrHwStatus );
}

// New outputs, and new entities for hardware's answers.
void makeOutputs( MachineEntities & of );

// Is handed each machine before it starts, with the name by which hosts know it, and keeps it.
using KeepMachine =
    std::function< void( const Vex::String & name, const Vex::Ptr< StateMachine > & machine ) >;

void startMachines( const MachineEntities & on, const KeepMachine & keep );

} // namespace Kez
