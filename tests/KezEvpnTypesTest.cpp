#include "KezEvpn/FecRequests.h"
#include "KezEvpn/FloodSets.h"
#include "KezHelper/KezBaseHelper.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

namespace {

using namespace Kez;
using Tunnel::TunnelTable::TunnelId;

// The text that a value prints as, and that text with each field in turn made unreadable.
template< class T >
void expectText( const T & value, const Vex::String & form,
                 std::initializer_list< std::pair< const char *, const char * > > fields ) {
  const auto fill = [ & ]( const char * badField ) {
    Vex::String text = form;
    for ( const auto & [ name, field ] : fields ) {
      text.replace( text.find( "%s" ), 2, Vex::String( name ) == badField ? "<?>" : field );
    }
    return text;
  };
  const Vex::String text = fill( "" );
  EXPECT_EQ( valueToStrep( value ), text );
  std::ostringstream stream;
  stream << value;
  EXPECT_EQ( stream.str(), text );
  EXPECT_EQ( T( text.data(), text.data() + text.size() ), value );
  for ( const auto & field : fields ) {
    const Vex::String bad = fill( field.first );
    try {
      T( bad.data(), bad.data() + bad.size() );
      ADD_FAILURE() << bad << " was read";
    } catch ( const Vex::ParseError & error ) {
      EXPECT_EQ( error.field(), field.first );
    }
  }
  for ( size_t size = 0; size < text.size(); ++size ) {
    EXPECT_THROW( T( text.data(), text.data() + size ), Vex::ParseError ) << size;
  }
}

TEST( KezEvpnTypes, printAndParseTheirTextForms ) {
  const Wire::IntfId intfId( "Ethernet3/1" );
  const char * const noIntf = "Value('Kez::IntfVlanKey', ** {'intfId': , 'vlanId': 1})";
  EXPECT_EQ( valueToStrep( IntfVlanKey() ), noIntf );
  EXPECT_EQ( IntfVlanKey( noIntf, noIntf + std::strlen( noIntf ) ), IntfVlanKey() );
  EXPECT_EQ( IntfVlanTunnelKey(), IntfVlanTunnelKey( Wire::IntfId(), 1, 0 ) );

  expectText( IntfVlanKey( intfId, 4094 ),
              "Value('Kez::IntfVlanKey', ** {'intfId': %s, 'vlanId': %s})",
              { { "intfId", "Ethernet3/1" }, { "vlanId", "4094" } } );
  expectText( IntfTunnelKey( intfId, UINT64_MAX ),
              "Value('Kez::IntfTunnelKey', ** {'intfId': %s, 'tunnelId': %s})",
              { { "intfId", "Ethernet3/1" }, { "tunnelId", "18446744073709551615" } } );
  expectText( IntfVlanTunnelKey( Wire::IntfId( "swp1" ), 10, 5 ),
              "Value('Kez::IntfVlanTunnelKey', ** {'intfId': %s, 'vlanId': %s, 'tunnelId': %s})",
              { { "intfId", "swp1" }, { "vlanId", "10" }, { "tunnelId", "5" } } );
  const TunnelIdToHwTunnelId record( 5, HwTunnelId( hwTunnelIdTypeSharedEsi, 7 ) );
  expectText( record, "Value('Kez::TunnelIdToHwTunnelId', ** {'key': %s, 'hwTunnelId': %s})",
              { { "key", "5" }, { "hwTunnelId", "1:7" } } );
  EXPECT_EQ( record.rookString(), "[5] 1:7" );
  EXPECT_FALSE( TunnelIdToHwTunnelId().hwTunnelId.valid() );
}

static_assert( Vex::relocatable< Rook::Fib::Fec >() );

// The number 0 is a null pointer too, and two literals are two names.
TEST( KezEvpnTypes, areMadeOfTheirFieldsWhateverThoseAreGivenAs ) {
  EXPECT_EQ( IntfTunnelKey( "Ethernet1", 0 ),
             IntfTunnelKey( Wire::IntfId( "Ethernet1" ), TunnelId() ) );
  EXPECT_EQ( IntfVlanKey( "Ethernet1", 0 ).vlanId.value(), 0 );
  static_assert( !std::is_constructible_v< IntfTunnelKey, const char *, std::nullptr_t > );
  static_assert(
      !std::is_constructible_v< IntfTunnelKey, const char( & )[ 2 ], const char( & )[ 2 ] > );
  static_assert( !std::is_constructible_v< Wire::IntfId, std::nullptr_t > );
}

// Whatever is changed of a value that is compared as the words it lies in.
TEST( KezEvpnTypes, areEqualWhereAllTheirFieldsAre ) {
  const Wire::EthAddr mac( 0xffff'0000'0001 );
  const auto dest = L2Rib::Dest::ofMpls( { {}, 100, 5 } );
  const VlanMacDest dests[] = { { 10, mac, dest },
                                { 11, mac, dest },
                                { 10, 0x7fff'0000'0001, dest },
                                { 10, 0xffff'0000'0002, dest },
                                { 10, mac, L2Rib::Dest::ofMpls( { {}, 101, 5 } ) },
                                { 10, mac, L2Rib::Dest::ofTunnel( 5 ) } };
  const HwTunnelId id( hwTunnelIdTypeSharedEsi, 0xfedc'ba98 );
  const MplsDestConfig configs[] = {
    { 5, 100, id, 9, Wire::IntfId( "Vlan1" ) },
    { 6, 100, id, 9, Wire::IntfId( "Vlan1" ) },
    { 5, Wire::MplsLabel(), id, 9, Wire::IntfId( "Vlan1" ) },
    { 5, 100, { hwTunnelIdTypeDefault, 0xfedc'ba98 }, 9, Wire::IntfId( "Vlan1" ) },
    { 5, 100, { hwTunnelIdTypeSharedEsi, 0x7edc'ba98 }, 9, Wire::IntfId( "Vlan1" ) },
    { 5, 100, id, 10, Wire::IntfId( "Vlan1" ) },
    { 5, 100, id, 9, Wire::IntfId( "Vlan2" ) }
  };
  const auto differ = []( const auto & values ) {
    for ( const auto & a : values ) {
      for ( const auto & b : values ) {
        EXPECT_EQ( a == b, &a == &b ) << a << b;
        EXPECT_EQ( Vex::text( a ) == Vex::text( b ), &a == &b );
      }
    }
  };
  differ( dests );
  differ( configs );
  EXPECT_EQ( configs[ 0 ].hwTunnelId, id );
  EXPECT_EQ( configs[ 0 ].hwTunnelId.number(), id.number() );
  EXPECT_EQ( configs[ 0 ].hwTunnelId.hwTunnelIdType(), hwTunnelIdTypeSharedEsi );
  EXPECT_EQ( configs[ 2 ].label.value(), Wire::MplsLabel::none );
}

TEST( KezEvpnTypes, flowThroughTextOnTheWayToHardware ) {
  const L2Rib::Dest dest = L2Rib::Dest::ofMpls( { "Ethernet1", 100, 5 } );
  expectText( VlanMacDest( 10, 0xa, dest ),
              "Value('Kez::VlanMacDest', ** {'vlanId': %s, 'macAddr': %s, 'dest': %s})",
              { { "vlanId", "10" },
                { "macAddr", "00:00:00:00:00:0a" },
                { "dest", "mpls(Ethernet1,100,5)" } } );
  expectText( MplsFloodSetVia( 5, 100, 4094u ),
              "Value('Kez::MplsFloodSetVia', ** {'tunnelId': %s, 'label': %s, 'vlanId': %s})",
              { { "tunnelId", "5" }, { "label", "100" }, { "vlanId", "4094" } } );
  expectText(
      MplsDestHwInfo( UINT64_MAX, "Vlan10" ),
      "Value('Kez::MplsDestHwInfo', ** {'hwIdForTunnelProgramming': %s, 'l2IntfId': %s})",
      { { "hwIdForTunnelProgramming", "18446744073709551615" }, { "l2IntfId", "Vlan10" } } );
  const char * const config = "Value('Kez::MplsDestConfig', ** {'tunnelId': %s, 'label': %s, "
                              "'hwTunnelId': %s, 'hwIdForTunnelProgramming': %s, 'l2IntfId': %s})";
  expectText( MplsDestConfig(), config,
              { { "tunnelId", "0" },
                { "label", "1048576" },
                { "hwTunnelId", "0:0" },
                { "hwIdForTunnelProgramming", "0" },
                { "l2IntfId", "" } } );
  expectText( Rook::Fib::Fec( 7, { { "Ethernet1", 100 }, { "", 101 } } ),
              "Value('Rook::Fib::Fec', ** {'fecId': %s, 'via': %s})",
              { { "fecId", "7" }, { "via", "[(Ethernet1,100),(,101)]" } } );
  EXPECT_EQ( Vex::parse< Rook::Fib::FecVias >( "[]" ), Rook::Fib::FecVias() );
  EXPECT_LT( MplsFloodSetVia( 5, 100, 10u ), MplsFloodSetVia( 5, 101, 0u ) );
  EXPECT_NE( MplsFloodSetVia( 5, 100, 10u ), MplsFloodSetVia( 5, 100, 0u ) );
  EXPECT_THROW( mplsFloodSetVia( uint64_t( 14 ) << 44, 100, 4095 ), Vex::RangeError );
}

TEST( KezEvpnTypes, orderFieldByFieldAndTunnelIdsUnsigned ) {
  const Wire::IntfId two( "Ethernet2" ), ten( "Ethernet10" );
  const IntfVlanTunnelKey ascending[] = {
    { two, 1, 7 }, { two, 1, INT64_MAX }, { two, 1, UINT64_MAX },
    { two, 2, 0 }, { ten, 1, 0 },         { Wire::IntfId( "swp1" ), 1, 0 }
  };
  for ( const auto & a : ascending ) {
    for ( const auto & b : ascending ) {
      EXPECT_EQ( a < b, &a < &b ) << a << b;
      EXPECT_EQ( a == b, &a == &b );
      EXPECT_EQ( a.hash( 1 ) == b.hash( 1 ), &a == &b ) << a << b;
    }
  }
  EXPECT_NE( ascending[ 0 ].hash( 1 ), ascending[ 0 ].hash( 2 ) );
}

TEST( KezEvpnTypes, takeTunnelIdsFromInterfaces ) {
  constexpr uint64_t limit = uint64_t( 1 ) << 49;
  const auto tunnelIdOf = []( const char * name ) -> Vex::String {
    try {
      return Vex::text( srTeOrDynamicTunnelIntfIdToTunnelId( Wire::IntfId( name ) ) );
    } catch ( const Vex::RangeError & error ) {
      return error.what();
    }
  };
  const Vex::String outOfRange =
      "TunnelId::value < TunnelId::minValue or > TunnelId::maxValue not allowed";
  EXPECT_EQ( tunnelIdOf( "DynamicTunnel31.17592186044415" ), std::to_string( limit - 1 ) );
  EXPECT_EQ( tunnelIdOf( "DynamicTunnel32.0" ), outOfRange );
  EXPECT_EQ( tunnelIdOf( "SrTePolicy32.1" ), std::to_string( limit + 1 ) );
  EXPECT_EQ( tunnelIdOf( "Ethernet1" ), outOfRange );
  EXPECT_EQ( tunnelIdOf( "" ), outOfRange );

  const auto policy = Wire::FecIdIntfId::srTePolicyIntfId( limit + 1 );
  const auto dynamic = Wire::DynamicTunnelIntfId::intfId( 3 );
  EXPECT_EQ( destMplsTunnelId( L2Rib::Dest::ofMpls( { policy, 100, 5 } ) ), TunnelId( limit + 1 ) );
  EXPECT_EQ( destMplsTunnelId( L2Rib::Dest::ofMpls( { dynamic, 100, 5 } ) ), TunnelId( 5 ) );
  EXPECT_DEATH( destMplsTunnelId( L2Rib::Dest::ofIntf( dynamic ) ),
                R"(KezEvpn/KezEvpn:.*dest\.destType\(\) == L2Rib::destTypeMpls_)" );
}

TEST( KezEvpnTypes, statusConvertsBetweenValueNameAndNumber ) {
  const HwProgrammingStatus all[] = { HwProgrammingStatus::programmed,
                                      HwProgrammingStatus::notProgrammed,
                                      HwProgrammingStatus::invalidHwId };
  const char * const names[] = { "programmed", "notProgrammed", "invalidHwId" };
  for ( unsigned i = 0; i < 3; ++i ) {
    EXPECT_EQ( HwProgrammingStatusInstance( i ), all[ i ] );
    EXPECT_EQ( HwProgrammingStatusInstance( Vex::String( names[ i ] ) ), all[ i ] );
    EXPECT_EQ( stringValue( all[ i ] ), names[ i ] );
  }
  EXPECT_THROW( HwProgrammingStatusInstance( 3u ), Vex::RangeError );
}

struct Owner : Vex::ReactorOwner {};
struct CountWatcher : Vex::ReactorOf< Owner, EvpnRemoteInfo > {
  explicit CountWatcher( Owner & owner ) : ReactorOf( owner ) {}
  void onAttribute( Vex::AttrId, const void * key ) override {
    told.push_back( EvpnRemoteInfo::remoteTunnelIdAttr.key( key ).value() );
  }
  std::vector< uint64_t > told;
};

TEST( KezEvpnTypes, remoteInfoCountsTunnels ) {
  const auto info = evpnRemoteInfoFactory();
  Owner owner;
  CountWatcher watcher( owner );
  watcher.notifierIs( Vex::Ptr< const EvpnRemoteInfo >( info ) );
  EXPECT_EQ( info->remoteTunnelIdInc( 5, 2 ), 2u );
  info->remoteTunnelIdIs( 5, 2 ); // what stands already: nobody is told
  info->remoteTunnelIdIs( 9, 0 ); // a count of 0 is a member
  EXPECT_EQ( info->remoteTunnelIdDec( 5, 2 ), 0u );
  EXPECT_TRUE( info->remoteTunnelIdHas( 5 ) );
  info->remoteTunnelIdDel( 5 );
  EXPECT_FALSE( info->remoteTunnelIdHas( 5 ) );
  EXPECT_EQ( info->remoteTunnelIdDec( 6, 1 ), UINT32_MAX );
  EXPECT_EQ( watcher.told, ( std::vector< uint64_t >{ 5, 9, 5, 5, 6 } ) );
}

TEST( KezEvpnTypes, helperAssertionSaysWhyAndAborts ) {
  EXPECT_DEATH( KezBaseHelper( "helper" ).kezAssert( "Unimplemented createVlan" ),
                "Unimplemented createVlan\n/usr/include/Kez/KezBaseHelper:[0-9]+: "
                "assertion failed: 0" );
}

} // namespace
