#include "DataPlane.h"

#include <gtest/gtest.h>

namespace {

using namespace LinuxPe;
using Wire::IntfId;
using Frames = std::vector< std::string >;
using Events = std::vector< HostEvent >;

// Bytes in hexadecimal; blanks are for readers.
std::vector< uint8_t > bytes( std::string_view text ) {
  std::vector< uint8_t > result;
  std::string digits;
  for ( const char c : text ) {
    if ( c != ' ' ) {
      digits += c;
    }
    if ( digits.size() == 2 ) {
      result.push_back( static_cast< uint8_t >( std::stoul( digits, nullptr, 16 ) ) );
      digits.clear();
    }
  }
  return result;
}

std::string hex( Bytes bytes ) {
  std::string text;
  for ( const auto byte : bytes ) {
    constexpr char digits[] = "0123456789abcdef";
    text += { digits[ byte >> 4 ], digits[ byte & 15 ] };
  }
  return text;
}

struct SentPort final : Port {
  bool send( const Head & head, Bytes rest ) override {
    if ( hasRoom ) {
      frames.push_back( hex( head.bytes() ) + hex( rest ) );
    }
    return hasRoom;
  }
  std::vector< std::string > frames;
  bool hasRoom = true;
};

const std::string all = "ffffffffffff";
const std::string host1 = "020000000001";
const std::string host3 = "020000000003";
const std::string own = "0a0000000001";
const std::string peer = "0a0000000002";
const std::string payload = "0800 4500 aabb";
const std::string payloadOut = "08004500aabb";

// VLAN 10 has tag 110 on an access port and on one whose frames are tagged on the wire, and floods
// to tunnel 6 under label 400.
class DataPlaneTest : public testing::Test {
protected:
  DataPlaneTest() {
    auto & hardware = *tables.hardware;
    hardware.vlanIs( 10, Bridging::VlanIdOrNone( 110 ) );
    for ( const char * name : { "Ethernet1", "Ethernet2" } ) {
      const IntfId port( name );
      hardware.dot1qMappingIs( { port, port, 10 }, Bridging::VlanIdOrNone( 110 ) );
    }
    const Kez::HwTunnelId hwTunnelId( Kez::hwTunnelIdTypeDefault, 1 );
    hardware.hwTunnelIdPoolIs( Kez::hwTunnelIdTypeDefault )->inUseIs( hwTunnelId, 6 );
    Switch::HwFec fec;
    fec.via.push_back( { IntfId(), 400 } );
    fec.hwTunnelId = hwTunnelId;
    hardware.fecIs( 1, fec );
    Kez::FloodSetMplsDestConfig dest;
    dest.macVlanPair = { 0xffff'ffff'ffff, 10 };
    dest.config.hwIdForTunnelProgramming = 1;
    dest.config.tunnelId = 6;
    dest.config.hwTunnelId = hwTunnelId;
    hardware.floodSetDestIs( dest );
    tables.core->nextHopIs( 6, 0x0a00'0000'0002 );
    tables.forwarding->serviceLabelIs( 300, { 10, Switch::LabelUse::flood } );
  }

  void fromPort( size_t number, const std::string & text ) {
    plane.fromPort( number, bytes( text ), now );
  }
  void fromCore( const std::string & text ) { plane.fromCore( bytes( text ) ); }

