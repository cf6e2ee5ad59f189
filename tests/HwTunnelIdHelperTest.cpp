#include "KezHelper/EvpnHwTunnelIdSmHelperStub.h"

#include <gmock/gmock.h>

#include <cstdlib>

using testing::ElementsAre;

namespace {

using Kez::HwTunnelId;
using Kez::hwTunnelIdTypeDefault;
using Kez::hwTunnelIdTypeSharedEsi;
using KezHelper::HwTunnelIdQueue;
using Metadata = HwTunnelIdQueue::HwTunnelIdMetadata;

HwTunnelId id( uint32_t number ) {
  return HwTunnelId( hwTunnelIdTypeDefault, number );
}

// "<index>:<number>" of each member.
std::vector< std::string > members( const HwTunnelIdQueue & queue ) {
  std::vector< std::string > all;
  for ( const auto [ index, member ] : queue.hwTunnelId() ) {
    all.push_back( std::to_string( index ) + ":" + std::to_string( member.number() ) );
  }
  return all;
}

TEST( HwTunnelIdQueue, NumbersItsMembersOnAndOn ) {
  const auto queue = Vex::makePtr< HwTunnelIdQueue >( hwTunnelIdTypeDefault );
  EXPECT_FALSE( queue->hwTunnelIdDeq().valid() );
  EXPECT_EQ( queue->hwTunnelIdMetadata(), Metadata() );

  for ( const uint32_t number : { 7, 8, 9 } ) {
    queue->hwTunnelIdEnq( id( number ) );
  }
  EXPECT_THAT( members( *queue ), ElementsAre( "0:7", "1:8", "2:9" ) );
  EXPECT_EQ( queue->hwTunnelIdMetadata(), ( Metadata{ 0, 2 } ) );
  EXPECT_EQ( queue->hwTunnelIdDeq(), id( 7 ) );
  EXPECT_EQ( queue->hwTunnelIdMetadata(), ( Metadata{ 1, 2 } ) );
  queue->hwTunnelIdDeq();
  queue->hwTunnelIdDeq();
  EXPECT_EQ( queue->hwTunnelIds(), 0u );
  EXPECT_EQ( queue->hwTunnelIdMetadata(), ( Metadata{ 2, 2 } ) );
  queue->hwTunnelIdEnq( id( 7 ) );
  queue->hwTunnelIdEnq( id( 8 ) );
  EXPECT_THAT( members( *queue ), ElementsAre( "2:7", "3:8" ) );

  // Written from outside: the tail's index and the next index both bound what comes.
  queue->hwTunnelIdIs( 9, id( 1 ) );
  queue->hwTunnelIdIs( 3, id( 2 ) );
  queue->hwTunnelIdDel( queue->hwTunnelId().begin() );
  queue->hwTunnelIdEnq( id( 3 ) );
  EXPECT_THAT( members( *queue ), ElementsAre( "3:2", "9:1", "10:3" ) );
  EXPECT_EQ( queue->hwTunnelIdMetadata(), ( Metadata{ 2, 10 } ) );
  queue->hwTunnelIdMetadataIs( { 3, 20 } );
  queue->hwTunnelIdDel( 9 );
  queue->hwTunnelIdEnq( id( 4 ) );
  EXPECT_THAT( members( *queue ), ElementsAre( "3:2", "10:3", "20:4" ) );
  queue->hwTunnelIdDelAll();
  EXPECT_EQ( queue->hwTunnelIdMetadata(), ( Metadata{ 3, 20 } ) );
}

TEST( EvpnHwTunnelIdSmHelperStub, HandsOutTheOldestFreeIdOfATypeAndRecordsCalls ) {
  const auto stub = KezHelper::evpnHwTunnelIdSmHelperStubFactory( "stub" );
  EXPECT_EQ( stub->name(), "stub" );
  const auto & pools = *stub->fwkType().attribute( "freeHwTunnelId" );
  const HwTunnelId shared( hwTunnelIdTypeSharedEsi, 5 );
  stub->freeHwTunnelIdIs( hwTunnelIdTypeSharedEsi )->hwTunnelIdEnq( shared );
  pools.memberIs( *stub, "hwTunnelIdTypeDefault", "" );
  const auto free = stub->freeHwTunnelId( hwTunnelIdTypeDefault );
  const auto & queue = *free->fwkType().attribute( "hwTunnelId" );
  EXPECT_EQ( text( queue.kind ), "queue" );
  queue.memberIs( *free, "0", "0:1" );
  queue.memberIs( *free, "1", "0:2" );
  EXPECT_EQ( queue.member( *free, "1" )->value, "0:2" );

  EXPECT_EQ( stub->getHwTunnelId( hwTunnelIdTypeDefault ), id( 1 ) );
  stub->releaseHwTunnelId( id( 1 ) );
  EXPECT_EQ( stub->getHwTunnelId( hwTunnelIdTypeDefault ), id( 2 ) );
  EXPECT_EQ( stub->getHwTunnelId( hwTunnelIdTypeDefault ), id( 1 ) );
  EXPECT_EQ( stub->getHwTunnelIdHwTunnelIdType(), hwTunnelIdTypeDefault );
  EXPECT_EQ( stub->getHwTunnelId( hwTunnelIdTypeSharedEsi ), shared );
  EXPECT_EQ( stub->getHwTunnelId( hwTunnelIdTypeSharedEsi ), HwTunnelId() );
  EXPECT_EQ( stub->getHwTunnelIdCount(), 5u );
  EXPECT_EQ( stub->getHwTunnelIdHwTunnelIdType(), hwTunnelIdTypeSharedEsi );
  stub->releaseHwTunnelId( shared ); // to the pool of its own type
  EXPECT_EQ( stub->releaseHwTunnelIdCount(), 2u );
  EXPECT_EQ( stub->releaseHwTunnelIdHwTunnelId(), shared );
  EXPECT_EQ( stub->getHwTunnelId( hwTunnelIdTypeSharedEsi ), shared );

  stub->freeHwTunnelIdDelAll();
  EXPECT_DEATH( stub->getHwTunnelId( hwTunnelIdTypeDefault ), "assertion failed" );
  EXPECT_DEATH( stub->releaseHwTunnelId( shared ), "assertion failed" );
}

TEST( EvpnHwTunnelIdSmHelper, RefusesWhatAPlatformLeavesOut ) {
  const auto helper = Vex::makePtr< KezHelper::EvpnHwTunnelIdSmHelper >( "helper" );
  EXPECT_DEATH( helper->getHwTunnelId( hwTunnelIdTypeDefault ), "^Unimplemented getHwTunnelId\n" );
  EXPECT_DEATH( helper->releaseHwTunnelId( id( 1 ) ), "^Unimplemented releaseHwTunnelId\n" );
  setenv( "KEZ_NOOP_AGENT", "1", 1 );
  EXPECT_EQ( helper->getHwTunnelId( hwTunnelIdTypeDefault ), HwTunnelId() );
  helper->releaseHwTunnelId( id( 1 ) );
  unsetenv( "KEZ_NOOP_AGENT" );
}

} // namespace
