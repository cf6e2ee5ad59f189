#include "Vex/Clock.h"
#include "agent/Shell.h"
#include "switch/ForwardingPlane.h"

#include <gmock/gmock.h>

#include <random>
#include <sstream>

namespace {

// A switch without machines, whose tables and inputs lines write.
class ForwardingTest : public testing::Test {
protected:
  std::string line( const std::string & text ) {
    try {
      shell.execute( text, "test:7" );
      return "";
    } catch ( const Agent::BadLine & error ) {
      return std::to_string( error.column ) + ": " + error.what();
    }
  }
  std::string output( const std::string & text ) {
    out.str( "" );
    EXPECT_EQ( line( text ), "" ) << text;
    return out.str();
  }
  // Everything anew, and these lines, backwards if so.
  void begin( std::vector< std::string > lines, bool backwards ) {
    for ( const auto * root :
          { "switch.vlan", "switch.dot1qMapping", "switch.nonDfPort", "switch.esiData",
            "switch.esiPortMap", "switch.hwTunnelIdPool", "switch.fec", "switch.floodSetDest",
            "switch.macEntry", "forwardingInput.serviceLabel", "forwardingInput.localHost",
            "lagConfigDir.lagConfig", "evpnStatus.localEsiLabel" } ) {
      output( "del " + std::string( root ) );
    }
    lines.insert( lines.begin(), tables.begin(), tables.end() );
    if ( backwards ) {
      std::ranges::reverse( lines );
    }
    for ( const auto & each : lines ) {
      output( each );
    }
  }
  Vex::Ptr< Switch::ForwardingPlane > plane() {
    return Vex::makePtr< Switch::ForwardingPlane >( hardware, forwardingInput, lagConfigDir,
                                                    evpnStatus );
  }
  template< class T > Vex::Ptr< T > root( Agent::Role role, const char * name ) {
    return wiring.roots.rootIs( role, name, Vex::makePtr< T >() );
  }

  Agent::Wiring wiring = [] {
    Vex::Clock::virtualIs( 0 );
    Agent::Wiring wiring;
    wiring.scheduler = Vex::makePtr< Loom::TaskScheduler >();
    return wiring;
  }();
  const Vex::Ptr< Switch::SimulatedSwitch > hardware =
      root< Switch::SimulatedSwitch >( Agent::Role::hardware, "switch" );
  const Vex::Ptr< Switch::ForwardingInput > forwardingInput =
      root< Switch::ForwardingInput >( Agent::Role::input, "forwardingInput" );
  const Vex::Ptr< Kez::LagCreatorConfigDir > lagConfigDir =
      root< Kez::LagCreatorConfigDir >( Agent::Role::input, "lagConfigDir" );
  const Vex::Ptr< Evpn::EvpnStatus > evpnStatus =
      root< Evpn::EvpnStatus >( Agent::Role::input, "evpnStatus" );
  std::ostringstream out, err;
  Agent::Shell shell{ wiring, out, err };

