// What the tests of the machines that lead flood sets to hardware have in common: the machines in
// a row, the simulated switch below them, and what must hold after every event.
#pragma once

#include "TraceCapture.h"
#include "VirtualTime.h"

#include "KezEvpn/KezEvpnFloodSetFecSm.h"
#include "KezEvpn/KezEvpnVlanFloodSetFilterSm.h"
#include "KezEvpn/KezEvpnVlanFloodSetSm.h"
#include "agent/SwitchFloodSets.h"

#include <gmock/gmock.h>

#include <map>
#include <random>
#include <set>

class FloodSetMachines : public VirtualTime {
protected:
  using Dest = L2Rib::Dest;
  using Pair = Bridging::MacVlanPair;
  using Via = Kez::MplsFloodSetVia;
  static constexpr uint64_t firstFecId = 0x0B00000000000000;
  static constexpr uint64_t perVlanTunnel = uint64_t( 14 ) << 44 | 3;

  static Dest mpls( uint64_t tunnelId, uint32_t label = 100, Wire::IntfId intf = {} ) {
    return Dest::ofMpls( { intf, label, tunnelId } );
  }
  Vex::Ptr< L2Rib::FloodSet > floodSet( Bridging::VlanId vlan = 10, Wire::EthAddr mac = 1 ) {
    return input->vlanFloodSetIs( vlan )->floodSetIs( mac );
  }
  void hwTunnelIdIs( uint64_t tunnelId, uint32_t number ) {
    mapping->tunnelIdToHwTunnelIdIs( { tunnelId, { Kez::hwTunnelIdTypeDefault, number } } );
  }

  void makeFilter() {
    filter = Kez::vlanFloodSetFilterSmFactory( L2Rib::destTypeMpls_, input, mplsOnly );
  }
  void makeFloodSetSm() {
    floodSetSm = Kez::evpnVlanFloodSetSmFactory( mplsOnly, mapping, hwInfo, config, status );
  }
  void makeFecSm() {
    fecSm = Kez::evpnFloodSetFecSmFactory( mplsOnly, mapping, status, request, response, hwInfo,
                                           scheduler->timerWheel() );
  }
  void start() {
    makeFilter();
    makeFloodSetSm();
    makeFecSm();
    filter->handleInitialized();
    floodSetSm->handleInitialized();
    fecSm->handleInitialized();
  }
  std::set< Kez::MplsDestConfig > configsOf( const Pair & pair ) const {
    std::set< Kez::MplsDestConfig > all;
    if ( const auto entry = config->config( pair ) ) {
      for ( const auto & each : entry->mplsDestConfig() ) {
        all.insert( each );
      }
    }
    return all;
  }

  Vex::Ptr< L2Rib::FloodSetOutput > input = Vex::makePtr< L2Rib::FloodSetOutput >();
  Vex::Ptr< L2Rib::FloodSetOutput > mplsOnly = Vex::makePtr< L2Rib::FloodSetOutput >();
  Vex::Ptr< Kez::TunnelIdToHwTunnelIdMapping > mapping =
      Kez::tunnelIdToHwTunnelIdMappingFactory( "mapping" );
  Vex::Ptr< Kez::HwInfoMapping > hwInfo = Kez::hwInfoMappingFactory();
  Vex::Ptr< Kez::EvpnVlanFloodSetHwConfig > config = Kez::evpnVlanFloodSetHwConfigFactory();
  Vex::Ptr< Kez::EvpnVlanFloodSetHwStatus > status = Kez::evpnVlanFloodSetHwStatusFactory();
  Vex::Ptr< Kez::FecIdToHwFecIdRequest > request = Kez::fecIdToHwFecIdRequestFactory();
  Vex::Ptr< Kez::FecIdToHwFecIdResponse > response = Kez::fecIdToHwFecIdResponseFactory();
  Vex::Ptr< Agent::SimulatedSwitch > hardware = Vex::makePtr< Agent::SimulatedSwitch >();
  Vex::Ptr< Agent::SwitchFloodSets > driver = Vex::makePtr< Agent::SwitchFloodSets >(
      hardware, scheduler->timerWheel(), request, response, config, status );
  Vex::Ptr< Kez::VlanFloodSetFilterSm > filter;
  Vex::Ptr< Kez::EvpnVlanFloodSetSm > floodSetSm;
  Vex::Ptr< Kez::EvpnFloodSetFecSm > fecSm;
};
