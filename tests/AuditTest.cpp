#include "KezHelper/Audit.h"
#include "KezHelper/TableView.h"
#include "Loom/TaskScheduler.h"
#include "Vex/Clock.h"
#include "agent/Shell.h"
#include "switch/SimulatedSwitch.h"
#include "switch/SwitchTable.h"

#include <gtest/gtest.h>
#include <sstream>

namespace {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using KezHelper::Audit;
using KezHelper::DifferenceKind;
using KezHelper::Repair;
using Switch::SimulatedSwitch;
using Vex::String;

auto vlans( const SimulatedSwitch & table ) {
  return KezHelper::tableView< VlanId, VlanIdOrNone >(
      [ &table ] { return table.vlan(); },
      [ &table ]( VlanId vlanId ) {
        return Switch::entryOf( table.vlanHas( vlanId ), table.vlan( vlanId ) );
      } );
}

// VLANs in hardware, on record and asked for.
class AuditTest : public testing::Test {
protected:
  AuditTest() {
    Vex::Clock::virtualIs( 0 );
    for ( uint16_t vlanId = 1; vlanId <= 100; ++vlanId ) {
      for ( const auto & side : { hardware, record, askedFor } ) {
        side->vlanIs( vlanId, 5 );
      }
    }
    auditIs( nullptr );
  }
  void auditIs( const Vex::Ptr< KezHelper::Takeover > & takeover ) {
    audit = Vex::makePtr< Audit >( scheduler, takeover );
    KezHelper::AuditParts parts;
    {
      KezHelper::AuditedSides< VlanId, VlanIdOrNone > sides;
      sides.machine = "machine";
      sides.table = "vlan";
      sides.hardware = hardwareTable.get();
      sides.record = vlans( *record );
      sides.askedFor = vlans( *askedFor );
      sides.due = [ this ]( VlanId vlanId ) { return vlanId == due; };
      sides.remove = [ this ]( VlanId vlanId, VlanIdOrNone ) {
        if ( vlanId != stuck ) {
          hardware->vlanDel( vlanId );
        }
      };
      sides.forget = [ this ]( VlanId vlanId, VlanIdOrNone ) { record->vlanDel( vlanId ); };
      parts.add( std::move( sides ) );
    }
    audit->partsAre( record, std::move( parts ) );
  }
  // One round and what it takes.
  size_t round( bool repairs = false ) {
    audit->begin( repairs );
    size_t turns = 0;
    for ( ; audit->isUnderWay(); ++turns ) {
      scheduler->runReady();
    }
    return turns;
  }
  DifferenceKind kind( const char * entry ) const { return audit->difference( entry )->kind(); }