  // VLAN 10 on a LAG of two ports and two ports, and over tunnels 5 and 6.
  const std::vector< std::string > tables{
    "set switch.vlan[10] 110",
    "set lagConfigDir.lagConfig[Port-Channel1].member[Ethernet1] portProgRxTx",
    "set lagConfigDir.lagConfig[Port-Channel1].member[Ethernet2] portProgRxTx",
    "set switch.dot1qMapping[Port-Channel1,Ethernet1,10] 110",
    "set switch.dot1qMapping[Port-Channel1,Ethernet2,10] 110",
    "set switch.dot1qMapping[Ethernet3,Ethernet3,10] 110",
    "set switch.dot1qMapping[Ethernet4,Ethernet4,10] 0",
    "set switch.hwTunnelIdPool[hwTunnelIdTypeDefault].inUse[0:1] 5",
    "set switch.hwTunnelIdPool[hwTunnelIdTypeDefault].inUse[0:2] 6",
    "set switch.fec[1] false,[(DynamicTunnel0.5,100)],0:1",
    "set switch.fec[2] false,[(DynamicTunnel0.6,200)],0:2",
    "set switch.fec[3] true,[(DynamicTunnel0.5,101),(DynamicTunnel0.6,201)],[0:1,0:2]",
    "set switch.floodSetDest[(ff:ff:ff:ff:ff:ff,10),(5,100,0:1,1,DynamicTunnel0.5)]",
    "set switch.floodSetDest[(ff:ff:ff:ff:ff:ff,10),(6,200,0:2,2,DynamicTunnel0.6)]",
    "set switch.macEntry[00:00:00:00:00:10,10] 3",
    "set forwardingInput.localHost[00:00:00:00:00:01,10] Port-Channel1",
    "set forwardingInput.serviceLabel[300] 10,flood",
    "set forwardingInput.serviceLabel[301] 10,unicast",
    "set evpnStatus.localEsiLabel[Port-Channel1] 2:500",
  };
};

TEST_F( ForwardingTest, CopiesAreWhatTheTablesSayAndStopsNameTheEntry ) {
  struct Case {
    const char * what;
    std::vector< std::string > lines;
    std::string frame;
    std::string shown;
  };
  const std::string esiData = "set switch.esiData[Port-Channel1,Ethernet1,10] 6,0:2,600,500";
  const std::string toAll = " from 00:00:00:00:00:02 to ff:ff:ff:ff:ff:ff";
  const std::string toLocal = " from 00:00:00:00:00:02 to 00:00:00:00:00:01";
  const std::string toRemote = " from 00:00:00:00:00:02 to 00:00:00:00:00:10";
  const std::string from3 =
      "  not to Ethernet3  it came from there  switch.dot1qMapping[Ethernet3,Ethernet3,10]\n";
  const std::string tunnels = "  tunnel 5 labels 100\n  tunnel 6 labels 200\n";
  const Case cases[] = {
    { "a flood, one port of the LAG",
      {},
      "Ethernet3 tag 110" + toAll,
      "VLAN 10, flooded\n  Ethernet4\n  Ethernet1 tag 110\n" + tunnels + from3 },
    { "the other port, and an address that is no host's",
      { esiData },
      "Ethernet3 tag 110 from 00:00:00:00:00:09 to 00:00:00:00:00:02",
      "VLAN 10, flooded\n  Ethernet4\n  Ethernet2 tag 110\n" + tunnels + from3 },
    { "from a segment to its forwarder",
      { esiData },
      "Ethernet1 tag 110" + toAll,
      "VLAN 10, flooded\n  Ethernet3 tag 110\n  Ethernet4\n  tunnel 5 labels 100\n"
      "  tunnel 6 labels 200,600\n"
      "  not to Port-Channel1  it came from there  "
      "switch.dot1qMapping[Port-Channel1,Ethernet1,10]\n" },
    { "from the segment's other port, which has no ESI data",
      { esiData },
      "Ethernet2 tag 110" + toAll,
      "VLAN 10, flooded\n  Ethernet3 tag 110\n  Ethernet4\n" + tunnels +
          "  not to Port-Channel1  it came from there  "
          "switch.dot1qMapping[Port-Channel1,Ethernet2,10]\n" },
    { "a group with a flood set of its own",
      { "set switch.floodSetDest[(01:00:5e:00:00:01,10),(5,100,0:1,1,DynamicTunnel0.5)]" },
      "Ethernet3 tag 110 to 01:00:5e:00:00:01",
      "VLAN 10, flooded\n  Ethernet4\n  Ethernet1 tag 110\n  tunnel 5 labels 100\n" + from3 },
    { "from a tunnel under the ESI label of the LAG",
      { "set switch.esiPortMap[Port-Channel1] 500",
        "set switch.nonDfPort[Ethernet3,Ethernet3,10]" },
      "tunnel 5 labels 300,500" + toAll,
      "VLAN 10, flooded\n  Ethernet4\n"
      "  not to Ethernet3      not designated forwarder   "
      "switch.nonDfPort[Ethernet3,Ethernet3,10]\n"
      "  not to Port-Channel1  it came from that segment  switch.esiPortMap[Port-Channel1]\n" },
    { "without one, and a LAG of which the other port is none of the forwarder's",
      { "set switch.esiPortMap[Port-Channel1] 500",
        "set switch.nonDfPort[Port-Channel1,Ethernet2,10]" },
      "tunnel 5 labels 300" + toAll,
      "VLAN 10, flooded\n  Ethernet3 tag 110\n  Ethernet4\n  Ethernet1 tag 110\n" },
    { "under an ESI label of another switch",
      {},
      "tunnel 5 labels 300,501" + toAll,
      "VLAN 10\n  not  the ESI label is another switch's  evpnStatus.localEsiLabel\n" },
    { "under a label of no service",
      {},
      "tunnel 5 labels 302" + toAll,
      "of no VLAN\n  not  the top label is no service's  forwardingInput.serviceLabel[302]\n" },
    { "under none",
      {},
      "tunnel 5" + toAll,
      "of no VLAN\n  not  the top label is no service's  forwardingInput.serviceLabel[1048576]\n" },
    { "flooded under a unicast label, whatever is said of a group",
      { "set forwardingInput.localHost[ff:ff:ff:ff:ff:ff,10] Port-Channel1" },
      "tunnel 5 labels 301" + toAll,
      "VLAN 10\n  not  a unicast label, and no host of it here  "
      "forwardingInput.localHost[ff:ff:ff:ff:ff:ff,10]\n" },
    { "a tag of no VLAN",
      {},
      "Ethernet4 tag 110" + toAll,
      "of no VLAN\n  not  the port has no VLAN with that tag  switch.dot1qMapping\n" },
    { "a VLAN that is not there",
      { "set switch.dot1qMapping[Ethernet4,Ethernet4,20] 20" },
      "Ethernet4 tag 20" + toAll,
      "VLAN 20\n  not  the VLAN is not in hardware  switch.vlan[20]\n" },
    { "two VLANs of one tag",
      { "set switch.dot1qMapping[Ethernet3,Ethernet3,9] 110", "set switch.vlan[9] 110" },
      "Ethernet3 tag 110" + toAll,
      "VLAN 9, flooded\n"
      "  not to Ethernet3  it came from there  switch.dot1qMapping[Ethernet3,Ethernet3,9]\n" },
    { "a LAG that but receives, and mappings on ports that are another interface's by now",
      { "set lagConfigDir.lagConfig[Port-Channel2].member[Ethernet5] portProgRx",
        "set switch.dot1qMapping[Port-Channel2,Ethernet5,10] 110",
        "set switch.dot1qMapping[Port-Channel3,Ethernet6,10] 110",
        "set switch.dot1qMapping[Ethernet5,Ethernet5,10] 110" },
      "Ethernet3 tag 110" + toAll,
      "VLAN 10, flooded\n  Ethernet4\n  Ethernet1 tag 110\n" + tunnels +
          "  not to Ethernet3      it came from there   "
          "switch.dot1qMapping[Ethernet3,Ethernet3,10]\n"
          "  not to Port-Channel2  no LAG member sends  lagConfigDir.lagConfig[Port-Channel2]\n" },
    { "from a LAG member that but sends",
      { "set lagConfigDir.lagConfig[Port-Channel2].member[Ethernet5] portProgTx",
        "set switch.dot1qMapping[Port-Channel2,Ethernet5,10] 110" },
      "Ethernet5 tag 110" + toAll,
      "VLAN 10\n  not  the LAG member does not receive  "
      "lagConfigDir.lagConfig[Port-Channel2].member[Ethernet5]\n" },
    { "FECs, hardware tunnel ids and tunnels that are missing; an id that is another tunnel's",
      { "set switch.floodSetDest[(01:00:5e:00:00:01,10),(7,300,0:0,4,DynamicTunnel0.7)]",
        "set switch.fec[5] false,[(DynamicTunnel0.8,400)],0:3",
        "set switch.floodSetDest[(01:00:5e:00:00:01,10),(8,400,0:3,5,DynamicTunnel0.8)]",
        "set switch.fec[6] false,[(Ethernet9,400)],0:0",
        "set switch.floodSetDest[(01:00:5e:00:00:01,10),(9,400,0:0,6,Ethernet9)]",
        "set switch.fec[7] false,[(DynamicTunnel0.9,401)],0:0",
        "set switch.floodSetDest[(01:00:5e:00:00:01,10),(9,401,0:0,7,DynamicTunnel0.9)]",
        "set switch.fec[8] false,[(DynamicTunnel0.9,402)],0:2",
        "set switch.floodSetDest[(01:00:5e:00:00:01,10),(9,402,0:2,8,DynamicTunnel0.9)]" },
      "Ethernet3 tag 110 to 01:00:5e:00:00:01",
      "VLAN 10, flooded\n  Ethernet4\n  Ethernet1 tag 110\n  tunnel 9 labels 401\n"
      "  tunnel 6 labels 402\n"
      "  not to Ethernet3   it came from there                    "
      "switch.dot1qMapping[Ethernet3,Ethernet3,10]\n"
      "  not over tunnel 7  the FEC is not there                  switch.fec[4]\n"
      "  not over tunnel 8  the hardware tunnel id is not in use  "
      "switch.hwTunnelIdPool[hwTunnelIdTypeDefault].inUse[0:3]\n"
      "  not                the FEC leads over no MPLS tunnel     switch.fec[6]\n" },
    { "to a host here", {}, "Ethernet3 tag 110" + toLocal, "VLAN 10\n  Ethernet2 tag 110\n" },
    { "to a host where it came from",
      {},
      "Ethernet2 tag 110" + toLocal,
      "VLAN 10\n  not to Port-Channel1  it came from there  "
      "switch.dot1qMapping[Port-Channel1,Ethernet2,10]\n" },
    { "to a host here from a tunnel, where the switch is not designated forwarder",
      { "set switch.nonDfPort[Port-Channel1,Ethernet2,10]" },
      "tunnel 5 labels 301" + toLocal,
      "VLAN 10\n  Ethernet2 tag 110\n" },
    { "the same, flooded by who knows it not",
      { "set switch.nonDfPort[Port-Channel1,Ethernet2,10]" },
      "tunnel 5 labels 300" + toLocal,
      "VLAN 10, flooded\n  Ethernet3 tag 110\n  Ethernet4\n"
      "  not to Port-Channel1  not designated forwarder  "
      "switch.nonDfPort[Port-Channel1,Ethernet2,10]\n" },
    { "to a host behind a port of a LAG that is not mapped",
      { "set lagConfigDir.lagConfig[Port-Channel1].member[Ethernet0] portProgRxTx",
        "set lagConfigDir.lagConfig[Port-Channel1].member[Ethernet3] portProgRx" },
      "Ethernet4 from 00:00:00:00:00:03 to 00:00:00:00:00:01",
      "VLAN 10\n  Ethernet2 tag 110\n" },
    { "to a host elsewhere, by the first via",
      {},
      "Ethernet3 tag 110 from 00:00:00:00:00:12 to 00:00:00:00:00:10",
      "VLAN 10\n  tunnel 5 labels 101\n" },
    { "by the second", {}, "Ethernet3 tag 110" + toRemote, "VLAN 10\n  tunnel 6 labels 201\n" },
    { "from a tunnel to another",
      {},
      "tunnel 5 labels 301" + toRemote,
      "VLAN 10\n  not  the host is behind a tunnel too  switch.macEntry[00:00:00:00:00:10,10]\n" },
    { "over a FEC that is missing",
      { "set switch.macEntry[00:00:00:00:00:20,10] 4" },
      "Ethernet3 tag 110 to 00:00:00:00:00:20",
      "VLAN 10\n  not  the FEC is not there  switch.fec[4]\n" },
  };
  for ( const auto & each : cases ) {
    for ( const bool backwards : { false, true } ) {
      begin( each.lines, backwards );
      EXPECT_EQ( output( "send " + each.frame ), each.shown ) << each.what;
    }
  }
}

// A plane that has been asked all along answers as one that sees the tables for the first time.
TEST_F( ForwardingTest, WhatWasPutTogetherIsForgottenWithAnyChange ) {
  std::mt19937 random( 1 );
  const auto oneOf = [ & ]( std::initializer_list< const char * > all ) {
    return std::string( all.begin()[ random() % all.size() ] );
  };
  const auto port = [ & ] {
    return oneOf( { "Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4" } );
  };
  const auto lag = [ & ] { return oneOf( { "Port-Channel1", "Port-Channel2" } ); };
  const auto address = [ & ] {
    return oneOf( { "ff:ff:ff:ff:ff:ff", "01:00:5e:00:00:01", "00:00:00:00:00:01",
                    "00:00:00:00:00:12", "00:00:00:00:00:22" } );
  };
  const auto tag = [ & ] { return oneOf( { "0", "110", "120" } ); };
  const auto number = [ & ] { return oneOf( { "1", "2", "3" } ); };
  const auto label = [ & ] { return oneOf( { "300", "301", "500", "501" } ); };
  const auto host = [ & ] { return address() + "," + oneOf( { "10", "20" } ); };
  const auto pair = [ & ] {
    const auto own = port();
    const auto vlan = oneOf( { ",10", ",20" } );
    return random() % 2 ? own + "," + own + vlan : lag() + "," + own + vlan;
  };
  const auto member = [ & ]( size_t kind ) -> std::pair< std::string, std::string > {
    switch ( kind ) {
    case 0:
      return { "switch.vlan[" + oneOf( { "10", "20" } ) + "]", tag() };
    case 1:
      return { "switch.dot1qMapping[" + pair() + "]", tag() };
    case 2:
      return { "switch.nonDfPort[" + pair() + "]", "" };
    case 3:
      return { "switch.esiData[" + pair() + "]", "5,0:" + number() + ",600,500" };
    case 4:
      return { "switch.esiPortMap[" + ( random() % 2 ? lag() : port() ) + "]", label() };
    case 5:
      return { "switch.hwTunnelIdPool[hwTunnelIdTypeDefault].inUse[0:" + number() + "]", number() };
    case 6:
      return { "switch.fec[" + number() + "]", "true,[(DynamicTunnel0." + number() +
                                                   ",100),(DynamicTunnel0.8,101)],[0:" + number() +
                                                   ",0:0]" };
    case 7:
      return { "switch.floodSetDest[(" + host() + "),(5,100,0:" + number() + "," + number() + ",)]",
               "" };
    case 8:
      return { "switch.macEntry[" + host() + "]", number() };
    case 9:
      return { "lagConfigDir.lagConfig[" + lag() + "].member[" + port() + "]",
               oneOf( { "portProgRxTx", "portProgRx", "portProgTx" } ) };
    case 10:
      return { "evpnStatus.localEsiLabel[" + lag() + "]", "2:" + label() };
    case 11:
      return { "forwardingInput.serviceLabel[" + label() + "]",
               oneOf( { "10,flood", "20,unicast" } ) };
    default:
      return { "forwardingInput.localHost[" + host() + "]", random() % 2 ? lag() : port() };
    }
  };
  const auto kept = plane();
  Switch::Forwarded found;
  size_t copies = 0;
  size_t stops = 0;
  for ( size_t round = 0; round < 20'000; ++round ) {
    const auto [ path, value ] = member( random() % 13 );
    const auto whole = path.substr( 0, path.rfind( '[' ) );
    output( random() % 100 == 0 ? "del " + whole
            : random() % 3 == 0 ? "del " + path
                                : "set " + path + " " + value );
    Switch::Crossing in;
    const bool overTunnel = random() % 3 == 0;
    const auto entrance = overTunnel
                              ? "tunnel 5 labels " + label() + ( random() % 2 ? "," + label() : "" )
                              : port() + oneOf( { "", " tag 110", " tag 120" } );
    Vex::TextCursor cursor( entrance );
    parseText( cursor, in );
    const Switch::Frame frame{ Vex::parse< Wire::EthAddr >( address() ),
                               Vex::parse< Wire::EthAddr >( address() ) };
    Switch::Forwarded expected;
    kept->forward( in, frame, found );
    plane()->forward( in, frame, expected );
    ASSERT_EQ( found, expected ) << "after round " << round << ": " << path;
    copies += found.copies.size();
    stops += found.stopped.size();
  }
  EXPECT_GT( copies, 2'000u );
  EXPECT_GT( stops, 10'000u );

  // A pool that is put back comes with what it has.
  begin( {}, false );
  const auto in = Switch::Crossing::onPort( "Ethernet3", 110 );
  const Switch::Frame toAll{ 1, 0xffff'ffff'ffff };
  const auto pool = hardware->hwTunnelIdPool( Kez::hwTunnelIdTypeDefault );
  hardware->hwTunnelIdPoolDel( Kez::hwTunnelIdTypeDefault );
  kept->forward( in, toAll, found );
  EXPECT_EQ( found.copies.size(), 2u );
  pool->inUseIs( { Kez::hwTunnelIdTypeDefault, 1 }, 5 );
  hardware->hwTunnelIdPoolIs( pool );
  kept->forward( in, toAll, found );
  EXPECT_EQ( found.copies.size(), 3u );
}

TEST_F( ForwardingTest, LinesSayWhatIsWrongWithThem ) {
  begin( {}, false );
  const std::pair< std::string, const char * > lines[] = {
    { "send", "5: expected a port, or tunnel and its id, found nothing" },
    { "send Ethernet1 tag 0 to ff:ff:ff:ff:ff:ff", "20: expected a VLAN id, 1 to 4094, found '0'" },
    { "send tunnel 0 to ff:ff:ff:ff:ff:ff",
      "13: expected a tunnel id, a whole number of 64 bits, not 0, found '0'" },
    { "send tunnel 5 labels 1,2,3 to ff:ff:ff:ff:ff:ff",
      "26: expected two labels at most, found '3'" },
    { "send Ethernet1 form 00:00:00:00:00:01", "16: expected to and a MAC address, found 'form'" },
    { "send Ethernet1 from 00:00 to ff:ff:ff:ff:ff:ff",
      "21: expected a MAC address, as 00:1c:73:0a:0b:0c, found '00:00'" },
    { "send Ethernet1 to ff:ff:ff:ff:ff:ff now", "37: expected nothing more, found 'now'" },
    { "expect send Ethernet1 to ff:ff:ff:ff:ff:ff",
      "43: expected copies and what they are, or none, found nothing" },
    { "expect send Ethernet1 to ff:ff:ff:ff:ff:ff copies tunnel 5 labels 1048576",
      "67: expected an MPLS label, 0 to 1048575, found '1048576'" },
  };
  for ( const auto & [ text, what ] : lines ) {
    EXPECT_EQ( line( text ), what ) << text;
  }

  // Copies are expected in any order.
  const std::string frame = "send Ethernet3 tag 110 to ff:ff:ff:ff:ff:ff";
  EXPECT_EQ( line( "expect " + frame +
                   " copies tunnel 6 labels 200, Ethernet4, "
                   "tunnel 5 labels 100, Ethernet1 tag 110" ),
             "" );
  EXPECT_EQ( line( "expect send Ethernet4 tag 110 to ff:ff:ff:ff:ff:ff copies none" ), "" );
  EXPECT_EQ( shell.failures(), 0u ) << err.str();
  EXPECT_EQ( line( "expect " + frame + " copies Ethernet4, Ethernet1" ), "" );
  EXPECT_EQ( shell.expectations(), 3u );
  EXPECT_EQ( err.str(), "test:7: expectation failed: " + frame +
                            "\n  expected  Ethernet1, Ethernet4"
                            "\n  found     Ethernet1 tag 110, Ethernet4, tunnel 5 labels 100, "
                            "tunnel 6 labels 200\n" );
}

} // namespace
