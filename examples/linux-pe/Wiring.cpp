#include "Wiring.h"

#include "KezEvpn/KezEvpnEsiFilteringDecapSm.h"
#include "KezEvpn/KezEvpnFloodFilterSm.h"
#include "KezEvpn/KezEvpnFloodSetFecSm.h"
#include "KezEvpn/KezEvpnFloodingDot1qSm.h"
#include "KezEvpn/KezEvpnFloodingEsiSm.h"
#include "KezEvpn/KezEvpnHwTunnelIdSm.h"
#include "KezEvpn/KezEvpnLagSm.h"
#include "KezEvpn/KezEvpnRemoteInfoFinderSm.h"
#include "KezEvpn/KezEvpnVlanFloodSetFilterSm.h"
#include "KezEvpn/KezEvpnVlanFloodSetSm.h"
#include "KezEvpn/KezEvpnVlanMembershipSm.h"
#include "KezEvpn/KezMacAddrFecRequestSm.h"
#include "KezHelper/Audit.h"
#include "KezHelper/EvpnHwTunnelIdSmHelperLater.h"
#include "shell/Machines.h"
#include "switch/SwitchEsiFilteringDecapHelper.h"
#include "switch/SwitchFloodSets.h"
#include "switch/SwitchFloodingHelper.h"
#include "switch/SwitchHwTunnelIdHelper.h"
#include "switch/SwitchMacs.h"

#include <concepts>

namespace LinuxPe {

namespace {

using KezShell::Role;
using Vex::Ptr;

void addTablesOf( auto & entity, KezHelper::Audit & audit ) {
  KezHelper::AuditParts parts;
  entity.addAuditParts( parts );
  audit.partsAre( &entity, std::move( parts ) );
}

// A provider edge being made: its members in the order in which they stand here, then the machines.
class Wirer {
public:
  explicit Wirer( const SwitchOptions & options )
      : softSwitch_( hardware( "softSwitch", Vex::makePtr< SoftSwitch >(
                                                 options, books_, forwardingInput_, lagConfigDir_,
                                                 evpnStatus_, coreConfig_ ) ) ) {
    chipHelper_->updateSupportedOnCreateEsiDataIs( true );
  }

  Wiring wire() {
    const auto flooding = Vex::makePtr< KezHelper::EvpnFloodingSmHelperLater >(
        "floodingHelper", lateCalls_, chipHelper_, softSwitch_, softSwitch_->flooding() );
    const auto tunnelIds = Vex::makePtr< KezHelper::EvpnHwTunnelIdSmHelperLater >(
        "hwTunnelIdHelper", lateCalls_, tunnelIdChip_ );
    const auto decap = Vex::makePtr< KezHelper::EsiFilteringDecapHelperLater >(
        "esiFilteringDecapHelper", lateCalls_, decapChip_, softSwitch_, softSwitch_->esiPortMap() );
    wirePorts( flooding );
    machine( "evpnHwTunnelIdSm",
             Kez::evpnHwTunnelIdSmFactory( tunnelIds, scheduler_, acsd_, evpnStatus_,
                                           evpnRemoteInfo_, tunnelIdHwTunnelId_ ) );
    machine( "evpnFloodingEsiSm",
             Kez::evpnFloodingEsiSmFactory( flooding, scheduler_, evpnLagMemberInfo_, evpnStatus_,
                                            tunnelIdHwTunnelId_ ) );
    wireFloodSets();
    machine( "kezMacAddrFecRequestSm",
             Kez::kezMacAddrFecRequestSmFactory(
                 hostOutput_, tunnelIdHwTunnelId_, toggles_, macAddrFecRequest_,
                 macAddrFecResponse_, macAddrFecStatus_, macAddrHwStatus_, scheduler_ ) );
    machine( "esiFilteringDecapSm",
             Kez::esiFilteringDecapSmFactory( decap, lfibStatus_, scheduler_, lfibTrackingStatus_,
                                              lfibHwStatus_ ) );
    // What is lost after it has been accepted is tried again since an audit says so.
    const auto audit = roots_.rootIs(
        Role::runtime, "audit",
        Vex::makePtr< KezHelper::Audit >( scheduler_, Ptr< const KezHelper::Takeover >() ) );
    KezShell::forEachMachine( roots_,
                              [ & ]( Kez::StateMachine & sm ) { addTablesOf( sm, *audit ); } );
    addTablesOf( *floodSets_, *audit );
    addTablesOf( *macs_, *audit );
    return { std::move( roots_ ), scheduler_, softSwitch_ };
  }

private:
  template< class T, class... Arguments >
  Ptr< T > input( const Vex::String & name, const Arguments &... arguments ) {
    return roots_.rootIs( Role::input, name, Vex::makePtr< T >( arguments... ) );
  }
  template< class T > Ptr< T > output( const Vex::String & name, const Ptr< T > & entity ) {
    return roots_.rootIs( Role::output, name, entity );
  }
  template< class T > Ptr< T > hardware( const Vex::String & name, const Ptr< T > & entity ) {
    return roots_.rootIs( Role::hardware, name, entity );
  }
  template< class T > void machine( const Vex::String & name, const Ptr< T > & sm ) {
    roots_.rootIs( Role::machine, name, sm );
    if constexpr ( std::derived_from< T, Kez::InitializedSm > ) {
      if ( !sm->initialized() ) {
        sm->handleInitialized();
      }
    }
  }

