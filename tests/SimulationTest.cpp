// The simulation of the whole system: some of its seeds, every scenario with each of its hardware
// calls failing once, inputs in shuffled orders, and the simulation itself.
#include "sim/Events.h"
#include "sim/Shrink.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <random>

namespace {

using Sim::Lines;
using Sim::Simulation;

const std::string compare( Sim::compareLine );

TEST( SimulationTest, SeedsEndWhereTheInputsSay ) {
  for ( uint64_t seed = 1; seed <= 200; ++seed ) {
    const auto outcome = Sim::run( Sim::randomLines( seed, 500 ) );
    ASSERT_FALSE( outcome ) << "kez-sim --seeds " << seed << " --events 500: " << outcome->text;
  }
}

// Something of everything, at rest.
const Lines life{
  "set lagConfigDir.lagConfig[Port-Channel1].member[Ethernet1] portProgRxTx",
  "set vlanStatusDir.vlanStatus[1].vlanPortStatus[Port-Channel1] forwarding",
  "set evpnStatus.vlanToDot1q[1] 100",
  "set evpnStatus.evpnVlanFloodStatus[1].floodFilter[Port-Channel1]",
  "set evpnStatus.localEsiLabel[Port-Channel1] 2:50",
  "set evpnStatus.ethernetSegmentStatus[Port-Channel1].designatedForwarderTep[1] "
  "DynamicTunnel0.1",
  "set evpnStatus.ethernetSegmentStatus[Port-Channel1].remoteEsiLabel[DynamicTunnel0.1] 2:100",
  "set floodSetOutput.vlanFloodSet[1].floodSet[ff:ff:ff:ff:ff:ff].destSet[mpls(,100,1)]",
  "set lfibStatus.evpnEthernetSegmentFilterVia[evpnEthernetSegmentFilter:1] "
  "evpnEthernetSegmentFilter:1,500,Ethernet1",
  "set lfibStatus.viaSet[1] 1,evpnEthernetSegmentFilter:1",
  "set lfibStatus.route[1] 1,1",
  "set lfibTrackingStatus.routeKeyBacklog[1]",
  "set hostOutput.dest[1] mpls(,200,1)",
  "set hostOutput.host[00:00:00:00:00:01,1] 1",
  compare,
};

// A line that makes the switch or an input other than the machines know, and what must be said of
// it. Nothing may pass unseen, nor be forgotten by a restart.
TEST( SimulationTest, WhatDiffersIsSeen ) {
  ASSERT_FALSE( Sim::run( life ) );
  const std::pair< const char *, const char * > tampering[] = {
    { "del switch.vlan[1]", "switch.vlan lacks 1 -> 100" },
    { "set switch.vlan[2] 7", "switch.vlan has 2 -> 7" },
    { "del switch.dot1qMapping", "switch.dot1qMapping lacks Port-Channel1,Ethernet1,1 -> 100" },
    { "set switch.nonDfPort[Ethernet9,Ethernet9,1]", "switch.nonDfPort has Ethernet9" },
    { "del switch.esiData", "switch.esiData lacks Port-Channel1,Ethernet1,1" },
    { "set switch.esiData[Port-Channel1,Ethernet1,1] 1,0:1,100,51", "other ids are on record" },
    { "set switch.esiPortMap[Ethernet1] 501", "the port map of Ethernet1 is not what" },
    { "del switch.esiPortMap[Ethernet1]", "route 1 is neither programmed nor parked" },
    { "set switch.hwTunnelIdPool[hwTunnelIdTypeDefault].inUse[0:2] 5", "in use has 0:2 -> 5" },
    { "del switch.fec", "switch.fec lacks 1 -> 0,[(DynamicTunnel0.1,100)],0:1" },
    { "del switch.floodSetDest", "switch.floodSetDest lacks" },
    { "del mplsFloodSetFecResponse.hwFecIdResponse", "has no answer" },
    { "del vlanFloodSetHwStatus.status", "vlanFloodSetHwStatus lacks" },
    { "del switch.macEntry", "switch.macEntry lacks 00:00:00:00:00:01,1 -> 4294967297" },
    { "set switch.macEntry[00:00:00:00:00:02,1] 1", "switch.macEntry has 00:00:00:00:00:02,1" },
    { "del macAddrFecResponse.hwFecIdResponse", "FEC 864691128455135232" },
    { "set switch.refusalCount[createVlan] 1", "wrong call" },
  };
  for ( const bool restarts : { false, true } ) {
    for ( const auto & [ line, expected ] : tampering ) {
      auto lines = life;
      if ( restarts ) {
        lines.insert( lines.end(), { "restart", compare } );
      }
      lines.insert( lines.end(), Sim::followLines.begin(), Sim::followLines.end() );
      lines.insert( lines.end(), { line, compare } );
      const auto outcome = Sim::run( lines );
      ASSERT_TRUE( outcome ) << line;
      EXPECT_GE( outcome->line, lines.size() - 2 ) << outcome->text;
      EXPECT_THAT( outcome->text, testing::HasSubstr( expected ) ) << line;
    }
  }
}

// What a machine keeps that is no longer what it states.
TEST( SimulationTest, BrokenInvariantsAreSeen ) {
  using Sim::System;
  const std::pair< void ( * )( const System & ), const char * > breaks[] = {
    { []( const System & system ) { system.dot1qSm->intfVlanSetDelAll(); },
      "evpnFloodingDot1qSm: intfVlanSet lacks VLAN 1 of Port-Channel1" },
    { []( const System & system ) {
       system.dot1qSm->unprogrammedDot1qIs( { "Ethernet9", 1 } );
     },
      "evpnFloodingDot1qSm: keys are parked and no review is due" },
    { []( const System & system ) { system.floodFilterSm->vlanIntfSetDelAll(); },
      "kezEvpnFloodFilterSm: vlanIntfSet lacks Port-Channel1 in VLAN 1" },
    { []( const System & system ) { system.esiSm->intfTunnelVlanSetDelAll(); },
      "evpnFloodingEsiSm: intfTunnelVlanSet has 0 triples of 1" },
    { []( const System & system ) { system.hwTunnelIdSm->tunnelInfoDelAll(); },
      "evpnHwTunnelIdSm: tunnelInfo of 1 lacks Port-Channel1" },
    { []( const System & system ) { system.membershipSm->intfVlanConfigSetIs( "Ethernet9" ); },
      "kezEvpnVlanMembershipSm: intfVlanConfigSet has an empty interface Ethernet9" },
    { []( const System & system ) { system.fecSm->floodSetEntryCacheDelAll(); },
      "evpnFloodSetFecSm: floodSetEntryCache has 0 destinations of 1" },
    { []( const System & system ) { system.floodSetSm->tunnelToFloodSetEntryDelAll(); },
      "evpnVlanFloodSetSm: tunnelToFloodSetEntry has 0 destinations" },
    { []( const System & system ) { system.decapSm->intfRouteDelAll(); },
      "esiFilteringDecapSm: routes and interfaces are not one to one" },
    { []( const System & system ) { system.evpnLagMemberInfo->lagToPortIs( "Port-Channel9", {} ); },
      "evpnLagSm: Port-Channel9 is published without a port" },
    { []( const System & system ) { system.mplsFloodSetOutput->vlanFloodSetIs( 9 ); },
      "vlanFloodSetFilterSm: VLAN 9 has no flood set" },
    { []( const System & system ) { system.evpnRemoteInfo->remoteTunnelIdIs( 9, 0 ); },
      "evpnRemoteInfoFinderSm: tunnel 9 is counted, and nothing uses it" },
  };
  for ( const auto & [ harm, expected ] : breaks ) {
    Simulation simulation;
    for ( const auto & line : life ) {
      ASSERT_EQ( simulation.execute( line ), "" );
    }
    harm( simulation.system() );
    EXPECT_THAT( simulation.execute( compare ), testing::HasSubstr( expected ) );
  }
}

// What few seeds come upon: a forwarder's hardware tunnel id that is lost unheard, and a tunnel
// that comes into use twice unheard, of which the first time is what counts.
TEST( SimulationTest, RareLivesEndWhereTheInputsSay ) {
  const std::string segments = "evpnStatus.ethernetSegmentStatus";
  const std::string dests =
      "set floodSetOutput.vlanFloodSet[3].floodSet[00:00:00:00:00:01].destSet";
  const Lines lives[] = {
    { "set switch.capacity[hwTunnelIdTypeDefault] 1",
      "set " + segments + "[Ethernet1].designatedForwarderTep[1] DynamicTunnel0.1",
      "set " + segments + "[Ethernet1].remoteEsiLabel[DynamicTunnel0.1] 2:100",
      "set evpnStatus.localEsiLabel[Ethernet1] 2:50", "# unheard evpnFloodingEsiSm",
      "del " + segments + "[Ethernet1].remoteEsiLabel[DynamicTunnel0.1]",
      "set " + segments + "[Ethernet2].remoteEsiLabel[DynamicTunnel0.2] 2:100",
      "set " + segments + "[Ethernet1].remoteEsiLabel[DynamicTunnel0.1] 2:100", compare },
    { dests + "[mpls(,100,3)]", "# silent evpnRemoteInfoFinderSm", dests + "[mpls(,100,1)]",
      dests + "[mpls(,101,1)]", compare },
  };
  for ( const auto & life : lives ) {
    const auto outcome = Sim::run( life );
    EXPECT_FALSE( outcome ) << outcome->text;
  }
}

TEST( SimulationTest, WhatFailsIsCutDown ) {
  auto lines = Sim::randomLines( 3, 200 );
  lines.insert( lines.end() - 1, "set switch.vlan[9] 7" );
  const auto outcome = Sim::runApart( lines );
  ASSERT_TRUE( outcome );
  EXPECT_THAT( Sim::shrink( lines, *outcome ),
               testing::ElementsAre( "set switch.vlan[9] 7", compare ) );
}

// --- Each hardware call of each scenario fails once

// Lets the n-th call that can fail do so, whatever operation it is of.
class FailNth : public Vex::ReactorOwner {
public:
  FailNth( const Vex::Ptr< Switch::SimulatedSwitch > & hardware, size_t n )
      : hardware_( hardware ), n_( n ), reactor_( *this ) {
    reactor_.notifierIs( hardware );
  }
  size_t calls() const { return calls_; }

private:
  class Calls : public Vex::ReactorOf< FailNth, Switch::SimulatedSwitch > {
  public:
    using ReactorOf::notifierIs;
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override {
      auto & owner = static_cast< FailNth & >( this->owner() );
      if ( id == Switch::SimulatedSwitch::callCountAttr ) {
        owner.handleCall( Switch::SimulatedSwitch::callCountAttr.key( key ) );
      }
    }
  };

