// Fabrics of switches: their topologies' texts, random lives of them, and that
// frames find what is wrong with a table.
#include "FileContents.h"
#include "fabric/CommandLine.h"
#include "fabric/Events.h"
#include "fabric/Story.h"
#include "shell/Machines.h"

#include <gmock/gmock.h>

#include <fstream>

namespace {

using Fabric::readTopology;

std::string pathOf( const std::string & name ) {
  return KEZ_SCENARIOS "/fabric/" + name + ".topology";
}

Fabric::Topology topologyOf( const std::string & name ) {
  return readTopology( name, contents( pathOf( name ) ) );
}

TEST( FabricTest, ErrorsOfATopologyAreTold ) {
  const std::string begin = "switch s1\nswitch s2\nvlan 10\nsegment g vlans 10\n"
                            "link g s1 Ethernet1\n";
  const std::pair< const char *, const char * > wrong[] = {
    { "router s3", "t:6:1: expected switch, vlan, segment, link or host, found 'router'" },
    { "  switch s1", "t:6:10: expected a new name of a switch, found 's1'" },
    { "vlan 4095", "t:6:6: expected a VLAN id, 1 to 4094, found '4095'" },
    { "vlan 20 tag 10", "t:6:6: expected a tag that no other VLAN has, found '10'" },
    { "segment h vlans 10,30", "t:6:17: expected a VLAN that has a line, found '30'" },
    { "link g s1 Ethernet2", "t:6:8: expected a switch without a link to g, found 's1'" },
    { "link g s2 Port-Channel1 Ethernet1,Ethernet1",
      "t:6:11: expected ports that are in use nowhere else, found "
      "'Ethernet1'" },
    { "host a 00:00:00:00:00:01 vlan 20 at g", "t:6:31: expected a VLAN of the segment" },
    { "link g s2 Ethernet1 weight 3", "t:6:21: expected nothing more" },
  };
  for ( const auto & [ line, error ] : wrong ) {
    try {
      readTopology( "t", begin + line );
      ADD_FAILURE() << line;
    } catch ( const std::runtime_error & found ) {
      EXPECT_THAT( found.what(), testing::HasSubstr( error ) );
    }
  }
}

TEST( FabricTest, FramesArriveAsTheyMust ) {
  for ( uint64_t seed = 1; seed <= 30; ++seed ) {
    const auto topology = readTopology( "random", Fabric::randomTopology( seed ) );
    const auto outcome = Fabric::run( topology, seed, Fabric::randomLines( topology, seed, 40 ) );
    ASSERT_FALSE( outcome ) << "kez-fabric run random --events 40 --seed " << seed << ": "
                            << outcome->text;
  }
  for ( const auto * name : { "pair", "pairs", "ring" } ) {
    const auto topology = topologyOf( name );
    const auto outcome = Fabric::run( topology, 1, Fabric::randomLines( topology, 1, 40 ) );
    ASSERT_FALSE( outcome ) << name << ": " << outcome->text;
  }
}

// Each table of a switch tells in what becomes of frames.
TEST( FabricTest, FramesFindWhatATableLacks ) {
  for ( const auto * table : { "vlan", "dot1qMapping", "nonDfPort", "esiData", "esiPortMap", "fec",
                               "floodSetDest", "macEntry" } ) {
    Fabric::Network network( topologyOf( "pairs" ), 1 );
    network.settle();
    Fabric::Judge judge( network );
    ASSERT_EQ( judge.all(), "" );
    network.node( 1 )->line( "del switch." + std::string( table ) );
    EXPECT_NE( judge.all(), "" ) << table;
  }
}

// A machine of a switch that returns hears of nothing, and its part is missing.
// Tunnels have their ids as segments need them, so that frames do not tell when
// nobody counts how they are used.
TEST( FabricTest, FramesFindAMachineThatIsDeaf ) {
  const auto topology = topologyOf( "pairs" );
  for ( const auto & name : Sim::machineNames() ) {
    Fabric::Network network( topology, 1 );
    network.settle();
    network.execute( "fail switch leaf2" );
    network.settle();
    network.execute( "return switch leaf2" );
    KezShell::forEachMachine( network.node( 1 )->wiring().roots,
                              [ & ]( Kez::StateMachine & machine ) {
                                machine.hasNotificationActiveIs( machine.name() != name );
                              } );
    network.settle();
    EXPECT_EQ( Fabric::Judge( network ).all().empty(), name == "evpnRemoteInfoFinderSm" ) << name;
  }
}

// As a switch that was refused something comes back it is refused that at its
// machines' start.
TEST( FabricTest, WhatHardwareRefusesOutlastsItsSwitch ) {
  Fabric::Network network( topologyOf( "ring" ), 1 );
  network.settle();
  const std::initializer_list< const char * > lines = {
    "fail switch leaf2", "refuse leaf2 createVlan 9", "late leaf2 0.5", "return switch leaf2",
    "fail switch leaf2", "return switch leaf2",       "restart leaf2",  "pass 2"
  };
  for ( const auto * line : lines ) {
    network.execute( line );
  }
  const auto & hardware = *network.node( 1 )->wiring().hardware;
  const auto operation = Switch::Operation::createVlan;
  const auto refused = hardware.faultCount( operation );
  EXPECT_GT( refused, 0u );
  EXPECT_EQ( hardware.fault( operation )->nextCalls(), 9 - refused );
  EXPECT_TRUE( network.isHindered( 1 ) );
  network.settle();
  EXPECT_FALSE( network.isHindered( 1 ) );
  EXPECT_EQ( Fabric::Judge( network ).all(), "" );
  size_t updating = 0;
  for ( size_t node = 0; node < network.topology().nodes.size(); ++node ) {
    const auto helper = network.node( node )->wiring().roots.root( "floodingHelper" )->entity;
    updating += Vex::dynamicCast< KezHelper::EvpnFloodingSmHelper >( helper )
                    ->updateSupportedOnCreateEsiData();
  }
  EXPECT_GT( updating, 0u );
  EXPECT_LT( updating, network.topology().nodes.size() );
}

TEST( FabricTest, TheWayOfAFrameIsPrinted ) {
  std::ostringstream out, errors;
  EXPECT_EQ( Fabric::kezFabric( { "send", pathOf( "pair" ), "client" }, out, errors ), 0 );
  EXPECT_THAT( out.str(), testing::HasSubstr( "leaf1, from Ethernet9 tag 110: VLAN 10, flooded" ) );
  EXPECT_THAT( out.str(), testing::HasSubstr( "leaf2, from tunnel 1 labels 20000: VLAN 10" ) );
  EXPECT_THAT( out.str(), testing::HasSubstr( "switch.nonDfPort[Port-Channel1,Ethernet" ) );
  EXPECT_THAT( out.str(), testing::HasSubstr( "to rack: 1 copy\n" ) );
  EXPECT_EQ( Fabric::kezFabric( { "send", pathOf( "pair" ), "nobody" }, out, errors ), 2 );
  EXPECT_THAT( errors.str(), testing::HasSubstr( "expected a host of the topology" ) );
}

TEST( FabricTest, TheCommandLineIsAsThatOfTheOtherPrograms ) {
  struct Call {
    std::vector< std::string > arguments;
    int status;
    const char * out; // how it begins
    std::string err;
  };
  const std::string usage = "\ntry kez-fabric help\n";
  const auto pair = pathOf( "pair" );
  const Call calls[] = {
    { { "--help" }, 0, "kez-fabric joins switches", "" },
    { { "send", "nowhere", "-h" }, 0, "kez-fabric joins switches", "" },
    { { "play", "nothing", "--version" }, 0, "kez-fabric 1.0.0\n", "" },
    { { "run", "--events=3", "random", "--seed", "1-2" }, 0, "seeds 1 to 2, 3 events each, ", "" },
    { { "inputs", pair }, 0, "# leaf1\nset evpnStatus.", "" },
    { { "send", pair, "--events=3", "client" },
      2,
      "",
      "kez-fabric: expected --seed or --report, found '--events=3'" + usage },
    { { "converge", pair, "--seed=1-2" },
      2,
      "",
      "kez-fabric: --seed: expected nothing more, found '-2'" + usage },
    { { "send", pair, "client", "by", "server" },
      2,
      "",
      "kez-fabric: send: expected a topology and HOST or HOST to HOST" + usage },
    { { "play" }, 2, "", "kez-fabric: play: expected a story" + usage },
    { {},
      2,
      "",
      "kez-fabric: expected run, play, send, converge, inputs, help or --version, "
      "found nothing" +
          usage },
    { { "play", "not/there.story" },
      2,
      "",
      "kez-fabric: cannot read not/there.story: No such file or directory\n" },
    { { "run", "random", "--report", "not/there.html" },
      2,
      "",
      "kez-fabric: cannot write not/there.html: No such file or directory\n" },
    { { "run", "random", "--events=0", "--report=/dev/full" },
      2,
      "",
      "kez-fabric: cannot write /dev/full: No space left on device\n" },
  };
  for ( const auto & call : calls ) {
    std::ostringstream out, err;
    EXPECT_EQ( Fabric::kezFabric( call.arguments, out, err ), call.status );
    EXPECT_THAT( out.str(), testing::StartsWith( call.out ) );
    EXPECT_EQ( err.str(), call.err );
  }
  std::ofstream full( "/dev/full" );
  std::ostringstream err;
  EXPECT_EQ( Fabric::kezFabric( { "send", pair, "client" }, full, err ), 2 );
  EXPECT_EQ( err.str(), "kez-fabric: cannot write standard output: No space left on device\n" );
}

} // namespace