  void wirePorts( const Ptr< KezHelper::EvpnFloodingSmHelper > & flooding ) {
    machine( "evpnLagSm", Kez::evpnLagSmFactory( acsd_, lagConfigDir_, evpnLagMemberInfo_ ) );
    machine( "kezEvpnVlanMembershipSm",
             Kez::kezEvpnVlanMembershipSmFactory( bridgingConfig_, vlanStatusDir_, evpnStatus_,
                                                  evpnVlanStatus_ ) );
    machine( "evpnRemoteInfoFinderSm",
             Kez::evpnRemoteInfoFinderSmFactory( mplsFloodSetOutput_, evpnRemoteInfo_ ) );
    machine( "evpnFloodingDot1qSm",
             Kez::evpnFloodingDot1qSmFactory( flooding, scheduler_, evpnLagMemberInfo_,
                                              evpnVlanStatus_, evpnStatus_, evpnMplsConfig_ ) );
    machine( "kezEvpnFloodFilterSm", Kez::kezEvpnFloodFilterSmFactory(
                                         flooding, scheduler_, evpnLagMemberInfo_, evpnStatus_ ) );
  }

  void wireFloodSets() {
    const auto fecSm =
        roots_.rootIs( Role::machine, "evpnFloodSetFecSm",
                       Kez::evpnFloodSetFecSmFactory(
                           mplsFloodSetOutput_, tunnelIdHwTunnelId_, vlanFloodSetHwStatus_,
                           mplsFloodSetFecRequest_, mplsFloodSetFecResponse_, hwInfoMapping_,
                           scheduler_->timerWheel() ) );
    machine( "evpnVlanFloodSetSm", Kez::evpnVlanFloodSetSmFactory(
                                       mplsFloodSetOutput_, tunnelIdHwTunnelId_, hwInfoMapping_,
                                       vlanFloodSetHwConfig_, vlanFloodSetHwStatus_ ) );
    fecSm->handleInitialized();
    machine( "vlanFloodSetFilterSm",
             Kez::vlanFloodSetFilterSmFactory( L2Rib::destTypeMpls_, floodSetOutput_,
                                               mplsFloodSetOutput_ ) );
  }

  KezShell::Roots roots_;

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
  const Ptr< Switch::SimulatedSwitch > books_ =
      hardware( "switch", Vex::makePtr< Switch::SimulatedSwitch >() );
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
  const Ptr< KezHelper::LateCalls > lateCalls_ = roots_.rootIs(
      Role::runtime, "lateCalls", Vex::makePtr< KezHelper::LateCalls >( scheduler_ ) );
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

Wiring wire( const SwitchOptions & options ) {
  return Wirer( options ).wire();
}

} // namespace LinuxPe
