#include "Wiring.h"

#include "KezEvpn/Machines.h"
#include "KezHelper/Audit.h"
#include "KezHelper/EsiFilteringDecapHelperTakeover.h"
#include "KezHelper/EvpnFloodingSmHelperTakeover.h"
#include "KezHelper/EvpnHwTunnelIdSmHelperLater.h"
#include "KezHelper/EvpnHwTunnelIdSmHelperTakeover.h"
#include "shell/Machines.h"
#include "switch/SwitchEsiFilteringDecapHelper.h"
#include "switch/SwitchFloodSets.h"
#include "switch/SwitchFloodingHelper.h"
#include "switch/SwitchHwTunnelIdHelper.h"
#include "switch/SwitchMacs.h"

#include <algorithm>

namespace LinuxPe {

namespace {

using KezShell::Role;
using Vex::Ptr;

void addTablesOf( auto & entity, KezHelper::Audit & audit ) {
  KezHelper::AuditParts parts;
  entity.addAuditParts( parts );
  audit.partsAre( &entity, std::move( parts ) );
}

// An entity that stands among the roots, or null.
template< class T > Ptr< T > standing( const KezShell::Roots & roots, const Vex::String & name ) {
  const auto * root = roots.root( name );
  return root ? Vex::dynamicCast< T >( root->entity ) : nullptr;
}

// A provider edge being made: its members in the order in which they stand here, then the machines.
class Wirer {
public:
  Wirer( const SwitchOptions & options, const Wiring & ground )
      : ground_( ground ), softSwitch_( softSwitch( options ) ) {
    chipHelper_->updateSupportedOnCreateEsiDataIs( true );
  }

  Wiring wire() {
    if ( takeover_ ) {
      takeOver();
    }
    Kez::startMachines( entities(), [ this ]( const auto & name, const auto & machine ) {
      roots_.rootIs( Role::machine, name, machine );
      machines_.push_back( machine.get() );
    } );
    // What is lost after it has been accepted is tried again since an audit says so.
    const auto audit = roots_.rootIs( Role::runtime, "audit",
                                      Vex::makePtr< KezHelper::Audit >( scheduler_, takeover_ ) );
    KezShell::forEachMachine( roots_,
                              [ & ]( Kez::StateMachine & sm ) { addTablesOf( sm, *audit ); } );
    addTablesOf( *floodSets_, *audit );
    addTablesOf( *macs_, *audit );
    if ( takeover_ ) {
      sweepWhenSettled();
    }
    return { std::move( roots_ ), scheduler_, softSwitch_, lateCalls_, takeover_ };
  }

private:
  template< class T, class... Arguments >
  Ptr< T > input( const Vex::String & name, const Arguments &... arguments ) {
    const auto there = standing< T >( ground_.roots, name );
    return roots_.rootIs( Role::input, name, there ? there : Vex::makePtr< T >( arguments... ) );
  }
  template< class T > Ptr< T > output( const Vex::String & name, const Ptr< T > & entity ) {
    return roots_.rootIs( Role::output, name, entity );
  }
  template< class T > Ptr< T > hardware( const Vex::String & name, const Ptr< T > & entity ) {
    return roots_.rootIs( Role::hardware, name, entity );
  }
  Ptr< Switch::SimulatedSwitch > books() {
    const auto there = standing< Switch::SimulatedSwitch >( ground_.roots, "switch" );
    return hardware( "switch", there ? there : Vex::makePtr< Switch::SimulatedSwitch >() );
  }
  Ptr< SoftSwitch > softSwitch( const SwitchOptions & options ) {
    return hardware( "softSwitch",
                     ground_.softSwitch
                         ? ground_.softSwitch
                         : Vex::makePtr< SoftSwitch >( options, books_, forwardingInput_,
                                                       lagConfigDir_, evpnStatus_, coreConfig_ ) );
  }

