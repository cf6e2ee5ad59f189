#include "Evpn/EncapTypeLabel.h"
#include "Evpn/EvpnStatus.h"
#include "Kez/HwTunnelId.h"
#include "Kez/KezPortList.h"
#include "L2Rib/FloodSet.h"
#include "Mpls/Lfib.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

using testing::HasSubstr;
using Wire::IntfId;
using Kind = IntfId::Kind;

TEST( IntfId, takesAKindOnlyWhenItsNamePrintsBackExactly ) {
  const struct {
    const char * name;
    Kind kind;
  } cases[] = {
    { "", Kind::empty },
    { "Cpu", Kind::cpu },
    { "Ethernet0", Kind::ethernet },
    { "Ethernet3/1", Kind::ethernet },
    { "Ethernet3/0/2", Kind::ethernet },
    { "Ethernet16777215/65534/65534", Kind::ethernet },
    { "Port-Channel4294967295", Kind::portChannel },
    { "Vlan10", Kind::vlan },
    { "DynamicTunnel4095.17592186044415", Kind::dynamicTunnel },
    { "SrTePolicy0.0", Kind::srTePolicy },
    { "Ethernet", Kind::other },
    { "Ethernet01", Kind::other },
    { "Ethernet1/", Kind::other },
    { "Ethernet1/2/3/4", Kind::other },
    { "Ethernet1.2", Kind::other },
    { "Ethernet16777216", Kind::other },
    { "Ethernet1/65535", Kind::other },
    { "Ethernet1/1/18446744073709551615", Kind::other },
    { "Ethernet18446744073709551617", Kind::other },
    { "ethernet1", Kind::other },
    { "Port-Channel4294967296", Kind::other },
    { "Port-Channel1/2", Kind::other },
    { "Vlan-1", Kind::other },
    { "DynamicTunnel1", Kind::other },
    { "DynamicTunnel4096.0", Kind::other },
    { "SrTePolicy0.17592186044416", Kind::other },
    { "Cpu0", Kind::other },
    { "xe-0/0/1:2", Kind::other },
  };
  for ( const auto & each : cases ) {
    const IntfId id( each.name );
    EXPECT_EQ( id.kind(), each.kind ) << each.name;
    EXPECT_EQ( Vex::text( id ), each.name );
    EXPECT_EQ( Vex::parse< IntfId >( each.name ), id );
  }
}

TEST( IntfId, refusesWhatNoNameIsMadeOf ) {
  const Vex::String tooLong( 64, 'x' );
  EXPECT_EQ( Vex::text( IntfId( tooLong.substr( 1 ) ) ), tooLong.substr( 1 ) );
  for ( const Vex::String & bad : { tooLong, Vex::String( "Ethernet1,2" ), Vex::String( "a b" ),
                                    Vex::String( "[" ), Vex::String( "\xC3\xA9th0" ) } ) {
    try {
      FAIL() << bad << " read as " << IntfId( bad );
    } catch ( const Vex::ParseError & error ) {
      EXPECT_THAT( error.what(), HasSubstr( "at most 63 letters, digits or / . _ : -" ) );
    }
    EXPECT_THROW( Vex::parse< IntfId >( bad ), Vex::ParseError ) << bad;
  }
}

// A port list grown past what it holds in itself and shrunk again keeps the order that the ids
// have: kind, numbers, and interned names by text though they were interned the other way round.
TEST( KezPortList, keepsPortsInTheirOrderAtEverySize ) {
  std::vector< const char * > names = { "Cpu",
                                        "Ethernet2",
                                        "Ethernet2/0",
                                        "Ethernet2/0/0",
                                        "Ethernet2/1",
                                        "Ethernet10",
                                        "Port-Channel2",
                                        "Port-Channel10",
                                        "Vlan2",
                                        "Vlan10",
                                        "DynamicTunnel1.10",
                                        "DynamicTunnel10.2",
                                        "SrTePolicy0.1",
                                        "swp1",
                                        "swp10",
                                        "swp2" };
  const auto joined = [ & ] {
    Vex::String text;
    for ( const char * name : names ) {
      text += ( text.empty() ? "" : "," ) + Vex::String( name );
    }
    return text;
  };
  Kez::KezPortList ports;
  for ( auto name = names.rbegin(); name != names.rend(); ++name ) {
    ports.portIs( IntfId( *name ), true );
    ports.portIs( IntfId( *name ), true );
  }
  while ( !names.empty() ) {
    EXPECT_EQ( Vex::text( ports ), joined() );
    EXPECT_EQ( ports.ports(), names.size() );
    EXPECT_EQ( Vex::parse< Kez::KezPortList >( joined() ), ports );
    const auto middle = names.begin() + static_cast< ptrdiff_t >( names.size() / 2 );
    const IntfId gone( *middle );
    const Kez::KezPortList before = ports;
    EXPECT_TRUE( ports.portHas( gone ) );
    ports.portDel( gone );
    ports.portIs( gone, false );
    EXPECT_FALSE( ports.portHas( gone ) );
    EXPECT_FALSE( ports == before );
    names.erase( middle );
  }
  EXPECT_TRUE( ports == Kez::KezPortList() );
  EXPECT_THROW( Vex::parse< Kez::KezPortList >( "Ethernet1,,Ethernet2" ), Vex::ParseError );
}

