#include "TraceCapture.h"

#include "KezEvpn/KezEvpnVlanMembershipSm.h"

#include <gmock/gmock.h>

using testing::ElementsAre;

namespace {

class VlanMembershipSmTest : public testing::Test {
protected:
  void start() {
    sm = Kez::kezEvpnVlanMembershipSmFactory( config, statusDir, evpnStatus, evpnVlanStatus );
  }
  void configured( Bridging::VlanId vlan, Wire::IntfId intf ) {
    config->vlanConfigIs( vlan )->intfIs( intf, Bridging::VlanPortConfig() );
  }
  void operational( Bridging::VlanId vlan, Wire::IntfId intf ) {
    statusDir->vlanStatusIs( vlan )->vlanPortStatusIs( intf, Bridging::VlanPortStatus() );
  }
  bool member( Bridging::VlanId vlan, Wire::IntfId intf ) {
    const auto entry = evpnVlanStatus->vlanStatus( vlan );
    return entry && entry->memberHas( intf );
  }

  const Wire::IntfId eth1{ "Ethernet1" };
  const Wire::IntfId eth2{ "Ethernet2" };
  Vex::Ptr< Bridging::Config > config = Vex::makePtr< Bridging::Config >();
  Vex::Ptr< Bridging::VlanStatusDir > statusDir = Vex::makePtr< Bridging::VlanStatusDir >();
  Vex::Ptr< Evpn::EvpnStatus > evpnStatus = Vex::makePtr< Evpn::EvpnStatus >();
  Vex::Ptr< Kez::EvpnVlanStatus > evpnVlanStatus = Kez::evpnVlanStatusFactory();
  Vex::Ptr< Kez::KezEvpnVlanMembershipSm > sm;
};

TEST_F( VlanMembershipSmTest, FilterChoosesBetweenConfigurationAndPortStatus ) {
  configured( 10, eth1 );
  operational( 10, eth2 );
  operational( 20, eth1 );
  start();
  EXPECT_FALSE( member( 10, eth1 ) );
  EXPECT_TRUE( member( 10, eth2 ) );
  EXPECT_TRUE( member( 20, eth1 ) );

  evpnStatus->encapBumFilterIs( eth1 );
  evpnStatus->encapBumFilterIs( eth2 );
  EXPECT_TRUE( member( 10, eth1 ) );
  // Only operationally present: left to the next port-status event.
  EXPECT_TRUE( member( 10, eth2 ) );
  EXPECT_TRUE( member( 20, eth1 ) );
  operational( 20, eth2 );
  EXPECT_FALSE( member( 20, eth2 ) );

  evpnStatus->encapBumFilterDel( eth1 );
  EXPECT_FALSE( member( 10, eth1 ) );
}

TEST_F( VlanMembershipSmTest, StartDecidesWhatIsConfiguredOperationalOrPublished ) {
  for ( const Bridging::VlanId vlan : { 10, 20 } ) {
    configured( vlan, eth1 );
    configured( vlan, eth2 );
    operational( vlan, eth2 );
  }
  operational( 30, eth1 );
  operational( 30, eth2 );
  evpnStatus->encapBumFilterIs( eth1 );
  evpnVlanStatus->vlanStatusIs( 30 )->memberIs( eth1 ); // by an earlier machine
  start();
  for ( const Bridging::VlanId vlan : { 10, 20 } ) {
    EXPECT_TRUE( member( vlan, eth1 ) );
    EXPECT_TRUE( member( vlan, eth2 ) );
  }
  EXPECT_FALSE( member( 30, eth1 ) );
  EXPECT_TRUE( member( 30, eth2 ) );
  for ( const auto intf : { eth1, eth2 } ) {
    EXPECT_EQ( sm->intfVlanConfigSet( intf )->vlanIds(), 2u );
  }
}

TEST_F( VlanMembershipSmTest, VlansComeAndGoWithTheirMembersAndIndex ) {
  start();
  evpnStatus->encapBumFilterIs( eth1 );
  configured( 10, eth1 );
  configured( 20, eth1 );
  EXPECT_EQ( evpnVlanStatus->vlanStatuss(), 2u );
  config->vlanConfigDel( 10 );
  EXPECT_FALSE( evpnVlanStatus->vlanStatusHas( 10 ) );
  ASSERT_TRUE( sm->intfVlanConfigSetHas( eth1 ) );
  EXPECT_EQ( sm->intfVlanConfigSet( eth1 )->vlanIds(), 1u );
  config->vlanConfig( 20 )->intfDel( eth1 );
  EXPECT_EQ( evpnVlanStatus->vlanStatuss(), 0u );
  EXPECT_FALSE( sm->intfVlanConfigSetHas( eth1 ) );
}

TEST_F( VlanMembershipSmTest, TracesHandlersDecisionsAndWrites ) {
  start();
  TraceCapture trace( "KezEvpnVlanMembershipSm" );
  operational( 10, eth1 );
  EXPECT_THAT(
      trace.take(),
      ElementsAre(
          "8 KezEvpnVlanMembershipSm::VexVlanStatus::handleVlanStatus vlanId 10 add 1",
          "8 KezEvpnVlanMembershipSm::VexVlanStatus::handleIntf vlanId 10 intfId Ethernet1",
          "5 KezEvpnVlanMembershipSm::processIntfVlan vlanId 10 intfId Ethernet1",
          "9 KezEvpnVlanMembershipSm::addIntfToEvpnVlanStatus intfId Ethernet1 vlanId 10" ) );
  evpnStatus->encapBumFilterIs( eth1 );
  statusDir->vlanStatusDel( 10 );
  EXPECT_THAT(
      trace.take(),
      ElementsAre(
          "8 KezEvpnVlanMembershipSm::handleEncapBumFilter intfId Ethernet1 add 1",
          "8 KezEvpnVlanMembershipSm::VexVlanStatus::handleIntf vlanId 10 intfId Ethernet1",
          "5 KezEvpnVlanMembershipSm::processIntfVlan vlanId 10 intfId Ethernet1",
          "9 KezEvpnVlanMembershipSm::removeIntfVlanFromEvpnVlanStatus intfId Ethernet1 vlanId 10",
          "8 KezEvpnVlanMembershipSm::VexVlanStatus::handleVlanStatus vlanId 10 add 0" ) );
}

TEST_F( VlanMembershipSmTest, MissingInputIsFatalOnceAPairIsEvaluated ) {
  operational( 10, eth1 );
  EXPECT_DEATH(
      Kez::kezEvpnVlanMembershipSmFactory( nullptr, statusDir, evpnStatus, evpnVlanStatus ),
      "/src/KezEvpn/KezEvpnVlanMembershipSm:[0-9]+: assertion failed: "
      "bridgingConfig\\(\\)" );
}

TEST_F( VlanMembershipSmTest, WhatLeavesUnheardIsMadeUpFor ) {
  operational( 10, eth1 );
  operational( 20, eth1 );
  configured( 30, eth2 );
  evpnStatus->encapBumFilterIs( eth2 );
  start();
  sm->vexDoZombieReactors( true );
  statusDir->vlanStatus( 10 )->vlanPortStatusDelAll();
  statusDir->vlanStatusDel( 20 );
  config->vlanConfig( 30 )->intfDelAll();
  sm->vexDoZombieReactors( false );
  EXPECT_EQ( evpnVlanStatus->vlanStatuss(), 0u );
  EXPECT_EQ( sm->intfVlanConfigSets(), 0u );
}

} // namespace
