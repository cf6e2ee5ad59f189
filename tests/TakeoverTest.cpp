#include "KezHelper/EvpnFloodingSmHelperStub.h"
#include "KezHelper/EvpnFloodingSmHelperTakeover.h"
#include "Loom/TaskScheduler.h"
#include "Vex/Clock.h"
#include "switch/SwitchFloodingHelper.h"

#include <gtest/gtest.h>

namespace {

using Bridging::VlanIdOrNone;
using Kez::HwProgrammingStatus;
using KezHelper::EvpnFloodingSmHelper;
using KezHelper::EvpnFloodingSmHelperTakeover;
using KezHelper::TakeoverState;
using Switch::Operation;
using Switch::SimulatedSwitch;

// Calls of machines, one by one, over a switch that has VLAN 10 and two ports.
class TakeoverTest : public testing::Test {
protected:
  TakeoverTest() {
    Vex::Clock::virtualIs( 0 );
    hardware->vlanIs( 10, 110 );
    hardware->nonDfPortIs( { "Ethernet1", "Ethernet1", 10 } );
    hardware->nonDfPortIs( { "Ethernet2", "Ethernet2", 10 } );
    makeHelper();
  }
  void makeHelper() {
    takeover = Vex::makePtr< KezHelper::Takeover >( scheduler );
    takeover->settledIs( [ this ] { return settled; } );
    helper = Vex::makePtr< EvpnFloodingSmHelperTakeover >( "helper", takeover, chip );
  }
  void advance( double seconds ) {
    for ( const double end = Vex::Clock::now() + seconds; Vex::Clock::now() < end; ) {
      Vex::Clock::virtualIs( std::min( end, scheduler->nextDeadline().value_or( end ) ) );
      while ( scheduler->nextDeadline() && *scheduler->nextDeadline() <= Vex::Clock::now() ) {
        scheduler->runReady();
      }
    }
  }
  uint32_t calls() const {
    uint32_t all = 0;
    for ( const auto & [ operation, count ] : hardware->callCount() ) {
      all += count;
    }
    return all;
  }

