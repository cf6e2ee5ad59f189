#include "TraceCapture.h"

#include "KezEvpn/KezEvpnLagSm.h"

#include <gmock/gmock.h>

using testing::ElementsAre;

namespace {

class EvpnLagSmTest : public testing::Test {
protected:
  void start() { sm = Kez::evpnLagSmFactory( nullptr, dir, info ); }

  void memberIs( const char * lag, const char * port ) {
    dir->lagConfigIs( Wire::IntfId( lag ) )
        ->memberIs( Wire::IntfId( port ), Hardware::Lag::PortProgType() );
  }
  // The published ports, "none" without an entry.
  std::string ports( const char * lag ) {
    const Wire::IntfId id( lag );
    return info->lagToPortHas( id ) ? Vex::text( info->lagToPort( id ) ) : "none";
  }
  static std::string ports( std::initializer_list< const char * > names ) {
    Kez::KezPortList list;
    for ( const auto * name : names ) {
      list.portIs( Wire::IntfId( name ), true );
    }
    return Vex::text( list );
  }

  Vex::Ptr< Kez::LagCreatorConfigDir > dir = Vex::makePtr< Kez::LagCreatorConfigDir >();
  Vex::Ptr< Kez::EvpnLagMemberInfo > info = Kez::evpnLagMemberInfoFactory();
  Vex::Ptr< Kez::EvpnLagSm > sm;
};

TEST_F( EvpnLagSmTest, EntryStandsWhileTheLagHasMembers ) {
  memberIs( "Port-Channel1", "Ethernet2" );
  memberIs( "Port-Channel1", "Ethernet1" );
  dir->lagConfigIs( Wire::IntfId( "Port-Channel2" ) );
  start();
  EXPECT_EQ( ports( "Port-Channel1" ), ports( { "Ethernet1", "Ethernet2" } ) );
  EXPECT_EQ( ports( "Port-Channel2" ), "none" );

  memberIs( "Port-Channel2", "Ethernet3" );
  EXPECT_EQ( ports( "Port-Channel2" ), ports( { "Ethernet3" } ) );
  const auto lag2 = dir->lagConfig( Wire::IntfId( "Port-Channel2" ) );
  lag2->memberDel( Wire::IntfId( "Ethernet3" ) );
  EXPECT_EQ( ports( "Port-Channel2" ), "none" );

  // Gone with its members still listed, then put back empty.
  const auto lag1 = dir->lagConfig( Wire::IntfId( "Port-Channel1" ) );
  dir->lagConfigDel( Wire::IntfId( "Port-Channel1" ) );
  EXPECT_EQ( ports( "Port-Channel1" ), "none" );
  dir->lagConfigIs( lag1 );
  lag1->memberIs( Wire::IntfId( "Ethernet4" ), Hardware::Lag::PortProgType() );
  EXPECT_EQ( ports( "Port-Channel1" ), ports( { "Ethernet4" } ) );

  sm = nullptr;
  EXPECT_EQ( ports( "Port-Channel1" ), ports( { "Ethernet4" } ) );
}

TEST_F( EvpnLagSmTest, TracesEveryStepAtLevelFive ) {
  TraceCapture trace( "KezEvpnLagSm" );
  start();
  const Wire::IntfId lag( "Port-Channel1" );
  dir->lagConfigIs( lag );
  EXPECT_THAT( trace.take(),
               ElementsAre( "5 EvpnLagSm::handleLagConfig lagIntfId Port-Channel1 add 1",
                            "5 EvpnLagSm::publishEvpnLagMemberInfo deleting lagIntfId "
                            "Port-Channel1" ) );
  memberIs( "Port-Channel1", "Ethernet1" );
  EXPECT_THAT( trace.take(),
               ElementsAre( "5 EvpnLagSm::handleLagMemberConfigured lagIntfId Port-Channel1",
                            "5 EvpnLagSm::processMemberIntf lagIntfId Port-Channel1 adding member "
                            "Ethernet1",
                            "5 EvpnLagSm::publishEvpnLagMemberInfo lagIntfId Port-Channel1 #ports "
                            "1" ) );
  dir->lagConfigDel( lag );
  EXPECT_THAT( trace.take(),
               ElementsAre( "5 EvpnLagSm::handleLagMemberConfigured lagIntfId Port-Channel1",
                            "5 EvpnLagSm::processMemberIntf lagIntfId Port-Channel1 deleting "
                            "member Ethernet1",
                            "5 EvpnLagSm::publishEvpnLagMemberInfo deleting lagIntfId "
                            "Port-Channel1",
                            "5 EvpnLagSm::handleLagConfig lagIntfId Port-Channel1 add 0" ) );
}

TEST_F( EvpnLagSmTest, DirectoryMayBeLeftAndAMissingOneIsFatal ) {
  memberIs( "Port-Channel1", "Ethernet1" );
  start();
  sm->lagConfigDirDel();
  memberIs( "Port-Channel1", "Ethernet2" );
  memberIs( "Port-Channel2", "Ethernet3" );
  EXPECT_EQ( ports( "Port-Channel1" ), ports( { "Ethernet1", "Ethernet2" } ) );
  EXPECT_EQ( ports( "Port-Channel2" ), "none" );
  const auto lost = Kez::evpnLagSmFactory( nullptr, nullptr, info );
  Kez::KezPortList portList;
  EXPECT_DEATH( processMemberIntf( "Port-Channel1", "Ethernet1", portList, lost ),
                "/src/KezEvpn/KezEvpnLagSm:[0-9]+: assertion failed: sm->lagConfigDir\\(\\)" );
}

TEST_F( EvpnLagSmTest, ZombieMarksOfTheMachineSwitchItOffAndRebuildIt ) {
  memberIs( "Port-Channel1", "Ethernet1" );
  start();
  sm->vexDoZombieReactors( true );
  memberIs( "Port-Channel1", "Ethernet2" );
  EXPECT_EQ( ports( "Port-Channel1" ), ports( { "Ethernet1" } ) );
  sm->vexDoZombieReactors( false );
  EXPECT_EQ( ports( "Port-Channel1" ), ports( { "Ethernet1", "Ethernet2" } ) );
}

} // namespace
