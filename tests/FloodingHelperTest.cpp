#include "KezHelper/EvpnFloodingSmHelperStub.h"

#include <gtest/gtest.h>

#include <cstdlib>

using Kez::HwProgrammingStatus;

namespace {

const Wire::IntfId intf( "Port-Channel1" );
const Wire::IntfId port( "Ethernet1" );

TEST( FloodingHelper, BaseRefusesWhatAPlatformMustImplement ) {
  const auto helper = Vex::makePtr< KezHelper::EvpnFloodingSmHelper >( "bare" );
  EXPECT_EQ( helper->createVlan( 10, 110 ), HwProgrammingStatus::notProgrammed );
  EXPECT_EQ( helper->createNonDfPort( intf, port, 10 ), HwProgrammingStatus::notProgrammed );
  helper->deleteVlan( 10, 110 );
  helper->deleteNonDfPort( intf, port, 10 );

  const std::string failure = "\n/usr/include/Kez/KezBaseHelper:[0-9]+: assertion failed: 0";
  EXPECT_DEATH( helper->createVlanToDot1qMapping( intf, port, 10, 110 ),
                "^Unimplemented createVlanToDot1qMapping" + failure );
  EXPECT_DEATH( helper->deleteVlanToDot1qMapping( intf, port, 10, 110 ),
                "^Unimplemented deleteVlanToDot1qMapping" + failure );
  EXPECT_DEATH( helper->createEsiData( intf, port, 10, 7, {}, 100, 200 ),
                "^Unimplemented addEsiData" + failure );
  EXPECT_DEATH( helper->deleteEsiData( intf, port, 10, 7, {} ),
                "^Unimplemented deleteEsiData" + failure );

  ::setenv( "KEZ_NOOP_AGENT", "", 1 );
  EXPECT_EQ( helper->createVlanToDot1qMapping( intf, port, 10, 110 ),
             HwProgrammingStatus::notProgrammed );
  EXPECT_EQ( helper->createEsiData( intf, port, 10, 7, {}, 100, 200 ),
             HwProgrammingStatus::notProgrammed );
  helper->deleteVlanToDot1qMapping( intf, port, 10, 110 );
  helper->deleteEsiData( intf, port, 10, 7, {} );
  ::unsetenv( "KEZ_NOOP_AGENT" );
}

TEST( FloodingHelper, StubCountsRecordsAndAnswersAsItIsSet ) {
  const auto stub = KezHelper::evpnFloodingSmHelperStubFactory( "stub" );
  EXPECT_EQ( stub->name(), "stub" );
  EXPECT_EQ( stub->createVlan( 10, 110 ), HwProgrammingStatus::programmed );
  stub->createVlanToDot1qRcIs( HwProgrammingStatus::notProgrammed );
  EXPECT_EQ( stub->createVlanToDot1qMapping( intf, port, 20, 120 ),
             HwProgrammingStatus::notProgrammed );
  stub->createNonDfPortRcIs( HwProgrammingStatus::invalidHwId );
  EXPECT_EQ( stub->createNonDfPort( intf, port, 30 ), HwProgrammingStatus::invalidHwId );
  EXPECT_EQ( stub->createEsiData( intf, port, 40, 7, {}, 100, 200 ),
             HwProgrammingStatus::programmed );
  stub->createEsiData( intf, port, 41, 8, {}, 101, 201 );
  stub->deleteEsiData( port, port, 42, 9, {} );
  stub->deleteVlanToDot1qMapping( intf, port, 21, 121 );
  stub->deleteNonDfPort( intf, port, 31 );
  stub->deleteVlan( 11, 111 );

  // Each operation by what it recorded last, through reflection.
  const auto recorded = [ & ]( std::string_view attribute ) {
    return stub->fwkType().attribute( attribute )->value( *stub );
  };
  const std::pair< const char *, const char * > expected[] = {
    { "createVlanVlanId", "10" },
    { "createVlanDot1q", "110" },
    { "createVlanCount", "1" },
    { "deleteVlanVlanId", "11" },
    { "deleteVlanDot1q", "111" },
    { "deleteVlanCount", "1" },
    { "createNonDfPortIntfId", "Ethernet1" },
    { "createNonDfPortVlanId", "30" },
    { "createNonDfPortCount", "1" },
    { "deleteNonDfPortIntfId", "Ethernet1" },
    { "deleteNonDfPortVlanId", "31" },
    { "deleteNonDfPortCount", "1" },
    { "createVlanToDot1qParentIntfId", "Port-Channel1" },
    { "createVlanToDot1qMemberIntfId", "Ethernet1" },
    { "createVlanToDot1qVlanId", "20" },
    { "createVlanToDot1qDot1q", "120" },
    { "createVlanToDot1qCount", "1" },
    { "deleteVlanToDot1qParentIntfId", "Port-Channel1" },
    { "deleteVlanToDot1qMemberIntfId", "Ethernet1" },
    { "deleteVlanToDot1qVlanId", "21" },
    { "deleteVlanToDot1qDot1q", "121" },
    { "deleteVlanToDot1qCount", "1" },
    { "createEsiDataParentIntfId", "Port-Channel1" },
    { "createEsiDataMemberIntfId", "Ethernet1" },
    { "createEsiDataVlanId", "41" },
    { "createEsiDataTid", "8" },
    { "createEsiDataLabel", "101" },
    { "createEsiDataCount", "2" },
    { "deleteEsiDataParentIntfId", "Ethernet1" },
    { "deleteEsiDataMemberIntfId", "Ethernet1" },
    { "deleteEsiDataVlanId", "42" },
    { "deleteEsiDataTid", "9" },
    { "deleteEsiDataCount", "1" },
  };
  for ( const auto & [ attribute, value ] : expected ) {
    EXPECT_EQ( recorded( attribute ), value ) << attribute;
  }
}

} // namespace
