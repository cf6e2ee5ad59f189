#include "TraceCapture.h"

#include "KezEvpn/KezEvpnRemoteInfoFinderSm.h"

#include <gmock/gmock.h>

#include <map>

using testing::ElementsAre;

namespace {

using L2Rib::Dest;

class EvpnRemoteInfoFinderSmTest : public testing::Test {
protected:
  using Counts = std::map< uint64_t, uint32_t >;

  void start() { sm = Kez::evpnRemoteInfoFinderSmFactory( output, remoteInfo ); }
  Vex::Ptr< L2Rib::FloodSet > floodSet( Bridging::VlanId vlan, Wire::EthAddr mac ) {
    return output->vlanFloodSetIs( vlan )->floodSetIs( mac );
  }
  static Dest mpls( uint64_t tunnelId, uint32_t label = 100 ) {
    return Dest::ofMpls( { {}, label, tunnelId } );
  }
  Counts counts() const {
    Counts all;
    for ( const auto [ tunnelId, count ] : remoteInfo->remoteTunnelId() ) {
      all[ tunnelId.value() ] = count;
    }
    return all;
  }

  Vex::Ptr< L2Rib::FloodSetOutput > output = Vex::makePtr< L2Rib::FloodSetOutput >();
  Vex::Ptr< Kez::EvpnRemoteInfo > remoteInfo = Kez::evpnRemoteInfoFactory();
  Vex::Ptr< Kez::EvpnRemoteInfoFinderSm > sm;
};

TEST_F( EvpnRemoteInfoFinderSmTest, OnlyMplsDestinationsWithATunnelCountUnderTheTunnelTheyName ) {
  const auto policy = Wire::FecIdIntfId::srTePolicyIntfId( 9 );
  const auto set = floodSet( 10, 1 );
  for ( const auto & dest : { Dest::ofIntf( policy ), Dest::ofVxlan( 7 ), Dest::ofTunnel( 7 ),
                              mpls( 0 ), Dest::ofMpls( { policy, 100, 5 } ), mpls( 5 ) } ) {
    set->destSetIs( dest );
  }
  start();
  EXPECT_EQ( counts(), ( Counts{ { 5, 2 } } ) );
  set->destSetDelAll();
  EXPECT_EQ( counts(), Counts() );
}

TEST_F( EvpnRemoteInfoFinderSmTest, TracesHandlersAndCounts ) {
  const auto set = floodSet( 10, 0xa );
  start();
  TraceCapture trace( "KezEvpnRemoteInfoFinderSm" );
  set->destSetIs( mpls( 5 ) );
  const std::string where = "vlan: 10 mac: 00:00:00:00:00:0a";
  const std::string handlers[] = { "8 EvpnRemoteInfoFinderSm::VexVlanFloodSet::handleDestSet " +
                                       where + " dest: mpls(,100,5)",
                                   "8  processMplsDest  " + where + " dest: mpls(,100,5)" };
  EXPECT_THAT( trace.take(), ElementsAre( handlers[ 0 ], handlers[ 1 ],
                                          "5  Incrementing remoteTunnelId reference to 1",
                                          "8 New refcount of tunnel 5 is 1" ) );
  set->destSetDel( mpls( 5 ) );
  EXPECT_THAT( trace.take(), ElementsAre( handlers[ 0 ], handlers[ 1 ],
                                          "5  Decrementing remoteTunnelId reference to 0",
                                          "8 New refcount of tunnel 5 is 0" ) );
  set->destSetIs( mpls( 0 ) );
  EXPECT_EQ( trace.take().back(), "1   Invalid tunnelId not supported 0" );
  floodSet( 10, 0xb );
  EXPECT_THAT( trace.take(), ElementsAre( "8 EvpnRemoteInfoFinderSm::VexVlanFloodSet::VexFloodSet::"
                                          "handleFloodSet vlan: 10 mac: 00:00:00:00:00:0b" ) );
}

TEST_F( EvpnRemoteInfoFinderSmTest, CountingBelowZeroIsFatal ) {
  start();
  EXPECT_DEATH( sm->processMplsDest( 10, 1, mpls( 5 ) ),
                "/src/KezEvpn/KezEvpnRemoteInfoFinderSm:[0-9]+: assertion failed: "
                "remoteInfo\\(\\)->remoteTunnelId\\( tunnelId \\) > 0" );
}

TEST_F( EvpnRemoteInfoFinderSmTest, FilledFloodSetsComeAndGoAsAWhole ) {
  const auto filled = []( std::initializer_list< uint64_t > tunnels ) {
    const auto set = Vex::makePtr< L2Rib::FloodSet >( 1 );
    for ( const auto tunnelId : tunnels ) {
      set->destSetIs( mpls( tunnelId ) );
    }
    return set;
  };
  start();
  const auto vlan = output->vlanFloodSetIs( 10 );
  vlan->floodSetIs( filled( { 5, 6 } ) );
  EXPECT_EQ( counts(), ( Counts{ { 5, 1 }, { 6, 1 } } ) );
  vlan->floodSetIs( filled( { 6 } ) ); // in the other's place
  EXPECT_EQ( counts(), ( Counts{ { 6, 1 } } ) );
  output->vlanFloodSetDel( 10 );
  EXPECT_EQ( counts(), Counts() );
  vlan->floodSetIs( 2 )->destSetIs( mpls( 7 ) ); // comes back with that alone
  output->vlanFloodSetIs( vlan );
  EXPECT_EQ( counts(), ( Counts{ { 7, 1 } } ) );
  sm->vexDoZombieReactors( true );
  output->vlanFloodSet( 10 )->floodSet( 2 )->destSetDel( mpls( 7 ) );
  floodSet( 10, 2 )->destSetIs( mpls( 8 ) );
  floodSet( 11, 3 )->destSetIs( mpls( 8 ) );
  floodSet( 11, 3 )->destSetIs( mpls( 9 ) );
  sm->vexDoZombieReactors( false );
  EXPECT_EQ( counts(), ( Counts{ { 8, 2 }, { 9, 1 } } ) );
  output->vlanFloodSetDelAll();
  EXPECT_EQ( counts(), Counts() );
}

} // namespace