  bool settled = true;
  const Vex::Ptr< SimulatedSwitch > hardware = Vex::makePtr< SimulatedSwitch >();
  const Vex::Ptr< Loom::TaskScheduler > scheduler = Vex::makePtr< Loom::TaskScheduler >();
  Vex::Ptr< EvpnFloodingSmHelper > chip =
      Vex::makePtr< Switch::SwitchFloodingHelper >( "chip", hardware );
  Vex::Ptr< KezHelper::Takeover > takeover;
  Vex::Ptr< EvpnFloodingSmHelper > helper;
};

TEST_F( TakeoverTest, SweepsOnceInputsAreCompleteAndLookedAt ) {
  EXPECT_EQ( helper->createVlan( 10, 110 ), HwProgrammingStatus::programmed );
  EXPECT_EQ( helper->createNonDfPort( "Ethernet1", "Ethernet1", 10 ),
             HwProgrammingStatus::programmed );
  helper->deleteNonDfPort( "Ethernet1", "Ethernet1", 10 ); // and wanted again, as is the VLAN
  helper->deleteVlan( 10, 110 );
  EXPECT_EQ( helper->createVlan( 10, 110 ), HwProgrammingStatus::programmed );
  EXPECT_EQ( helper->createNonDfPort( "Ethernet1", "Ethernet1", 10 ),
             HwProgrammingStatus::programmed );
  EXPECT_EQ( helper->createNonDfPort( "Ethernet3", "Ethernet3", 10 ),
             HwProgrammingStatus::programmed );
  helper->deleteNonDfPort( "Ethernet3", "Ethernet3", 10 );
  EXPECT_EQ( calls(), 1u ); // the new port's
  advance( 10 );
  EXPECT_TRUE( takeover->collects() );
  settled = false;
  takeover->inputsAreComplete();
  advance( 10 );
  EXPECT_TRUE( takeover->collects() );
  EXPECT_EQ( calls(), 1u );
  settled = true;
  advance( 1 );
  EXPECT_TRUE( takeover->hasEnded() );
  EXPECT_EQ( hardware->nonDfPorts(), 1u );
  EXPECT_TRUE( hardware->nonDfPort( { "Ethernet1", "Ethernet1", 10 } ) );
  EXPECT_EQ( hardware->vlan( 10 ), VlanIdOrNone( 110 ) );
  EXPECT_EQ( calls(), 3u ); // and the two ports that nobody wanted
  EXPECT_FALSE( scheduler->nextDeadline() );
  // From now on every call is the chip's.
  helper->deleteNonDfPort( "Ethernet1", "Ethernet1", 10 );
  helper->deleteVlan( 10, 110 );
  EXPECT_EQ( calls(), 5u );
  EXPECT_EQ( hardware->refusalCounts(), 0u );
}

TEST_F( TakeoverTest, EndsAtItsTimeLimitAndSweepsInSlices ) {
  for ( uint32_t i = 1; i <= 5; ++i ) {
    hardware->nonDfPortIs( { "Ethernet9", "Ethernet9", static_cast< uint16_t >( i ) } );
  }
  makeHelper();
  scheduler->workBudgetIs( 1 );
  takeover->timeLimitIs( 20 );
  advance( 19.9 );
  EXPECT_TRUE( takeover->collects() );
  EXPECT_EQ( calls(), 0u );
  Vex::Clock::virtualIs( 20.1 );
  scheduler->runReady();
  EXPECT_EQ( takeover->state(), TakeoverState::sweeping );
  EXPECT_EQ( calls(), 1u );
  // What is asked for while the sweep goes on is kept if it still stands.
  EXPECT_EQ( helper->createVlan( 10, 110 ), HwProgrammingStatus::programmed );
  EXPECT_EQ( calls(), 1u );
  advance( 1 );
  EXPECT_TRUE( takeover->hasEnded() );
  EXPECT_EQ( hardware->nonDfPorts(), 0u );
  EXPECT_TRUE( hardware->vlanHas( 10 ) );
}

// What differs is removed and made, or written over; what is refused then stands as the chip has
// it.
TEST_F( TakeoverTest, WhatDiffersIsReplaced ) {
  const Tunnel::TunnelTable::TunnelId tunnelId( 5 );
  const Kez::HwTunnelId hwTunnelId( Kez::hwTunnelIdTypeDefault, 1 );
  hardware->esiDataIs( { "Ethernet1", "Ethernet1", 10 },
                       { tunnelId, hwTunnelId, Wire::MplsLabel( 100 ), Wire::MplsLabel( 50 ) } );
  const auto create = [ & ]( uint32_t label ) {
    return helper->createEsiData( "Ethernet1", "Ethernet1", 10, tunnelId, hwTunnelId,
                                  Wire::MplsLabel( label ), Wire::MplsLabel( 50 ) );
  };
  makeHelper();
  EXPECT_EQ( helper->createVlan( 10, 111 ), HwProgrammingStatus::programmed );
  EXPECT_EQ( hardware->callCount( Operation::deleteVlan ), 1u );
  EXPECT_EQ( hardware->vlan( 10 ), VlanIdOrNone( 111 ) );
  EXPECT_EQ( create( 101 ), HwProgrammingStatus::programmed );
  EXPECT_EQ( hardware->callCount( Operation::deleteEsiData ), 1u );
  chip->updateSupportedOnCreateEsiDataIs( true );
  EXPECT_TRUE( helper->updateSupportedOnCreateEsiData() );
  EXPECT_EQ( create( 102 ), HwProgrammingStatus::programmed );
  EXPECT_EQ( hardware->callCount( Operation::deleteEsiData ), 1u );
  hardware->faultIs( Operation::createEsiData )->nextCallsIs( 1 );
  EXPECT_EQ( create( 103 ), HwProgrammingStatus::notProgrammed );
  EXPECT_EQ( hardware->esiData( { "Ethernet1", "Ethernet1", 10 } ).dfEsiLabel,
             Wire::MplsLabel( 102 ) );
  EXPECT_EQ( takeover->replaced(), 4u );
  EXPECT_EQ( hardware->refusalCounts(), 0u );
}

TEST_F( TakeoverTest, AChipThatCannotBeAskedIsCalled ) {
  const auto stub = KezHelper::evpnFloodingSmHelperStubFactory( "stub" );
  chip = stub;
  makeHelper();
  EXPECT_EQ( helper->createVlan( 10, 110 ), HwProgrammingStatus::programmed );
  helper->deleteVlan( 10, 110 );
  helper->createNonDfPort( "Ethernet1", "Ethernet1", 10 );
  helper->deleteNonDfPort( "Ethernet1", "Ethernet1", 10 );
  EXPECT_EQ( stub->createVlanCount(), 1u );
  EXPECT_EQ( stub->deleteVlanCount(), 1u );
  EXPECT_EQ( stub->createNonDfPortCount(), 1u );
  EXPECT_EQ( stub->deleteNonDfPortCount(), 1u );
  EXPECT_EQ( takeover->inherited(), 0u );
}

} // namespace
