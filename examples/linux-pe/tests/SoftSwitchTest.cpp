#include "Options.h"
#include "Vex/Clock.h"
#include "Wiring.h"

#include "Bridging/VlanConfig.h"
#include <chrono>
#include <gtest/gtest.h>
#include <poll.h>

namespace {

using namespace LinuxPe;
using Bridging::VlanId;
using Wire::IntfId;

// A provider edge without ports, which takes no rights: the switch's thread runs all the same.
class SoftSwitchTest : public testing::Test {
protected:
  template< class T > Vex::Ptr< T > root( const char * name ) const {
    return Vex::dynamicCast< T >( wiring.roots.root( name )->entity );
  }
  // As the host's loop does; false when it does not come about in ten seconds.
  bool until( const std::function< bool() > & holds ) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds( 10 );
    while ( !holds() && std::chrono::steady_clock::now() < end ) {
      wiring.scheduler->runReady();
      pollfd watched{ wiring.softSwitch->descriptor(), POLLIN, 0 };
      if ( poll( &watched, 1, 10 ) > 0 ) {
        wiring.softSwitch->serve();
      }
    }
    return holds();
  }

  void programPort() {
    root< Bridging::VlanStatusDir >( "vlanStatusDir" )
        ->vlanStatusIs( 10 )
        ->vlanPortStatusIs( port, Bridging::VlanPortStatus::forwarding );
    evpnStatus->vlanToDot1qIs( 10, 110 );
  }
  // The machines end and start anew, over inputs that `meanwhile` has changed.
  void restart( const std::function< void() > & meanwhile ) {
    wiring = unwired( wiring );
    meanwhile();
    wiring = wire( {}, wiring );
    ASSERT_TRUE( until( [ & ] { return wiring.takeover->hasEnded(); } ) );
  }

  const IntfId port{ "Ethernet1" };
  Wiring wiring = wire( {} );
  const Vex::Ptr< Switch::SimulatedSwitch > books = root< Switch::SimulatedSwitch >( "switch" );
  const Vex::Ptr< Evpn::EvpnStatus > evpnStatus = root< Evpn::EvpnStatus >( "evpnStatus" );
  const Vex::Ptr< KezHelper::LateCalls > calls = root< KezHelper::LateCalls >( "lateCalls" );
};

TEST_F( SoftSwitchTest, theSwitchAnswersFromItsThread ) {
  programPort();
  EXPECT_FALSE( books->vlanHas( 10 ) ); // accepted, and not answered yet
  EXPECT_GT( calls->pending(), 0 );
  ASSERT_TRUE( until( [ & ] { return books->dot1qMappingHas( { port, port, 10 } ); } ) );
  EXPECT_EQ( books->vlan( 10 ), Bridging::VlanIdOrNone( 110 ) );
  evpnStatus->vlanToDot1qDel( 10 );
  root< Bridging::VlanStatusDir >( "vlanStatusDir" )->vlanStatusDel( 10 );
  EXPECT_TRUE( until( [ & ] { return books->vlans() + books->dot1qMappings() == 0; } ) );
}

// The machine hears that what it takes to stand is lost, and tries again.
TEST_F( SoftSwitchTest, whatIsRefusedLateComesWhenThereIsRoom ) {
  books->capacityIs( Switch::Table::nonDfPort, 1 );
  for ( const char * name : { "Ethernet1", "Ethernet2" } ) {
    evpnStatus->evpnVlanFloodStatusIs( 10 )->floodFilterIs( IntfId( name ) );
  }
  ASSERT_TRUE( until( [ & ] { return calls->lost() == 1; } ) );
  EXPECT_EQ( books->nonDfPorts(), 1 );
  books->capacityDel( Switch::Table::nonDfPort );
  EXPECT_TRUE( until( [ & ] { return books->nonDfPorts() == 2; } ) );
}

TEST_F( SoftSwitchTest, machinesThatStartAnewCallForNothingThatStands ) {
  programPort(); // of which the switch has not answered when they end
  restart( [] {} );
  EXPECT_EQ( books->vlan( 10 ), Bridging::VlanIdOrNone( 110 ) );
  EXPECT_TRUE( until( [ & ] { return books->dot1qMappingHas( { port, port, 10 } ); } ) );
  restart( [] {} );
  EXPECT_EQ( wiring.takeover->kept(), 2 ); // the VLAN and the mapping
  EXPECT_EQ( wiring.takeover->replaced() + wiring.takeover->removed(), 0 );
  EXPECT_EQ( wiring.lateCalls->made(), 0 );
}

TEST_F( SoftSwitchTest, whatNobodyAsksForAfterARestartIsRemoved ) {
  programPort();
  ASSERT_TRUE( until( [ & ] { return books->dot1qMappingHas( { port, port, 10 } ); } ) );
  restart( [ & ] { evpnStatus->vlanToDot1qDel( 10 ); } );
  EXPECT_TRUE( until( [ & ] { return books->vlans() + books->dot1qMappings() == 0; } ) );
  EXPECT_EQ( wiring.takeover->removed(), 2 );
}

class OptionsTest : public testing::Test {
protected:
  // Whether they are refused with such words.
  static testing::AssertionResult says( std::string_view words,
                                        const std::vector< Vex::String > & arguments ) {
    try {
      parseOptions( arguments );
      return testing::AssertionFailure() << "nothing is wrong";
    } catch ( const UsageError & error ) {
      return std::string_view( error.what() ).find( words ) != std::string_view::npos
                 ? testing::AssertionSuccess()
                 : testing::AssertionFailure() << error.what();
    }
  }
};

TEST_F( OptionsTest, aPortHasAnInterfaceAndMayHaveATag ) {
  const auto options = parseOptions(
      { "--socket", "s", "--port", "Ethernet1=veth1/110", "--port", "Ethernet2=veth2" } );
  ASSERT_EQ( options.hardware.ports.size(), 2 );
  EXPECT_EQ( options.hardware.ports[ 0 ].interface, "veth1" );
  EXPECT_EQ( options.hardware.ports[ 0 ].accessTag, Bridging::VlanIdOrNone( 110 ) );
  EXPECT_EQ( options.hardware.ports[ 1 ].interface, "veth2" );
  EXPECT_EQ( options.hardware.ports[ 1 ].accessTag, Bridging::VlanIdOrNone() );
}

TEST_F( OptionsTest, whatCannotBeFollowedIsSaid ) {
  EXPECT_TRUE( says( "expected --socket", {} ) );
  EXPECT_TRUE( says( "expected a value", { "--socket" } ) );
  EXPECT_TRUE( says( "found --prot", { "--prot", "x" } ) );
  EXPECT_TRUE( says( "PORT=INTERFACE", { "--port", "Ethernet1" } ) );
  EXPECT_TRUE( says( "1 to 4094", { "--port", "Ethernet1=v/4095" } ) );
  EXPECT_TRUE(
      says( "found v twice", { "--socket", "s", "--port", "Ethernet1=v", "--core", "v" } ) );
}

} // namespace