  // What stands between machines and chip: calls of what the switch has already are answered
  // without one, and what nobody asks for is removed in the end, what uses an entry before it.
  void takeOver() {
    roots_.rootIs( Role::runtime, "takeover", takeover_ );
    floodSets_->takeoverIs( takeover_ );
    macs_->takeoverIs( takeover_ );
    decap_ = Vex::makePtr< KezHelper::EsiFilteringDecapHelperTakeover >( "esiFilteringDecapHelper",
                                                                         takeover_, decap_ );
    flooding_ = Vex::makePtr< KezHelper::EvpnFloodingSmHelperTakeover >( "floodingHelper",
                                                                         takeover_, flooding_ );
    tunnelIds_ = Vex::makePtr< KezHelper::EvpnHwTunnelIdSmHelperTakeover >(
        "hwTunnelIdHelper", takeover_, tunnelIds_, tunnelIdHwTunnelId_ );
  }
  void sweepWhenSettled() {
    takeover_->settledIs(
        [ machines = machines_, floodSets = floodSets_.get(), macs = macs_.get() ] {
          return std::ranges::all_of( machines, []( const auto * sm ) { return sm->settled(); } ) &&
                 floodSets->hasTriedAll() && macs->hasTriedAll();
        } );
    takeover_->inputsAreComplete(); // they have stood all the while
  }

  Kez::MachineEntities entities() const {
    return { .acsd = acsd_,
             .lagConfigDir = lagConfigDir_,
             .bridgingConfig = bridgingConfig_,
             .vlanStatusDir = vlanStatusDir_,
             .evpnStatus = evpnStatus_,
             .evpnMplsConfig = evpnMplsConfig_,
             .floodSetOutput = floodSetOutput_,
             .hostOutput = hostOutput_,
             .toggles = toggles_,
             .lfibStatus = lfibStatus_,
             .lfibTrackingStatus = lfibTrackingStatus_,
             .evpnLagMemberInfo = evpnLagMemberInfo_,
             .evpnVlanStatus = evpnVlanStatus_,
             .evpnRemoteInfo = evpnRemoteInfo_,
             .tunnelIdHwTunnelId = tunnelIdHwTunnelId_,
             .lfibHwStatus = lfibHwStatus_,
             .mplsFloodSetOutput = mplsFloodSetOutput_,
             .mplsFloodSetFecRequest = mplsFloodSetFecRequest_,
             .hwInfoMapping = hwInfoMapping_,
             .vlanFloodSetHwConfig = vlanFloodSetHwConfig_,
             .macAddrFecRequest = macAddrFecRequest_,
             .macAddrFecStatus = macAddrFecStatus_,
             .flooding = flooding_,
             .tunnelIds = tunnelIds_,
             .decap = decap_,
             .mplsFloodSetFecResponse = mplsFloodSetFecResponse_,
             .vlanFloodSetHwStatus = vlanFloodSetHwStatus_,
             .macAddrFecResponse = macAddrFecResponse_,
             .macAddrHwStatus = macAddrHwStatus_,
             .scheduler = scheduler_ };
  }

  const Wiring & ground_;
  KezShell::Roots roots_;
  std::vector< const Kez::StateMachine * > machines_;

