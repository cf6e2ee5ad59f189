#include "FloodSetMachines.h"

#include <gmock/gmock.h>

namespace {

using SwitchFloodSetsTest = FloodSetMachines;

TEST_F( SwitchFloodSetsTest, AFecStandsWhileEitherHalfOfItsRequestDoes ) {
  const Rook::Fib::Fec fec( 1, { { Wire::DynamicTunnelIntfId::intfId( 5 ), 100 } } );
  const auto ask = [ & ]( const Rook::Fib::Fec & fec ) {
    request->fecIs( fec );
    request->hwFecIdRequestIs( { fec.fecId, {} } );
  };
  driver->answerDelayIs( 1 );
  ask( fec );
  ask( { 2, {} } ); // leads nowhere
  advance( 0.5 );
  request->fecDel( 1 );
  advance( 0.5 );
  EXPECT_TRUE( response->hwFecIdResponseHas( 1 ) );
  advance( 5 );
  EXPECT_TRUE( response->hwFecIdResponseHas( 1 ) );
  EXPECT_EQ( response->hwFecIdResponses(), 1u );

  // Hardware that comes late answers what is asked for already.
  request->fecIs( fec );
  const auto lateResponse = Kez::fecIdToHwFecIdResponseFactory();
  const auto late = Vex::makePtr< Switch::SwitchFloodSets >(
      Vex::makePtr< Switch::SimulatedSwitch >(), scheduler->timerWheel(), request, lateResponse,
      config, status );
  EXPECT_TRUE( lateResponse->hwFecIdResponseHas( 1 ) );

  request->hwFecIdRequestDel( 1 );
  EXPECT_TRUE( lateResponse->hwFecIdResponseHas( 1 ) );
  request->fecDel( 1 );
  advance( 1 );
  EXPECT_EQ( response->hwFecIdResponses() + lateResponse->hwFecIdResponses(), 0u );
}

TEST_F( SwitchFloodSetsTest, AFecIsAnsweredForThePathThatHasItsIdWhenTheAnswerComes ) {
  const Via other( 6, 100, 0 );
  start();
  // Refused, and given up: its id rests, and goes to another path before the next try.
  driver->retryIntervalIs( 20 );
  hardware->faultIs( Switch::Operation::createFec )->nextCallsIs( 1 );
  floodSet()->destSetIs( mpls( 5 ) );
  floodSet()->destSetDel( mpls( 5 ) );
  advance( 12 );
  floodSet()->destSetIs( mpls( 6 ) );
  const auto fecId = fecSm->mplsFloodSetViaCache( other );
  advance( 20 );
  EXPECT_EQ( hwInfo->mapping( other ).l2IntfId, Wire::DynamicTunnelIntfId::intfId( 6 ) );
  EXPECT_EQ( hardware->callCount( Switch::Operation::createFec ), 2u );

  // The same of an answer that comes after the id has gone to another path.
  floodSet()->destSetDelAll();
  advance( 12 );
  driver->answerDelayIs( 15 );
  floodSet()->destSetIs( mpls( 5 ) );
  floodSet()->destSetDel( mpls( 5 ) );
  advance( 12 );
  floodSet()->destSetIs( mpls( 6 ) );
  EXPECT_EQ( fecSm->mplsFloodSetViaCache( other ), fecId );
  for ( int i = 0; i < 20; ++i ) {
    advance( 1 );
    EXPECT_THAT( hwInfo->mapping( other ).l2IntfId,
                 testing::AnyOf( Wire::IntfId(), Wire::DynamicTunnelIntfId::intfId( 6 ) ) );
  }
  EXPECT_TRUE( hwInfo->mappingHas( other ) );
}

TEST_F( SwitchFloodSetsTest, ADestinationThatIsRefusedIsTriedOnceAnInterval ) {
  start();
  floodSet( 20 )->destSetIs( mpls( 5 ) ); // keeps the FEC
  hardware->capacityIs( Switch::Table::floodSetDest, 1 );
  for ( int i = 0; i < 20; ++i ) {
    floodSet( 10 )->destSetIs( mpls( 5 ) );
    floodSet( 10 )->destSetDel( mpls( 5 ) );
  }
  floodSet( 10 )->destSetIs( mpls( 5 ) );
  const auto calls = hardware->callCount( Switch::Operation::createFloodSetDest );
  advance( 10 );
  EXPECT_EQ( hardware->callCount( Switch::Operation::createFloodSetDest ), calls + 2 );
  hardware->capacityDel( Switch::Table::floodSetDest );
  advance( 5 );
  EXPECT_EQ( hardware->floodSetDests(), 2u );
  EXPECT_EQ( driver->pendingAnswers(), 0u );
}

TEST_F( SwitchFloodSetsTest, ShuffledAnswersComeInAnotherOrderTheSameForASeed ) {
  start();
  driver->answerDelayIs( 1 );
  const auto order = [ & ]( uint64_t seed ) {
    floodSet()->destSetDelAll();
    advance( 20 );
    driver->shuffleSeedIs( seed );
    for ( uint32_t label = 100; label < 120; ++label ) {
      floodSet()->destSetIs( mpls( 5, label ) );
    }
    advance( 1 );
    std::vector< uint32_t > labels;
    for ( const auto & [ path, info ] : hwInfo->mapping() ) {
      labels.push_back( path.label.value() );
    }
    return labels;
  };
  const auto shuffled = order( 7 );
  EXPECT_EQ( shuffled.size(), 20u );
  EXPECT_FALSE( std::is_sorted( shuffled.begin(), shuffled.end() ) );
  EXPECT_EQ( order( 7 ), shuffled );
  EXPECT_NE( order( 8 ), shuffled );
  const auto unshuffled = order( 0 );
  EXPECT_TRUE( std::is_sorted( unshuffled.begin(), unshuffled.end() ) );
}

} // namespace