  const Vex::Ptr< Loom::TaskScheduler > scheduler = Vex::makePtr< Loom::TaskScheduler >();
  const Vex::Ptr< SimulatedSwitch > hardware = Vex::makePtr< SimulatedSwitch >();
  const Vex::Ptr< SimulatedSwitch > record = Vex::makePtr< SimulatedSwitch >();
  const Vex::Ptr< SimulatedSwitch > askedFor = Vex::makePtr< SimulatedSwitch >();
  const std::unique_ptr< const KezHelper::HwTable< VlanId, VlanIdOrNone > > hardwareTable =
      Switch::switchTable< VlanId, VlanIdOrNone >(
          [ this ] { return hardware->vlan(); },
          [ this ]( VlanId vlanId ) {
            return Switch::entryOf( hardware->vlanHas( vlanId ), hardware->vlan( vlanId ) );
          } );
  VlanId due = 4000;
  VlanId stuck = 4000;
  Vex::Ptr< Audit > audit;
};

TEST_F( AuditTest, TellsEachKindOnceAndWhatIsRightAgainNoMore ) {
  hardware->vlanDel( 1 );
  hardware->vlanIs( 2, 6 );
  record->vlanDel( 3 );
  askedFor->vlanDel( 4 );
  askedFor->vlanIs( 5, 6 );
  askedFor->vlanIs( 200, 5 );
  askedFor->vlanIs( 6, 6 );
  due = 6;
  round();
  EXPECT_EQ( audit->compared(), 101u );
  ASSERT_EQ( audit->differences(), 6u );
  EXPECT_EQ( kind( "vlan/1" ), DifferenceKind::missing );
  EXPECT_EQ( kind( "vlan/2" ), DifferenceKind::different );
  EXPECT_EQ( kind( "vlan/3" ), DifferenceKind::unexpected );
  EXPECT_EQ( kind( "vlan/4" ), DifferenceKind::lagging );
  EXPECT_EQ( kind( "vlan/5" ), DifferenceKind::lagging );
  EXPECT_EQ( kind( "vlan/200" ), DifferenceKind::lagging );
  EXPECT_EQ( audit->found( DifferenceKind::lagging ), 3u );
  EXPECT_EQ( audit->difference( "vlan/2" )->inHardware(), "6" );
  EXPECT_EQ( audit->difference( "vlan/2" )->onRecord(), "5" );

  Vex::Clock::virtualIs( 10 );
  hardware->vlanIs( 1, 5 );
  hardware->vlanDel( 2 );
  hardware->vlanDel( 7 );
  round();
  EXPECT_FALSE( audit->differenceHas( "vlan/1" ) );
  EXPECT_EQ( kind( "vlan/2" ), DifferenceKind::missing );
  EXPECT_EQ( audit->difference( "vlan/2" )->since(), 0 );
  EXPECT_EQ( audit->difference( "vlan/7" )->since(), 10 );
  EXPECT_EQ( audit->found( DifferenceKind::different ), 0u );
}

TEST_F( AuditTest, RepairsByRemovingAndForgettingAndSaysWhatItCannot ) {
  hardware->vlanDel( 1 );
  hardware->vlanIs( 2, 6 );
  record->vlanDel( 3 );
  hardware->vlanIs( 4, 6 );
  stuck = 4;
  askedFor->vlanIs( 5, 6 );
  round( true );
  EXPECT_FALSE( record->vlanHas( 1 ) );
  EXPECT_FALSE( record->vlanHas( 2 ) || hardware->vlanHas( 2 ) );
  EXPECT_FALSE( hardware->vlanHas( 3 ) );
  EXPECT_EQ( audit->repaired(), 3u );
  EXPECT_EQ( audit->difference( "vlan/4" )->repair(), Repair::impossible );
  EXPECT_EQ( audit->difference( "vlan/5" )->repair(), Repair::none );
  EXPECT_TRUE( record->vlanHas( 5 ) && hardware->vlanHas( 5 ) );
}

// A round that yields after each entry meets entries that come and go meanwhile.
TEST_F( AuditTest, YieldsAndStaysRightWhileEntriesComeAndGo ) {
  scheduler->workBudgetIs( 1 );
  EXPECT_GT( round(), 100u );
  audit->begin( false );
  for ( uint16_t i = 0; audit->isUnderWay(); ++i ) {
    scheduler->runReady();
    const auto gone = static_cast< uint16_t >( i % 100 + 1 );
    const auto come = static_cast< uint16_t >( ( i + 50 ) % 100 + 1 );
    for ( const auto & side : { askedFor, record, hardware } ) {
      side->vlanDel( gone );
      side->vlanIs( come, static_cast< uint16_t >( i % 4000 + 1 ) );
    }
  }
  EXPECT_EQ( audit->differences(), 0u );
}

TEST_F( AuditTest, CountsWhatItDoesNotKeep ) {
  audit->differenceLimitIs( 2 );
  hardware->vlanDelAll();
  round();
  EXPECT_EQ( audit->differences(), 2u );
  EXPECT_EQ( audit->found( DifferenceKind::missing ), 100u );
  // What is right again leaves its place to others.
  hardware->vlanIs( 1, 5 );
  hardware->vlanIs( 2, 5 );
  round();
  EXPECT_EQ( audit->differences(), 2u );
  EXPECT_FALSE( audit->differenceHas( "vlan/1" ) );
}

TEST_F( AuditTest, RepairsFromWhereItStandsWhenAskedToInARound ) {
  scheduler->workBudgetIs( 1 );
  hardware->vlanIs( 200, 5 );
  audit->begin( false );
  scheduler->runReady();
  round( true );
  EXPECT_FALSE( hardware->vlanHas( 200 ) );
  hardware->vlanIs( 200, 5 );
  round();
  EXPECT_TRUE( hardware->vlanHas( 200 ) );
}

TEST_F( AuditTest, BeginsByItselfAndOnlyOverHardwareThatHasBeenTakenOver ) {
  const auto takeover = Vex::makePtr< KezHelper::Takeover >( scheduler );
  auditIs( takeover );
  const auto advanceTo = [ & ]( double time ) {
    for ( double now = Vex::Clock::now(); now < time; ) {
      now = std::min( time, now + 0.5 );
      Vex::Clock::virtualIs( now );
      for ( int turn = 0; turn < 10; ++turn ) {
        scheduler->runReady();
      }
    }
  };
  audit->intervalIs( 10 );
  advanceTo( 15 );
  EXPECT_TRUE( audit->isUnderWay() );
  EXPECT_EQ( audit->rounds(), 0u );
  takeover->inputsAreComplete();
  advanceTo( 20 );
  EXPECT_EQ( audit->rounds(), 1u );
  advanceTo( 42 );
  EXPECT_EQ( audit->rounds(), 3u );
  audit->intervalIs( 0 );
  advanceTo( 100 );
  EXPECT_EQ( audit->rounds(), 3u );
}

// Plays lines in an agent.
void play( std::initializer_list< String > lines ) {
  Vex::Clock::virtualIs( 0 );
  auto wiring = Agent::wire();
  std::ostringstream out;
  Agent::Shell shell( wiring, out, out );
  for ( const auto & line : lines ) {
    shell.execute( line, line );
  }
  EXPECT_EQ( shell.failures(), 0u ) << out.str();
}

const String segment = "evpnStatus.ethernetSegmentStatus[Ethernet1].remoteEsiLabel";
const String pool = "switch.hwTunnelIdPool[hwTunnelIdTypeDefault].inUse";

// Ids that nobody uses are given back; one that hardware gave up cannot be got again.
TEST( AuditOfHwTunnelIdsTest, TellsWhichAreInUseForNobodyAndWhichAreNotInUse ) {
  play( { "set " + segment + "[DynamicTunnel0.1] 2:100",
          "set " + segment + "[DynamicTunnel0.2] 2:100", "del " + pool + "[0:1]",
          "set " + pool + "[0:2] 7", "set " + pool + "[0:3] 9", "audit repair",
          "expect audit.found[missing] 1",
          "expect audit.difference[hwTunnelIdsInUse/0:1].repair impossible",
          "expect audit.difference[hwTunnelIdsInUse/0:2].kind different",
          "expect audit.difference[hwTunnelIdsInUse/0:2].repair impossible",
          "expect audit.difference[hwTunnelIdsInUse/0:3].kind unexpected",
          "expect no " + pool + "[0:3]", "expect " + pool + "[0:2] 7",
          "expect tunnelIdHwTunnelId.tunnelIdToHwTunnelId count 2" } );
}

TEST( AuditOfHwTunnelIdsTest, GivesAnIdThatNobodyUsedToATunnelThatWaits ) {
  play( { "set switch.capacity[hwTunnelIdTypeDefault] 1", "set " + pool + "[0:1] 9",
          "set " + segment + "[DynamicTunnel0.1] 2:100",
          "expect evpnHwTunnelIdSm.unprogrammedTunnel[1]", "audit repair",
          "expect tunnelIdHwTunnelId.tunnelIdToHwTunnelId[1] 1,0:1" } );
}

// What stays as it was, since what it is to become cannot be used, has its ids on record.
TEST( AuditOfEsiDataTest, FindsOtherIdsWhereDataIsToBeProgrammedAnew ) {
  play( { "set " + segment + "[DynamicTunnel14.1] 0:0",
          "set floodingHelper.updateSupportedOnCreateEsiData true",
          "set " + segment + "[DynamicTunnel0.3] 2:100",
          "set evpnStatus.localEsiLabel[Ethernet1] 2:51",
          "set evpnStatus.ethernetSegmentStatus[Ethernet1].designatedForwarderTep[2] "
          "DynamicTunnel0.3",
          "set evpnStatus.ethernetSegmentStatus[Ethernet1].designatedForwarderTep[2] "
          "DynamicTunnel14.1",
          "audit", "expect no audit.found[different]",
          "set switch.esiData[Ethernet1,Ethernet1,2] 9,0:9,100,50", "audit repair",
          "expect audit.found[different] 1", "expect no switch.esiData", "audit",
          "expect no audit.difference", "check" } );
}

// Which FECs are used is known without hardware, which has lost or changed the users.
TEST( AuditOfFecsTest, LeavesNoFecBehindThatTamperedUsersNamed ) {
  for ( const String tampering :
        { "del switch.macEntry", "set switch.macEntry[00:00:00:00:00:01,10] 999" } ) {
    play(
        { "set hostOutput.dest[1] mpls(,200,5)",
          "set evpnStatus.ethernetSegmentStatus[Ethernet1].remoteEsiLabel[DynamicTunnel0.5] 2:100",
          "set hostOutput.host[00:00:00:00:00:01,10] 1", "advance 1", "expect switch.fec count 1",
          tampering, "del hostOutput.host", "advance 10", "expect no switch.fec",
          "expect no switch.macEntry", "expect no switch.hwFecIdUse",
          "expect no switch.refusalCount", "audit", "expect no audit.difference", "check" } );
  }
}

} // namespace