  const Ptr< Kez::KezCommonSmData > acsd_ = input< Kez::KezCommonSmData >( "acsd" );
  const Ptr< Kez::LagCreatorConfigDir > lagConfigDir_ =
      input< Kez::LagCreatorConfigDir >( "lagConfigDir" );
  const Ptr< Bridging::Config > bridgingConfig_ = input< Bridging::Config >( "bridgingConfig" );
  const Ptr< Bridging::VlanStatusDir > vlanStatusDir_ =
      input< Bridging::VlanStatusDir >( "vlanStatusDir" );
  const Ptr< Evpn::EvpnStatus > evpnStatus_ = input< Evpn::EvpnStatus >( "evpnStatus" );
  const Ptr< Evpn::MplsConfig > evpnMplsConfig_ = input< Evpn::MplsConfig >( "evpnMplsConfig" );
  const Ptr< L2Rib::FloodSetOutput > floodSetOutput_ =
      input< L2Rib::FloodSetOutput >( "floodSetOutput" );
  const Ptr< L2Rib::HostOutput > hostOutput_ = input< L2Rib::HostOutput >( "hostOutput" );
  const Ptr< Kez::FeatureToggles > toggles_ = input< Kez::FeatureToggles >( "toggles" );
  const Ptr< Mpls::LfibStatus > lfibStatus_ =
      input< Mpls::LfibStatus >( "lfibStatus", "lfibStatus" );
  const Ptr< Mpls::LfibTrackingStatus > lfibTrackingStatus_ =
      input< Mpls::LfibTrackingStatus >( "lfibTrackingStatus" );
  // The switch's own, for its frames; no machine reads them.
  const Ptr< Switch::ForwardingInput > forwardingInput_ =
      input< Switch::ForwardingInput >( "forwardingInput" );
  const Ptr< CoreConfig > coreConfig_ = input< CoreConfig >( "coreConfig" );

  const Ptr< Kez::EvpnLagMemberInfo > evpnLagMemberInfo_ =
      output( "evpnLagMemberInfo", Kez::evpnLagMemberInfoFactory() );
  const Ptr< Kez::EvpnVlanStatus > evpnVlanStatus_ =
      output( "evpnVlanStatus", Kez::evpnVlanStatusFactory() );
  const Ptr< Kez::EvpnRemoteInfo > evpnRemoteInfo_ =
      output( "evpnRemoteInfo", Kez::evpnRemoteInfoFactory() );
  const Ptr< Kez::TunnelIdToHwTunnelIdMapping > tunnelIdHwTunnelId_ = output(
      "tunnelIdHwTunnelId", Kez::tunnelIdToHwTunnelIdMappingFactory( "tunnelIdHwTunnelId" ) );
  const Ptr< Mpls::LfibHwStatus > lfibHwStatus_ =
      output( "lfibHwStatus", Vex::makePtr< Mpls::LfibHwStatus >( "lfibHwStatus" ) );
  const Ptr< L2Rib::FloodSetOutput > mplsFloodSetOutput_ =
      output( "mplsFloodSetOutput", Vex::makePtr< L2Rib::FloodSetOutput >() );
  const Ptr< Kez::FecIdToHwFecIdRequest > mplsFloodSetFecRequest_ =
      output( "mplsFloodSetFecRequest", Kez::fecIdToHwFecIdRequestFactory() );
  const Ptr< Kez::HwInfoMapping > hwInfoMapping_ =
      output( "hwInfoMapping", Kez::hwInfoMappingFactory() );
  const Ptr< Kez::EvpnVlanFloodSetHwConfig > vlanFloodSetHwConfig_ =
      output( "vlanFloodSetHwConfig", Kez::evpnVlanFloodSetHwConfigFactory() );
  const Ptr< Kez::FecIdToHwFecIdRequest > macAddrFecRequest_ =
      output( "macAddrFecRequest", Kez::fecIdToHwFecIdRequestFactory() );
  const Ptr< Kez::MacAddrFecStatus > macAddrFecStatus_ =
      output( "macAddrFecStatus", Kez::macAddrFecStatusFactory() );