  Tables tables;
  SentPort access;
  SentPort trunk;
  SentPort core;
  FrameCounts counts;
  LearnedHosts hosts{ 300, 2 };
  std::vector< HostEvent > told;
  double now = 0;
  DataPlane plane{ tables,
                   { { IntfId( "Ethernet1" ), 110, &access },
                     { IntfId( "Ethernet2" ), {}, &trunk } },
                   { &core, 0x0a00'0000'0001 },
                   counts,
                   hosts,
                   [ this ]( const HostEvent & event ) { told.push_back( event ); } };
};

TEST_F( DataPlaneTest, aFloodGetsTheTagOfEachPortAndTheLabelOfEachTunnel ) {
  fromPort( 0, all + host1 + payload );
  EXPECT_TRUE( access.frames.empty() );
  EXPECT_EQ( trunk.frames, Frames{ all + host1 + "8100006e" + payloadOut } );
  // Label 400, the bottom of the stack, time to live 255.
  EXPECT_EQ( core.frames, Frames{ peer + own + "8847" + "001901ff" + all + host1 + payloadOut } );
  fromPort( 1, all + host3 + "8100 606e" + payload );
  EXPECT_EQ( access.frames, Frames{ all + host3 + payloadOut } );
}

TEST_F( DataPlaneTest, anAccessPortTakesNoTagAndATaggedOneNoFrameWithout ) {
  fromPort( 0, all + host1 + "8100 006e" + payload );
  EXPECT_EQ( counts[ FrameCount::wrongTag ], 1 );
  fromPort( 1, all + host1 + payload );
  fromPort( 1, all + host1 + "8100 0000" + payload ); // a priority, and no VLAN
  EXPECT_EQ( counts[ FrameCount::notForwarded ], 2 );
  EXPECT_TRUE( core.frames.empty() );
  EXPECT_TRUE( told.empty() );
}

TEST_F( DataPlaneTest, aFrameFromTheCoreGoesToPortsAndNeverBack ) {
  const auto inner = all + host3 + payload;
  fromCore( own + peer + "8847 0012c1ff" + inner );
  EXPECT_EQ( access.frames, Frames{ all + host3 + payloadOut } );
  EXPECT_TRUE( core.frames.empty() );
  EXPECT_TRUE( told.empty() ); // its route says where that host is
  fromCore( host1 + peer + "8847 0012c1ff" + inner );
  EXPECT_EQ( counts[ FrameCount::forOthers ], 1 );
  fromCore( own + host1 + "8847 0012c1ff" + inner );
  EXPECT_EQ( counts[ FrameCount::unknownPeer ], 1 );
  fromCore( own + peer + "8847 0012c100" + inner );
  EXPECT_EQ( counts[ FrameCount::expired ], 1 );
  fromCore( own + peer + "8847 0012d1ff" + inner );
  EXPECT_EQ( counts[ FrameCount::notForwarded ], 1 ); // label 301 is nobody's
  EXPECT_EQ( access.frames.size(), 1 );
}

TEST_F( DataPlaneTest, whatIsCutOffOrStackedTooHighIsDropped ) {
  const auto inner = all + host3 + payload;
  size_t dropped = 0;
  for ( const auto & text :
        { own + peer + "8847", own + peer + "8847 0012c0ff" + std::string( "0012" ),
          own + peer + "8847 0012c1ff" + all + host3,
          own + peer + "8847 0012c0ff 001f40ff 001f41ff" + inner, own + peer + "0800" + inner } ) {
    fromCore( text );
    EXPECT_EQ( counts[ FrameCount::malformed ], ++dropped ) << text;
  }
  for ( const auto & text :
        { all + host1, all + host1 + "8100 006e", all + host1 + "8100 0fff" + payload } ) {
    fromPort( 1, text );
    EXPECT_EQ( counts[ FrameCount::malformed ], ++dropped ) << text;
  }
}

TEST_F( DataPlaneTest, whatCannotBeSentIsCounted ) {
  trunk.hasRoom = false;
  tables.core->nextHopDel( 6 );
  fromPort( 0, all + host1 + payload );
  EXPECT_EQ( counts[ FrameCount::notSent ], 1 );
  EXPECT_EQ( counts[ FrameCount::noNextHop ], 1 );
  EXPECT_EQ( counts[ FrameCount::toPorts ] + counts[ FrameCount::toCore ], 0 );
}

TEST_F( DataPlaneTest, hostsAreLearnedOnceTheyMoveAndAge ) {
  const Bridging::MacVlanPair host( 0x0200'0000'0001, 10 );
  const HostEvent there{ host, IntfId( "Ethernet1" ), true };
  const HostEvent moved{ host, IntfId( "Ethernet2" ), true };
  fromPort( 0, all + host1 + payload );
  fromPort( 0, all + host1 + payload );
  EXPECT_EQ( told, Events{ there } );
  now = 200;
  fromPort( 1, all + host1 + "8100 006e" + payload );
  EXPECT_EQ( told, ( Events{ there, moved } ) );
  plane.age( 499 );
  EXPECT_EQ( told.size(), 2 );
  plane.age( 500 );
  EXPECT_EQ( told.back(), HostEvent( { host, IntfId( "Ethernet2" ), false } ) );
  told.clear();
  // A group is no host, and there is room for two.
  for ( const auto & from : { all, std::string( "020000000011" ), std::string( "020000000012" ),
                              std::string( "020000000013" ) } ) {
    fromPort( 0, all + from + payload );
  }
  EXPECT_EQ( told.size(), 2 );
}

TEST_F( DataPlaneTest, aHostBehindAMemberOfALagIsBehindTheLag ) {
  const IntfId lag( "Port-Channel1" );
  const IntfId port( "Ethernet1" );
  tables.lags->lagConfigIs( lag )->memberIs( port, Hardware::Lag::PortProgType::portProgRxTx );
  tables.hardware->dot1qMappingIs( { lag, port, 10 }, Bridging::VlanIdOrNone( 110 ) );
  fromPort( 0, all + host1 + payload );
  ASSERT_EQ( told.size(), 1 );
  EXPECT_EQ( told[ 0 ].intfId, lag );
}

} // namespace