// Whichever number of an Ethernet interface counts, those that follow each other do so in an index.
TEST( IntfId, followsItsNeighbourInContainers ) {
  const auto hashOf = []( const Vex::String & name ) {
    return Vex::containerHash( IntfId( name ) );
  };
  for ( const Vex::String before : { "Ethernet", "Ethernet7/", "Ethernet7/2/", "Port-Channel" } ) {
    for ( const int port : { 4, 32, 60 } ) {
      const auto own = hashOf( before + std::to_string( port ) );
      const auto next = hashOf( before + std::to_string( port + 1 ) );
      EXPECT_EQ( next.word, own.word + 1 ) << before << port;
      EXPECT_EQ( next.spread, own.spread ) << before << port;
    }
  }
}

TEST( IntfId, internsNamesFromSeveralThreads ) {
  constexpr int count = 2000;
  std::vector< IntfId > ids[ 2 ];
  const auto intern = [ & ]( std::vector< IntfId > & to ) {
    for ( int i = 0; i < count; ++i ) {
      const Vex::String name = "thread-" + std::to_string( i );
      to.emplace_back( name );
      EXPECT_EQ( Vex::text( to.back() ), name );
    }
  };
  std::thread other( [ & ] { intern( ids[ 0 ] ); } );
  intern( ids[ 1 ] );
  other.join();
  EXPECT_EQ( ids[ 0 ], ids[ 1 ] );
}

// Whatever was interned before, the published hash is that of the name.
TEST( IntfId, hashesAnInternedNameAlikeInEveryProcess ) {
  EXPECT_EQ( IntfId( "swp12" ).hash( 7 ), 790687622u );
}

TEST( WordValues, readOnlyWhatIsInRange ) {
  const auto refuses = []< class T >( T, std::initializer_list< const char * > texts ) {
    for ( const char * text : texts ) {
      EXPECT_THROW( Vex::parse< T >( text ), Vex::ParseError ) << T::vexTypeName() << ' ' << text;
    }
  };
  refuses( Bridging::VlanId(), { "0", "010", "4095", "65537", "10x", "-1", "" } );
  refuses( Bridging::VlanIdOrNone(), { "4095", "none" } );
  refuses( Wire::MplsLabel(), { "1048577", "4294967297" } );
  refuses( Tunnel::TunnelTable::TunnelId(), { "18446744073709551616", "-1" } );
  refuses( Kez::HwTunnelId(),
           { "2:1", "1", "1:", ":1", "1:7x", "01:7", "1:07", "1:4294967296", "4294967297:1" } );
  refuses( Evpn::EncapTypeLabel(), { "02:100", "2:0100" } );
  refuses( Mpls::LfibViaKey(), { "mpls:07", "mpls:", "mpls", ":7" } );
  refuses( L2Rib::Dest(), { "mpls(Ethernet1,100)", "intf(Ethernet1", "vxlan(1)", "tunnel()" } );
  refuses( Wire::EthAddr(), { "", "00:1c:73:0a:0b", "00:1c:73:0a:0b:0c:0d", "00:1c:73:0a:0b:0g",
                              "00-1c-73-0a-0b-0c", "001c:730a:0b0cx", "0:1c:73:0a:0b:0c1" } );
  refuses( Wire::Ip4Addr(), { "", "10.0.0", "10.0.0.256", "10.0.0.1.", "10.0.0.01", "10..0.1" } );

  const auto readsBack = []( const auto & value, const char * text ) {
    using T = std::remove_cvref_t< decltype( value ) >;
    EXPECT_EQ( Vex::text( value ), text );
    EXPECT_EQ( Vex::parse< T >( text ), value );
  };
  readsBack( Bridging::VlanId( 4094 ), "4094" );
  readsBack( Bridging::VlanIdOrNone(), "0" );
  readsBack( Bridging::VlanIdOrNone( Bridging::VlanId( 4094 ) ), "4094" );
  readsBack( Wire::MplsLabel(), "1048576" );
  readsBack( Tunnel::TunnelTable::TunnelId( UINT64_MAX ), "18446744073709551615" );
  readsBack( Kez::HwTunnelId( Kez::hwTunnelIdTypeSharedEsi, 7 ), "1:7" );
  readsBack( L2Rib::Dest::ofIntf( IntfId( "Ethernet1" ) ), "intf(Ethernet1)" );
  readsBack( L2Rib::Dest::ofVxlan( 0x0a0000ff ), "vxlan(10.0.0.255)" );
  readsBack( L2Rib::Dest::ofTunnel( 5 ), "tunnel(5)" );
  readsBack( L2Rib::Dest::ofMpls( { {}, 100, 5 } ), "mpls(,100,5)" );
  readsBack( Wire::EthAddr( 0x001c730a0bfc ), "00:1c:73:0a:0b:fc" );
  EXPECT_EQ( Vex::parse< Wire::EthAddr >( "FF:1C:73:0A:0B:0C" ).value(), 0xff1c730a0b0c );

  EXPECT_FALSE( Kez::HwTunnelId( Kez::hwTunnelIdTypeSharedEsi, 0 ).valid() );
  EXPECT_EQ( Tunnel::TunnelTable::TunnelId( 0xFFFFF00000000001 ).type(), 0xFFFFFu );
}

