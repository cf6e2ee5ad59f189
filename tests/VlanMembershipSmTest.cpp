#include "TraceCapture.h"

#include "KezEvpn/KezEvpnVlanMembershipSm.h"

#include <gmock/gmock.h>

#include <map>
#include <random>
#include <set>

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

// A plain account of the rule: a pair is judged when its configuration or port status changes,
// and where it is configured when its interface's filter does.
TEST_F( VlanMembershipSmTest, AfterAnyEventThePublishedPairsAreThoseOfTheRule ) {
  using Pair = std::pair< int, std::string >;
  std::set< Pair > inConfig;
  std::set< Pair > inStatus;
  std::set< std::string > filtered;
  std::set< Pair > expected;
  const auto judge = [ & ]( const Pair & pair ) {
    const auto & source = filtered.contains( pair.second ) ? inConfig : inStatus;
    if ( source.contains( pair ) ) {
      expected.insert( pair );
    } else {
      expected.erase( pair );
    }
  };
  const auto judgeVlan = [ & ]( std::set< Pair > & source, int vlan ) {
    std::set< Pair > gone;
    std::erase_if( source, [ & ]( const Pair & pair ) {
      return pair.first == vlan && gone.insert( pair ).second;
    } );
    for ( const auto & pair : gone ) {
      judge( pair );
    }
  };
  std::mt19937 random( 11 );
  start();
  for ( int event = 0; event < 8000; ++event ) {
    const int vlan = static_cast< int >( random() % 4 + 1 );
    const std::string name = "Ethernet" + std::to_string( random() % 5 + 1 );
    const Wire::IntfId intf( name );
    const Pair pair( vlan, name );
    switch ( random() % 9 ) {
    case 0:
    case 1:
      configured( vlan, intf );
      inConfig.insert( pair ).second ? judge( pair ) : void();
      break;
    case 2:
    case 3:
      operational( vlan, intf );
      inStatus.insert( pair ).second ? judge( pair ) : void();
      break;
    case 4:
      if ( const auto vlanConfig = config->vlanConfig( vlan ) ) {
        vlanConfig->intfDel( intf );
        inConfig.erase( pair ) ? judge( pair ) : void();
      }
      if ( const auto vlanStatus = statusDir->vlanStatus( vlan ) ) {
        vlanStatus->vlanPortStatusDel( intf );
        inStatus.erase( pair ) ? judge( pair ) : void();
      }
      break;
    case 5:
      config->vlanConfigDel( vlan );
      judgeVlan( inConfig, vlan );
      break;
    case 6: // a new machine over what stands published: every pair is judged
      sm = nullptr;
      start();
      expected.clear();
      std::for_each( inConfig.begin(), inConfig.end(), judge );
      std::for_each( inStatus.begin(), inStatus.end(), judge );
      break;
    case 7:
      statusDir->vlanStatusDel( vlan );
      judgeVlan( inStatus, vlan );
      break;
    default:
      evpnStatus->encapBumFilterIs( intf, !filtered.contains( name ) );
      filtered.contains( name ) ? void( filtered.erase( name ) ) : void( filtered.insert( name ) );
      for ( const auto & each : inConfig ) {
        each.second == name ? judge( each ) : void();
      }
    }
    std::set< Pair > published;
    for ( const auto [ vlanId, entry ] : evpnVlanStatus->vlanStatus() ) {
      ASSERT_GT( entry->members(), 0u ) << "event " << event;
      for ( const auto intfId : entry->member() ) {
        published.emplace( vlanId.value(), Vex::text( intfId ) );
      }
    }
    ASSERT_EQ( published, expected ) << "event " << event;
  }
}

} // namespace