  void handleCall( Switch::Operation operation ) {
    if ( Switch::typeOf( operation ).canFail() && ++calls_ == n_ ) {
      hardware_->faultIs( operation )->nextCallsIs( 1 );
    }
  }

  const Vex::Ptr< Switch::SimulatedSwitch > hardware_;
  const size_t n_; // from 1
  size_t calls_ = 0;
  Calls reactor_;
};

// The lines that change something.
Lines changesOf( const std::filesystem::path & scenario ) {
  std::ifstream file( scenario );
  Lines lines;
  for ( std::string line; std::getline( file, line ); ) {
    if ( line.starts_with( "set " ) || line.starts_with( "del " ) ||
         line.starts_with( "advance " ) || line.starts_with( "restart hitless" ) ||
         line.starts_with( "audit" ) ) {
      lines.push_back( line );
    }
  }
  return lines;
}

TEST( SimulationTest, EveryScenarioSurvivesTheFailureOfEachOfItsHardwareCalls ) {
  size_t scenarios = 0;
  for ( const auto & entry : std::filesystem::directory_iterator( KEZ_SCENARIOS ) ) {
    if ( entry.path().extension() != ".kez" ) {
      continue;
    }
    ++scenarios;
    for ( const bool follows : { false, true } ) {
      auto lines = follows ? Sim::followLines : Lines();
      const auto changes = changesOf( entry.path() );
      lines.insert( lines.end(), changes.begin(), changes.end() );
      size_t calls = 1;
      for ( size_t n = 0; n <= calls; ++n ) { // 0: none fails
        Simulation simulation;
        const FailNth failure( simulation.system().hardware, n );
        const auto at = [ & ] {
          return entry.path().string() + " call " + std::to_string( n ) + " follows " +
                 std::to_string( follows );
        };
        for ( const auto & line : lines ) {
          ASSERT_EQ( simulation.execute( line ), "" ) << at() << " " << line;
        }
        ASSERT_EQ( simulation.execute( compare ), "" ) << at();
        calls = n == 0 ? failure.calls() : calls;
      }
    }
  }
  EXPECT_GT( scenarios, 10u );
}

// --- Order does not matter

TEST( SimulationTest, InputsInAnyOrderEndInTheSameSwitch ) {
  std::mt19937_64 random( 9 );
  size_t entries = 0;
  for ( uint64_t seed = 1; seed <= 40; ++seed ) {
    Simulation simulation;
    for ( const auto & line : Sim::randomLines( seed, 300 ) ) {
      simulation.execute( line );
    }
    const auto inputs = Sim::inputLines( simulation.system() );
    std::string first;
    for ( int order = 0; order < 4; ++order ) {
      auto lines = inputs;
      std::shuffle( lines.begin(), lines.end(), random );
      // History decides who is a member whose traffic comes to be filtered, and of two changes of a
      // route: filters come first, and routes are told of when everything about them stands.
      const auto rank = []( const std::string & line ) {
        return line.starts_with( "set lfibTrackingStatus" )          ? 2
               : line.starts_with( "set evpnStatus.encapBumFilter" ) ? 0
                                                                     : 1;
      };
      std::stable_sort( lines.begin(), lines.end(),
                        [ & ]( const auto & a, const auto & b ) { return rank( a ) < rank( b ); } );
      lines.push_back( compare );
      Simulation another;
      for ( const auto & line : lines ) {
        ASSERT_EQ( another.execute( line ), "" ) << line;
      }
      const auto contents = Sim::switchContents( another.system() );
      first = order == 0 ? contents : first;
      ASSERT_EQ( contents, first ) << "seed " << seed << "\n" << testing::PrintToString( lines );
      entries += contents.size();
    }
  }
  EXPECT_GT( entries, 0u );
}

} // namespace
