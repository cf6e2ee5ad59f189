// The flood-set machines in a row, the simulated switch below them.
#pragma once

#include "VirtualTime.h"

#include "KezEvpn/KezEvpnFloodSetFecSm.h"
#include "KezEvpn/KezEvpnVlanFloodSetFilterSm.h"
#include "KezEvpn/KezEvpnVlanFloodSetSm.h"
#include "switch/SwitchFloodSets.h"

#include <set>

class FloodSetMachines : public VirtualTime {
protected:
  using Dest = L2Rib::Dest;
  using Pair = Bridging::MacVlanPair;
  using Via = Kez::MplsFloodSetVia;
  static constexpr uint64_t firstFecId = 0x0B00000000000000;
  static constexpr uint64_t perVlanTunnel = uint64_t( 14 ) << 44 | 3;

  static constexpr uint64_t secondFecId = firstFecId + 1;

  // The answer to the first path of `start()`, whose tunnel is 5.
  static Kez::MplsDestConfig answered( uint32_t hwTunnelId, uint32_t label = 100,
                                       uint64_t fecId = firstFecId ) {
    return { 5,
             label,
             { Kez::hwTunnelIdTypeDefault, hwTunnelId },
             Switch::SwitchFloodSets::hwFecIdOf( fecId ),
             Wire::DynamicTunnelIntfId::intfId( 5 ) };
  }

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

  const Pair pair{ 1, 10 };
  Vex::Ptr< L2Rib::FloodSetOutput > input = Vex::makePtr< L2Rib::FloodSetOutput >();
  Vex::Ptr< L2Rib::FloodSetOutput > mplsOnly = Vex::makePtr< L2Rib::FloodSetOutput >();
  Vex::Ptr< Kez::TunnelIdToHwTunnelIdMapping > mapping =
      Kez::tunnelIdToHwTunnelIdMappingFactory( "mapping" );
  Vex::Ptr< Kez::HwInfoMapping > hwInfo = Kez::hwInfoMappingFactory();
  Vex::Ptr< Kez::EvpnVlanFloodSetHwConfig > config = Kez::evpnVlanFloodSetHwConfigFactory();
  Vex::Ptr< Kez::EvpnVlanFloodSetHwStatus > status = Kez::evpnVlanFloodSetHwStatusFactory();
  Vex::Ptr< Kez::FecIdToHwFecIdRequest > request = Kez::fecIdToHwFecIdRequestFactory();
  Vex::Ptr< Kez::FecIdToHwFecIdResponse > response = Kez::fecIdToHwFecIdResponseFactory();
  Vex::Ptr< Switch::SimulatedSwitch > hardware = Vex::makePtr< Switch::SimulatedSwitch >();
  Vex::Ptr< Switch::SwitchFloodSets > driver = Vex::makePtr< Switch::SwitchFloodSets >(
      hardware, scheduler->timerWheel(), request, response, config, status );
  Vex::Ptr< Kez::VlanFloodSetFilterSm > filter;
  Vex::Ptr< Kez::EvpnVlanFloodSetSm > floodSetSm;
  Vex::Ptr< Kez::EvpnFloodSetFecSm > fecSm;
};
