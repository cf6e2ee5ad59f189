#include "KezEvpn/Machines.h"

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

#include <concepts>

namespace Kez {

namespace {

class Starter {
public:
  Starter( const MachineEntities & on, const KeepMachine & keep ) : on_( on ), keep_( keep ) {}

  void startAll() {
    startPorts();
    startTunnels();
    startFloodSets();
    start( "kezMacAddrFecRequestSm",
           kezMacAddrFecRequestSmFactory(
               on_.hostOutput, on_.tunnelIdHwTunnelId, on_.toggles, on_.macAddrFecRequest,
               on_.macAddrFecResponse, on_.macAddrFecStatus, on_.macAddrHwStatus, on_.scheduler ) );
    start( "esiFilteringDecapSm",
           esiFilteringDecapSmFactory( on_.decap, on_.lfibStatus, on_.scheduler,
                                       on_.lfibTrackingStatus, on_.lfibHwStatus ) );
  }

private:
  // Unless it has started as it was made.
  template< class T > void start( const Vex::String & name, const Vex::Ptr< T > & machine ) {
    keep_( name, machine );
    if constexpr ( std::derived_from< T, InitializedSm > ) {
      if ( !machine->initialized() ) {
        machine->handleInitialized();
      }
    }
  }

  // Who publishes before who reads it, so that this one starts over what the other has made of the
  // inputs that stand, and programs a port once. What counts tunnels hears of nothing yet: the
  // filter before it starts last.
  void startPorts() {
    start( "evpnLagSm", evpnLagSmFactory( on_.acsd, on_.lagConfigDir, on_.evpnLagMemberInfo ) );
    start( "kezEvpnVlanMembershipSm",
           kezEvpnVlanMembershipSmFactory( on_.bridgingConfig, on_.vlanStatusDir, on_.evpnStatus,
                                           on_.evpnVlanStatus ) );
    start( "evpnRemoteInfoFinderSm",
           evpnRemoteInfoFinderSmFactory( on_.mplsFloodSetOutput, on_.evpnRemoteInfo ) );
    start( "evpnFloodingDot1qSm",
           evpnFloodingDot1qSmFactory( on_.flooding, on_.scheduler, on_.evpnLagMemberInfo,
                                       on_.evpnVlanStatus, on_.evpnStatus, on_.evpnMplsConfig ) );
    start( "kezEvpnFloodFilterSm",
           kezEvpnFloodFilterSmFactory( on_.flooding, on_.scheduler, on_.evpnLagMemberInfo,
                                        on_.evpnStatus ) );
  }

  // Ids before the ESI data that name them: what an earlier agent left in the shared table is put
  // right first.
  void startTunnels() {
    start( "evpnHwTunnelIdSm",
           evpnHwTunnelIdSmFactory( on_.tunnelIds, on_.scheduler, on_.acsd, on_.evpnStatus,
                                    on_.evpnRemoteInfo, on_.tunnelIdHwTunnelId ) );
    start( "evpnFloodingEsiSm",
           evpnFloodingEsiSmFactory( on_.flooding, on_.scheduler, on_.evpnLagMemberInfo,
                                     on_.evpnStatus, on_.tunnelIdHwTunnelId ) );
  }

  // FECs hear of a change before the destinations that use them, but start after these: what an
  // earlier machine's FECs are used for is withdrawn before they are. The filter comes last, when
  // all who read what it lets through are there.
  void startFloodSets() {
    const auto fecSm = evpnFloodSetFecSmFactory(
        on_.mplsFloodSetOutput, on_.tunnelIdHwTunnelId, on_.vlanFloodSetHwStatus,
        on_.mplsFloodSetFecRequest, on_.mplsFloodSetFecResponse, on_.hwInfoMapping,
        on_.scheduler->timerWheel() );
    keep_( "evpnFloodSetFecSm", fecSm );
    start( "evpnVlanFloodSetSm",
           evpnVlanFloodSetSmFactory( on_.mplsFloodSetOutput, on_.tunnelIdHwTunnelId,
                                      on_.hwInfoMapping, on_.vlanFloodSetHwConfig,
                                      on_.vlanFloodSetHwStatus ) );
    fecSm->handleInitialized();
    start( "vlanFloodSetFilterSm",
           vlanFloodSetFilterSmFactory( L2Rib::destTypeMpls_, on_.floodSetOutput,
                                        on_.mplsFloodSetOutput ) );
  }

  const MachineEntities & on_;
  const KeepMachine & keep_;
};

} // namespace

void makeOutputs( MachineEntities & of ) {
  of.evpnLagMemberInfo = evpnLagMemberInfoFactory();
  of.evpnVlanStatus = evpnVlanStatusFactory();
  of.evpnRemoteInfo = evpnRemoteInfoFactory();
  of.tunnelIdHwTunnelId = tunnelIdToHwTunnelIdMappingFactory( "tunnelIdHwTunnelId" );
  of.lfibHwStatus = Vex::makePtr< Mpls::LfibHwStatus >( "lfibHwStatus" );
  of.mplsFloodSetOutput = Vex::makePtr< L2Rib::FloodSetOutput >();
  of.mplsFloodSetFecRequest = fecIdToHwFecIdRequestFactory();
  of.hwInfoMapping = hwInfoMappingFactory();
  of.vlanFloodSetHwConfig = evpnVlanFloodSetHwConfigFactory();
  of.macAddrFecRequest = fecIdToHwFecIdRequestFactory();
  of.macAddrFecStatus = macAddrFecStatusFactory();
  of.mplsFloodSetFecResponse = fecIdToHwFecIdResponseFactory();
  of.vlanFloodSetHwStatus = evpnVlanFloodSetHwStatusFactory();
  of.macAddrFecResponse = fecIdToHwFecIdResponseFactory();
  of.macAddrHwStatus = macAddrHwStatusFactory();
}

void startMachines( const MachineEntities & on, const KeepMachine & keep ) {
  Starter( on, keep ).startAll();
}

} // namespace Kez
