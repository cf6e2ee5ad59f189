#include "TraceCapture.h"

#include "KezEvpn/KezEvpnRemoteInfoFinderSm.h"

#include <gmock/gmock.h>

#include <map>
#include <random>
#include <set>

using testing::ElementsAre;
using testing::IsEmpty;

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

// Against the definition: as many as there are (VLAN, MAC, destination) in the input.
TEST_F( EvpnRemoteInfoFinderSmTest, AfterAnyEventTheCountsAreThoseOfTheInput ) {
  const auto inInput = [ & ] {
    Counts expected;
    for ( const auto & [ vlan, vlanFloodSet ] : output->vlanFloodSet() ) {
      for ( const auto & [ mac, set ] : vlanFloodSet->floodSet() ) {
        for ( const auto & dest : set->destSet() ) {
          if ( dest.destType() == L2Rib::destTypeMpls_ && dest.mpls().tunnelId().value() != 0 ) {
            ++expected[ dest.mpls().tunnelId().value() ];
          }
        }
      }
    }
    return expected;
  };
  std::mt19937 random( 5 );
  const auto dest = [ & ] {
    return random() % 6 ? mpls( random() % 5, random() % 2 ) : Dest::ofVxlan( random() % 3 );
  };
  const auto filled = [ & ]( const Vex::Ptr< L2Rib::FloodSet > & set ) {
    for ( auto n = random() % 4; n > 0; --n ) {
      set->destSetIs( dest() );
    }
    return set;
  };
  for ( int i = 0; i < 5; ++i ) {
    filled( floodSet( random() % 3 + 1, random() % 3 ) );
  }
  start();
  Vex::Ptr< L2Rib::VlanFloodSet > left; // a VLAN that was deleted, to be put back
  size_t mostTunnels = 0;
  for ( int event = 0; event < 20000; ++event ) {
    const Bridging::VlanId vlan = random() % 3 + 1;
    const Wire::EthAddr mac = random() % 3;
    const auto present = output->vlanFloodSet( vlan );
    switch ( random() % 10 ) {
    case 0:
    case 1:
    case 2:
      floodSet( vlan, mac )->destSetIs( dest() );
      break;
    case 3:
    case 4:
      floodSet( vlan, mac )->destSetDel( dest() );
      break;
    case 5: // a flood set leaves, or one comes filled, in another's place perhaps
      if ( random() % 2 ) {
        output->vlanFloodSetIs( vlan )->floodSetDel( mac );
      } else {
        output->vlanFloodSetIs( vlan )->floodSetIs(
            filled( Vex::makePtr< L2Rib::FloodSet >( mac ) ) );
      }
      break;
    case 6:
      left = present ? present : left;
      output->vlanFloodSetDel( vlan );
      break;
    case 7:
      if ( left && !left->parent() ) {
        filled( left->floodSetIs( mac ) );
        output->vlanFloodSetIs( left );
      }
      break;
    case 8:
      random() % 8 ? present ? present->floodSetDelAll() : void() : output->vlanFloodSetDelAll();
      break;
    default:
      sm->vexDoZombieReactors( true );
      ASSERT_EQ( counts(), inInput() ) << "event " << event;
      sm->vexDoZombieReactors( false );
    }
    ASSERT_EQ( counts(), inInput() ) << "event " << event;
    mostTunnels = std::max( mostTunnels, counts().size() );
  }
  EXPECT_EQ( mostTunnels, 4u );
}

} // namespace