  // The driver's books of what the switch has, as it has answered.
  const Ptr< Switch::SimulatedSwitch > books_ = books();
  const Ptr< SoftSwitch > softSwitch_;
  // Of these the adapters that wait for the switch read attributes and what is in the books.
  const Ptr< Switch::SwitchFloodingHelper > chipHelper_ =
      Vex::makePtr< Switch::SwitchFloodingHelper >( "floodingHelper", books_ );
  const Ptr< Switch::SwitchEsiFilteringDecapHelper > decapChip_ =
      Vex::makePtr< Switch::SwitchEsiFilteringDecapHelper >( "esiFilteringDecapHelper", books_ );
  // Which id is free the driver knows without asking.
  const Ptr< Switch::SwitchHwTunnelIdHelper > tunnelIdChip_ =
      Vex::makePtr< Switch::SwitchHwTunnelIdHelper >( "hwTunnelIdHelper", books_ );
  const Ptr< Loom::TaskScheduler > scheduler_ =
      roots_.rootIs( Role::runtime, "scheduler", Vex::makePtr< Loom::TaskScheduler >() );
  const Ptr< KezHelper::Takeover > takeover_ =
      ground_.softSwitch ? Vex::makePtr< KezHelper::Takeover >( scheduler_ ) : nullptr;
  const Ptr< KezHelper::LateCalls > lateCalls_ = roots_.rootIs(
      Role::runtime, "lateCalls", Vex::makePtr< KezHelper::LateCalls >( scheduler_ ) );
  // What the machines call.
  Ptr< KezHelper::EvpnFloodingSmHelper > flooding_ =
      Vex::makePtr< KezHelper::EvpnFloodingSmHelperLater >(
          "floodingHelper", lateCalls_, chipHelper_, softSwitch_, softSwitch_->flooding() );
  Ptr< KezHelper::EvpnHwTunnelIdSmHelper > tunnelIds_ =
      Vex::makePtr< KezHelper::EvpnHwTunnelIdSmHelperLater >( "hwTunnelIdHelper", lateCalls_,
                                                              tunnelIdChip_ );
  Ptr< KezHelper::EsiFilteringDecapHelper > decap_ =
      Vex::makePtr< KezHelper::EsiFilteringDecapHelperLater >( "esiFilteringDecapHelper",
                                                               lateCalls_, decapChip_, softSwitch_,
                                                               softSwitch_->esiPortMap() );
  const Ptr< Kez::FecIdToHwFecIdResponse > mplsFloodSetFecResponse_ =
      hardware( "mplsFloodSetFecResponse", Kez::fecIdToHwFecIdResponseFactory() );
  const Ptr< Kez::EvpnVlanFloodSetHwStatus > vlanFloodSetHwStatus_ =
      hardware( "vlanFloodSetHwStatus", Kez::evpnVlanFloodSetHwStatusFactory() );
  const Ptr< Kez::FecIdToHwFecIdResponse > macAddrFecResponse_ =
      hardware( "macAddrFecResponse", Kez::fecIdToHwFecIdResponseFactory() );
  const Ptr< Kez::MacAddrHwStatus > macAddrHwStatus_ =
      hardware( "macAddrHwStatus", Kez::macAddrHwStatusFactory() );
  const Ptr< Switch::SwitchFloodSets > floodSets_ =
      hardware( "switchFloodSets",
                Vex::makePtr< Switch::SwitchFloodSets >(
                    books_, scheduler_->timerWheel(), mplsFloodSetFecRequest_,
                    mplsFloodSetFecResponse_, vlanFloodSetHwConfig_, vlanFloodSetHwStatus_ ) );
  const Ptr< Switch::SwitchMacs > macs_ =
      hardware( "switchMacs", Vex::makePtr< Switch::SwitchMacs >(
                                  books_, scheduler_->timerWheel(), macAddrFecRequest_,
                                  macAddrFecResponse_, macAddrFecStatus_, macAddrHwStatus_ ) );
};

} // namespace

Wiring unwired( const Wiring & earlier ) {
  earlier.softSwitch->awaitAnswers( *earlier.lateCalls );
  if ( earlier.takeover ) {
    earlier.takeover->settledIs( nullptr );
  }
  Wiring ground;
  ground.roots = earlier.roots.ofRole( Role::input );
  ground.roots.rootIs( Role::hardware, "switch", earlier.roots.root( "switch" )->entity );
  ground.softSwitch = earlier.softSwitch;
  return ground;
}

Wiring wire( const SwitchOptions & options, const Wiring & ground ) {
  return Wirer( options, ground ).wire();
}

} // namespace LinuxPe