// A destination's type and each of its parts tell it from the others.
TEST( Dest, ordersAndHashesByAllThatItHas ) {
  using L2Rib::Dest;
  const IntfId intf( "Ethernet1" );
  const Dest ascending[] = {
    Dest(),
    Dest::ofIntf( intf ),
    Dest::ofVxlan( 5 ),
    Dest::ofVxlan( 6 ),
    Dest::ofTunnel( 5 ),
    Dest::ofTunnel( 6 ),
    Dest::ofMpls( { {}, 0, 5 } ),
    Dest::ofMpls( { {}, 0, 6 } ),
    Dest::ofMpls( { {}, 1, 5 } ),
    Dest::ofMpls( { intf, 0, 5 } ),
  };
  for ( const auto & a : ascending ) {
    for ( const auto & b : ascending ) {
      EXPECT_EQ( a < b, &a < &b ) << a << b;
      EXPECT_EQ( a.hash( 1 ) == b.hash( 1 ), &a == &b ) << a << b;
      EXPECT_EQ( a.vexWord() == b.vexWord(), &a == &b ) << a << b;
    }
  }
  static_assert( std::is_trivially_copyable_v< Dest > );

  // No interface can stand for a tunnel whose type is above 12 bits.
  const auto highest = ( uint64_t( 1 ) << 56 ) - 1;
  EXPECT_EQ( Dest::ofMpls( { intf, 0, highest } ).mpls().tunnelId(), highest );
  EXPECT_THROW( L2Rib::DestDataMpls( intf, 0, highest + 1 ), Vex::RangeError );
  EXPECT_THAT( [] { Vex::parse< Dest >( "mpls(Ethernet1,0,72057594037927936)" ); },
               testing::ThrowsMessage< Vex::ParseError >(
                   "field 'tunnelId': expected a tunnel id of at most 56 bits, which an interface "
                   "can stand for, found '72057594037927936'" ) );
  EXPECT_DEATH( Dest().mpls(), R"(destType\(\) == destTypeMpls_)" );
}

TEST( TepIntfId, inputsTakeOnlyInterfacesThatLeadToATunnel ) {
  const auto segment = Vex::makePtr< Evpn::EvpnStatus >()->ethernetSegmentStatusIs( "Ethernet1" );
  for ( const char * name : { "Ethernet1", "", "DynamicTunnel32.0" } ) {
    EXPECT_THROW( segment->remoteEsiLabelIs( IntfId( name ), {} ), Vex::RangeError ) << name;
    EXPECT_THROW( segment->designatedForwarderTepIs( 10, IntfId( name ) ), Vex::RangeError );
  }
  EXPECT_EQ( segment->remoteEsiLabels() + segment->designatedForwarderTeps(), 0u );
  for ( const char * name : { "DynamicTunnel31.5", "SrTePolicy32.5" } ) {
    segment->remoteEsiLabelIs( IntfId( name ), {} );
    segment->designatedForwarderTepIs( 10, IntfId( name ) );
    EXPECT_EQ( Vex::text( segment->designatedForwarderTep( 10 ) ), name );
  }
  EXPECT_EQ( segment->designatedForwarderTep( 11 ), IntfId() );
}

TEST( WordValues, refuseNumbersOutOfRange ) {
  const auto message = []( auto make ) -> Vex::String {
    try {
      make();
    } catch ( const Vex::RangeError & error ) {
      return error.what();
    }
    return "";
  };
  for ( const uint32_t vlanId : { 4095u, 65536u } ) {
    EXPECT_EQ( message( [ & ] { Bridging::VlanIdOrNone{ vlanId }; } ),
               "VlanIdOrNone::value > 4094 not allowed" );
  }
  EXPECT_EQ( message( [] { Wire::MplsLabel{ 1048577u }; } ),
             "MplsLabel::value > 1048576 not allowed" );
  EXPECT_NE( message( [] { Tunnel::TunnelTable::TunnelId( uint64_t( 1 ) << 56 ).intfId(); } ), "" );
  EXPECT_NE( message( [] { Wire::FecIdIntfId::tunnelId( IntfId( "DynamicTunnel0.1" ) ); } ), "" );
}

} // namespace
