#include "FloodSetMachines.h"
#include "TraceCapture.h"

#include <gmock/gmock.h>

using testing::ElementsAre;

namespace {

using FloodSetSmTest = FloodSetMachines;

// Runs what it is given, once, at the first change of a flood set's configurations.
class Meddler : public Vex::ReactorOwner {
public:
  class VexConfig : public Vex::Reactor {
  public:
    VexConfig( Meddler & meddler, const Vex::Ptr< Kez::VlanFloodSetConfig > & config )
        : Reactor( meddler ), meddler_( meddler ) {
      notifierIs( config.get() );
    }
    ~VexConfig() override { notifierIs( nullptr ); }

  private:
    void onAttribute( Vex::AttrId, const void * ) override {
      if ( const auto meddle = std::exchange( meddler_.meddle, nullptr ) ) {
        meddle();
      }
    }
    Meddler & meddler_;
  };

  std::function< void() > meddle;
};

// The hardware side by itself.
TEST_F( FloodSetSmTest, TracesADestinationsWayToHardwareAndBack ) {
  start();
  hwTunnelIdIs( 5, 7 );
  const std::string dest = "vlan: 10 mac: 00:00:00:00:00:01 dest: mpls(,100,5)";
  const auto linesOf = [ & ]( const char * setting, bool present ) {
    floodSet()->destSetIs( mpls( 5 ), !present );
    TraceCapture trace( setting );
    floodSet()->destSetIs( mpls( 5 ), present );
    return trace.take();
  };
  EXPECT_THAT( linesOf( "KezEvpnVlanFloodSetFilterSm", true ),
               ElementsAre( "8   handleDestSet " + dest, "8    processDest " + dest,
                            "8     addDest " + dest, "1      adding dest mpls(,100,5)" ) );
  EXPECT_THAT( linesOf( "KezEvpnVlanFloodSetFilterSm", false ),
               ElementsAre( "8   handleDestSet " + dest, "8    processDest " + dest,
                            "8     deleteDest " + dest, "1      deleting dest mpls(,100,5)",
                            "1      deleting floodSet with vlan 10 and mac 00:00:00:00:00:01",
                            "1      deleting vlanFloodSet with vlan 10" ) );
  advance( 11 );
  const std::string what = "tunnelId: 5 label: 100";
  const std::string hwConfig = what + " hwTunnelId: 0:7 hwId: 1 l2IntfId: DynamicTunnel0.5";
  EXPECT_THAT( linesOf( "KezEvpnVlanFloodSetSm/1", true ),
               ElementsAre( "1    add entry to internal mappings",
                            "1    hwId not ready for dest, " + what,
                            "1    add hardware config: " + hwConfig,
                            "1   config is programmed in hardware" ) );
  EXPECT_THAT( linesOf( "KezEvpnVlanFloodSetSm/1", false ),
               ElementsAre( "1    remove entry from internal mappings",
                            "1    remove hardware config: " + hwConfig,
                            "1   config is not programmed in hardware", "1  hwId is not ready " ) );
  advance( 11 );
  const std::string fecId = std::to_string( firstFecId );
  EXPECT_THAT( linesOf( "KezEvpnFloodSetFecSm/1-2", true ),
               ElementsAre( "2  add or update hwInfo for " + what + " vlanId: 0",
                            "1   config is programmed in hardware",
                            "2      mplsFloodSetFecRequest created or updated: (" + what +
                                " hwTunnelId:0:7 fecId: " + fecId ) );
  EXPECT_EQ( configsOf( pair ), std::set{ answered( 7 ) } );
  EXPECT_THAT(
      linesOf( "KezEvpnFloodSetFecSm/1-2", false ),
      ElementsAre( "1   config is removed from hardware",
                   "2      mplsFloodSetFecRequest created or updated: (" + what +
                       " hwTunnelId:0:7 fecId: " + fecId,
                   "2  delete hwInfo for " + what, "2    Deleting fecId: " + fecId,
                   "2      mplsFloodSetFecRequest removed: (" + what + " fecId: " + fecId ) );
  TraceCapture trace( "KezEvpnFloodSetFecSm/1-2,KezEvpnVlanFloodSetSm/1" );
  floodSet()->destSetIs( mpls( 0 ) );
  EXPECT_EQ( trace.take().back(), "1   Invalid tunnelId not supported " );
  response->hwFecIdResponseIs( firstFecId + 9, { 1, "Ethernet1" } );
  EXPECT_THAT( trace.take(), ElementsAre( "2  got stale response for FecId:" +
                                          std::to_string( firstFecId + 9 ) ) );
  hwTunnelIdIs( 6, 1 );
  EXPECT_THAT( trace.take(), ElementsAre( "1  no dests associated with this tunnel ",
                                          "1  no fecRequest associated with this tunnel " ) );
}

TEST_F( FloodSetSmTest, TracesHandlersOfWholeFloodSetsAndWhyAPathStays ) {
  driver->answerDelayIs( 1 );
  start();
  const std::string set = "vlan: 10 mac: 00:00:00:00:00:01";
  TraceCapture trace( "KezEvpnVlanFloodSetFilterSm" );
  input->sourceIs( "rib" );
  floodSet();
  input->vlanFloodSetDel( 10 );
  EXPECT_THAT( trace.take(),
               ElementsAre( "8 handleSource source: rib", "8 handleVlanFloodSet vlan: 10",
                            "8  processVlanFloodSet vlan: 10", "8  handleFloodSet " + set,
                            "8   processFloodSet " + set, "8  handleFloodSet " + set,
                            "8   processFloodSet " + set,
                            "1    deleting floodSet with vlan 10 and mac 00:00:00:00:00:01",
                            "8 handleVlanFloodSet vlan: 10", "8  processVlanFloodSet vlan: 10",
                            "1   deleting vlanFloodSet with vlan: 10" ) );
  const std::string dest = set + " dest: mpls(,100,5)";
  const std::string path = "(tunnelId: 5 label: 100 vlanId: 0";
  const std::string fecId = std::to_string( firstFecId );
  Ringlog::traceIs( "KezEvpnFloodSetFecSm" );
  floodSet()->destSetIs( mpls( 5 ) );
  EXPECT_THAT( trace.take(),
               ElementsAre( "8 handleFloodSet " + set, "8 handleDestSet " + dest,
                            "8 processMplsDest " + dest, "8 processFecRequest " + path,
                            "8 createOrUpdateFecRequest tunnelId: 5 label: 100 vlanId: 0",
                            "2      mplsFloodSetFecRequest created or updated: (tunnelId: 5 label: "
                            "100 hwTunnelId:0:0 fecId: " +
                                fecId ) );
  advance( 3 );
  EXPECT_THAT( trace.take(),
               ElementsAre( "8 handleFecResponse " + fecId,
                            "2  add or update hwInfo for tunnelId: 5 label: 100 vlanId: 0",
                            "8 handleVlanFloodSetStatus " + set,
                            "8 handleMplsDestStatus " + set + " tunnelId: 5 label: 100",
                            "1   config is programmed in hardware" ) );
  floodSet()->destSetDel( mpls( 5 ) );
  EXPECT_THAT( trace.take(), ElementsAre( "8 handleDestSet " + dest, "8 processMplsDest " + dest,
                                          "8 processFecRequest " + path,
                                          "1     wait for hardware to unprogram the floodSet",
                                          "8 handleFloodSet " + set ) );
  advance( 3 ); // the path has gone; told once more that its destination has
  Ringlog::traceIs( "KezEvpnFloodSetFecSm/2" );
  fecSm->processMplsDest( 10, 1, mpls( 5 ) );
  EXPECT_EQ( trace.take().back(), "2      fecId not found, fecRequest already removed" );
}

TEST_F( FloodSetSmTest, ANewHwTunnelIdReplacesTheConfigurationsOfItsTunnelAlone ) {
  hwTunnelIdIs( 5, 7 );
  start();
  for ( const uint64_t tunnel : { 5, 5, 6 } ) {
    floodSet( 10 )->destSetIs( mpls( tunnel ) );
  }
  floodSet( 20 )->destSetIs( mpls( 5 ) );
  EXPECT_EQ( fecSm->fecIdCaches(), 2u ); // one path for both VLANs
  const auto calls = hardware->callCount( Switch::Operation::createFloodSetDest );
  TraceCapture trace( "KezEvpnVlanFloodSetSm/1" );
  hwTunnelIdIs( 5, 8 );
  const auto lines = trace.take();
  EXPECT_EQ( lines[ 0 ], "1    update hardware config, existing: ( tunnelId: 5 label: 100 "
                         "hwTunnelId: 0:7 hwId: 1 l2IntfId: DynamicTunnel0.5 ), new: ( tunnelId 5 "
                         "label: 100 hwTunnelId: 0:8 hwId: 1 l2IntfId: DynamicTunnel0.5" );
  EXPECT_EQ( hardware->callCount( Switch::Operation::createFloodSetDest ), calls + 2 );
  EXPECT_EQ( configsOf( { 1, 20 } ), std::set{ answered( 8 ) } );
  EXPECT_EQ( request->hwFecIdRequest( firstFecId ).hwTunnelId.front().number(), 8u );
  hwTunnelIdIs( 5, 8 ); // each write of the table is told of
  EXPECT_THAT( trace.take(), ElementsAre( "1    no change in hardware config, skip ",
                                          "1    no change in hardware config, skip " ) );
}

TEST_F( FloodSetSmTest, TunnelsOfType14HaveAPathAVlan ) {
  start();
  floodSet( 10 )->destSetIs( mpls( perVlanTunnel ) );
  floodSet( 20 )->destSetIs( mpls( perVlanTunnel ) );
  EXPECT_TRUE( hwInfo->mappingHas( { perVlanTunnel, 100, 10u } ) );
  EXPECT_TRUE( hwInfo->mappingHas( { perVlanTunnel, 100, 20u } ) );
  EXPECT_EQ( hwInfo->mappings(), 2u );
}

TEST_F( FloodSetSmTest, TheFilterFollowsTheTypeAndTheSource ) {
  const auto set = floodSet();
  input->sourceIs( "rib" );
  mplsOnly->vlanFloodSetIs( 30 )->floodSetIs( 1 )->destSetIs( mpls( 9 ) ); // of an earlier filter
  mplsOnly->vlanFloodSetIs( 10 )->floodSetIs( 1 )->destSetIs( Dest::ofVxlan( 1 ) );
  set->destSetIs( Dest::ofVxlan( 1 ) );
  start();
  EXPECT_EQ( mplsOnly->source(), "rib" );
  EXPECT_EQ( mplsOnly->vlanFloodSets(), 0u );
  set->floodSetTypeIs( L2Rib::FloodSetType::underlayMulticast );
  set->destSetIs( mpls( 5 ) );
  EXPECT_EQ( mplsOnly->vlanFloodSet( 10 )->floodSet( 1 )->floodSetType(),
             L2Rib::FloodSetType::underlayMulticast );
  input->sourceIs( "other" );
  EXPECT_EQ( mplsOnly->source(), "other" );
}

TEST_F( FloodSetSmTest, DestinationsOfOneConfigurationShareIt ) {
  start();
  const Dest dests[] = { mpls( 5 ), mpls( 5, 100, "Ethernet1" ),
                         mpls( 6, 100, Wire::FecIdIntfId::srTePolicyIntfId( 5 ) ) };
  for ( const auto & dest : dests ) {
    floodSet()->destSetIs( dest );
    EXPECT_EQ( configsOf( pair ), std::set{ answered( 0 ) } );
  }
  hwTunnelIdIs( 5, 7 );
  for ( const auto & dest : dests ) {
    EXPECT_EQ( configsOf( pair ), std::set{ answered( 7 ) } );
    floodSet()->destSetDel( dest );
  }
  EXPECT_EQ( config->configs(), 0u );
  EXPECT_EQ( request->fecs(), 0u );
}

TEST_F( FloodSetSmTest, AnAnswerWithinTheWriteLeavesOneConfiguration ) {
  start();
  floodSet()->destSetIs( mpls( 5 ) );
  Meddler meddler;
  const Meddler::VexConfig reactor( meddler, config->config( pair ) );
  // The withdrawal of the old one brings about a newer one than is about to be published.
  meddler.meddle = [ & ] { hwTunnelIdIs( 5, 8 ); };
  hwTunnelIdIs( 5, 7 );
  EXPECT_EQ( configsOf( pair ), std::set{ answered( 8 ) } );
  // The publication for one destination takes away what another one still has.
  floodSet()->destSetIs( mpls( 5, 100, "Ethernet1" ) );
  meddler.meddle = [ & ] { response->hwFecIdResponseDel( firstFecId ); };
  hwTunnelIdIs( 5, 9 ); // of which the request is told after that, and answered
  EXPECT_EQ( configsOf( pair ), std::set{ answered( 9 ) } );
  EXPECT_EQ( floodSetSm->furtherDests(), 1u );
}

// The members of an attribute as reflection walks them, "key" or "key = value".
std::vector< std::string > membersOf( const Vex::Entity & entity, const char * name ) {
  const auto * const attribute = entity.fwkType().attribute( name );
  std::vector< std::string > members;
  attribute->forEach( entity, [ & ]( const Vex::ReflectedMember & member ) {
    const std::string value( member.value );
    members.push_back( std::string( member.key ) + ( value.empty() ? "" : " = " + value ) );
    EXPECT_EQ( attribute->member( entity, member.key )->value, member.value );
  } );
  EXPECT_EQ( attribute->size( entity ), members.size() );
  return members;
}

TEST_F( FloodSetSmTest, WhatIsComputedReadsAsIfItWereKept ) {
  start();
  EXPECT_THAT( membersOf( *floodSetSm, "mplsDestHwConfig" ), ElementsAre() );
  hwTunnelIdIs( 5, 7 );
  floodSet( 10 )->destSetIs( mpls( 5 ) );
  floodSet( 20 )->destSetIs( mpls( 5, 200 ) );
  floodSet( 20 )->destSetIs( mpls( 6 ) );
  floodSet( 20 )->destSetIs( mpls( 0 ) ); // which no hardware id is ever given for
  const std::string vlan10 = "10,00:00:00:00:00:01,", vlan20 = "20,00:00:00:00:00:01,";
  EXPECT_THAT( membersOf( *floodSetSm, "mplsDestHwConfig" ),
               ElementsAre( vlan10 + "mpls(,100,5) = 5,100,0:7,1,DynamicTunnel0.5",
                            vlan20 + "mpls(,200,5) = 5,200,0:7,2,DynamicTunnel0.5",
                            vlan20 + "mpls(,100,6) = 6,100,0:0,3,DynamicTunnel0.6" ) );
  EXPECT_THAT( membersOf( *floodSetSm->tunnelToFloodSetEntry( 5 ), "vlanMacDestSet" ),
               ElementsAre( vlan10 + "mpls(,100,5)", vlan20 + "mpls(,200,5)" ) );
  EXPECT_THAT( membersOf( *floodSetSm->tunnelToFloodSetEntry( 0 ), "vlanMacDestSet" ),
               ElementsAre( vlan20 + "mpls(,100,0)" ) );
  const auto & attribute = *floodSetSm->fwkType().attribute( "mplsDestHwConfig" );
  for ( const std::string & absent :
        { vlan20 + "mpls(,100,0)", vlan20 + "mpls(,100,5)", vlan20 + "vxlan(10.0.0.1)" } ) {
    EXPECT_FALSE( attribute.member( *floodSetSm, absent ) ) << absent;
  }
  EXPECT_THROW( attribute.reset( *floodSetSm ), Vex::NotSupported );

  // A walk that was left off goes on over what stands then.
  const auto walk = attribute.walk( *floodSetSm );
  EXPECT_EQ( walk->next()->key, vlan10 + "mpls(,100,5)" );
  input->vlanFloodSetDel( 10 );
  floodSet( 20 )->destSetDel( mpls( 5, 200 ) );
  EXPECT_EQ( walk->next()->key, vlan20 + "mpls(,100,6)" );
  EXPECT_FALSE( walk->next() );
  EXPECT_FALSE( floodSetSm->tunnelToFloodSetEntryHas( 5 ) );
  EXPECT_THAT( membersOf( *floodSetSm, "mplsDestHwConfig" ),
               ElementsAre( vlan20 + "mpls(,100,6) = 6,100,0:0,3,DynamicTunnel0.6" ) );
}

// Which configuration of a flood set hardware has programmed first, and lets go of first, is no
// matter.
TEST_F( FloodSetSmTest, APathCountsEachProgrammedConfigurationOnce ) {
  start();
  const auto programmed = [ & ]( uint32_t hwTunnelId, bool isProgrammed = true ) {
    if ( isProgrammed ) {
      status->statusIs( pair )->mplsDestStatusIs( answered( hwTunnelId ),
                                                  Kez::HwProgrammingStatus::programmed );
    } else {
      status->statusIs( pair )->mplsDestStatusDel( answered( hwTunnelId ) );
    }
  };
  const auto via = Kez::MplsFloodSetVia( 5, 100, 0u );
  for ( const uint32_t each : { 7, 8, 9, 8 } ) {
    programmed( each );
  }
  const auto entry = fecSm->floodSetStatusCache( via );
  EXPECT_EQ( entry->programmed().size(), 3u );
  EXPECT_EQ( entry->furtherConfig( pair ), 2u );
  programmed( 7, false ); // which the flood set's own note was of
  EXPECT_FALSE( entry->programmedHas( { pair, answered( 7 ) } ) );
  EXPECT_TRUE( entry->programmedHas( { pair, answered( 9 ) } ) );
  programmed( 6 );
  programmed( 8, false );
  programmed( 9, false );
  EXPECT_THAT( entry->programmed(),
               ElementsAre( Kez::FloodSetMplsDestConfig( pair, answered( 6 ) ) ) );
  EXPECT_EQ( fecSm->floodSetStatusCache( via ), entry );
  programmed( 6, false );
  EXPECT_FALSE( fecSm->floodSetStatusCacheHas( via ) );
}

TEST_F( FloodSetSmTest, APathStaysWhileAnyFloodSetHasItProgrammed ) {
  driver->answerDelayIs( 1 );
  hwTunnelIdIs( 5, 7 );
  start();
  floodSet( 10 )->destSetIs( mpls( 5 ) );
  floodSet( 20 )->destSetIs( mpls( 5 ) );
  advance( 3 );
  hwTunnelIdIs( 5, 8 ); // for a while hardware has both configurations
  advance( 0.5 );
  status->statusIs( pair )->mplsDestStatusIs( answered( 9 ), Kez::HwProgrammingStatus::programmed );
  floodSet( 20 )->destSetDelAll();
  floodSet( 10 )->destSetDelAll();
  advance( 3 );
  ASSERT_TRUE( request->fecHas( firstFecId ) );
  status->status( pair )->mplsDestStatusDel( answered( 9 ) );
  EXPECT_FALSE( request->fecHas( firstFecId ) );
  EXPECT_TRUE( fecSm->fecIdCacheHas( firstFecId ) ); // the answer still stands
  floodSet( 10 )->destSetIs( mpls( 5 ) );
  EXPECT_TRUE( request->fecHas( firstFecId ) );
  EXPECT_EQ( fecSm->fecIdCaches(), 1u );
  advance( 3 );
  EXPECT_EQ( configsOf( pair ), std::set{ answered( 8 ) } );
}

TEST_F( FloodSetSmTest, FecIdsRestAndThoseWithAnAnswerArePassedOver ) {
  driver->answerDelayIs( 1 );
  start();
  const auto fecIdOfNextPath = [ & ] {
    static uint32_t label = 200;
    floodSet()->destSetIs( mpls( 5, ++label ) );
    return fecSm->mplsFloodSetViaCache( { 5, label, 0u } ).value();
  };
  floodSet()->destSetIs( mpls( 5 ) );
  ASSERT_TRUE( fecSm->fecIdCacheHas( firstFecId ) );
  floodSet()->destSetDel( mpls( 5 ) ); // no answer yet: free at once
  EXPECT_EQ( fecSm->fecIdCaches(), 0u );
  advance( 9.9 ); // the late answer has come and gone
  EXPECT_EQ( fecIdOfNextPath(), secondFecId );
  response->hwFecIdResponseIs( firstFecId, { 1, "" } ); // an entry that says nothing is one too
  advance( 0.2 );
  EXPECT_EQ( fecIdOfNextPath(), secondFecId + 1 );
  response->hwFecIdResponseDel( firstFecId );
  advance( 9.9 );
  EXPECT_EQ( fecIdOfNextPath(), secondFecId + 2 );
  advance( 0.2 );
  EXPECT_EQ( fecIdOfNextPath(), firstFecId );
  // What requests and answers of an earlier life held goes to nobody else at first.
  fecSm = nullptr;
  makeFecSm();
  fecSm->handleInitialized();
  EXPECT_EQ( request->fecs(), 4u );
  EXPECT_FALSE( request->fecHas( secondFecId + 2 ) );
  EXPECT_TRUE( request->fecHas( secondFecId + 6 ) );
}

TEST_F( FloodSetSmTest, ConfigurationAndMappingFollowTheAnswer ) {
  hwTunnelIdIs( 5, 7 );
  start();
  floodSet()->destSetIs( mpls( 5 ) );
  const auto answer = response->hwFecIdResponse( firstFecId );
  response->hwFecIdResponseIs( firstFecId, { answer.hwFecId, "Ethernet9" } );
  auto other = answered( 7 );
  other.l2IntfId = "Ethernet9";
  EXPECT_EQ( configsOf( pair ), std::set{ other } );
  response->hwFecIdResponseIs( firstFecId, { answer.hwFecId, "" } );
  EXPECT_EQ( config->configs() + hwInfo->mappings(), 0u );
  response->hwFecIdResponseIs( firstFecId, answer );
  EXPECT_EQ( configsOf( pair ), std::set{ answered( 7 ) } );
  // It goes, and what asked for it goes, and neither is heard of.
  for ( const bool zombie : { true, false } ) {
    floodSetSm->vexDoZombieReactors( zombie );
    fecSm->vexDoZombieReactors( zombie );
    response->hwFecIdResponseDel( firstFecId );
    floodSet()->destSetDel( mpls( 5 ) );
  }
  EXPECT_EQ( hwInfo->mappings() + config->configs() + request->fecs(), 0u );
}

// The same machines begin again, and what an earlier beginning left is of no account.
TEST_F( FloodSetSmTest, StartingAnewEndsWhereTheInputsSay ) {
  hwTunnelIdIs( 5, 7 );
  start();
  floodSet()->destSetIs( mpls( 5 ) );
  for ( int again = 1; again <= 3; ++again ) {
    advance( 20 );
    floodSetSm->handleInitialized();
    fecSm->handleInitialized();
    const uint64_t fecId = fecSm->mplsFloodSetViaCache( { 5, 100, 0u } ).value();
    EXPECT_EQ( configsOf( pair ), std::set{ answered( 7, 100, fecId ) } );
    EXPECT_EQ( request->fecs() + request->hwFecIdRequests() + hwInfo->mappings(), 3u );
    EXPECT_EQ( fecSm->numAllocatorStatus()->counts().used, 1u );
    EXPECT_EQ( hardware->floodSetDests() + hardware->fecs(), 2u );
  }
  input->vlanFloodSetDel( 10 );
  EXPECT_EQ( request->fecs() + config->configs() + hwInfo->mappings() + hardware->fecs(), 0u );
}

TEST_F( FloodSetSmTest, NoNumberIsTakenForAPathThatNoInterfaceCanStandFor ) {
  start();
  for ( const uint64_t type : { 4096u, 0xfffffu } ) {
    EXPECT_THROW( fecSm->createOrUpdateFecRequest( { type << 44, 100, 0u } ), Vex::RangeError );
  }
  EXPECT_EQ( fecSm->numAllocatorStatus()->counts().used, 0u );
  EXPECT_EQ( fecSm->fecIdCaches() + fecSm->tunnelInfoCaches() + request->fecs(), 0u );
  fecSm->createOrUpdateFecRequest( { uint64_t( 4095 ) << 44, 100, 0u } );
  EXPECT_EQ( request->fec( fecSm->mplsFloodSetViaCache( { uint64_t( 4095 ) << 44, 100, 0u } ) )
                 .via.at( 0 )
                 .intfId,
             "DynamicTunnel4095.0" );
}

TEST_F( FloodSetSmTest, WhatMayNotBeIsFatal ) {
  makeFilter();
  EXPECT_DEATH( filter->processVlanFloodSet( 10 ),
                "/src/KezEvpn/KezEvpnVlanFloodSetFilterSm:[0-9]+: assertion failed: "
                "initialized\\(\\)" );
  start();
  const char * const mplsOnlyText =
      ": assertion failed: dest.destType\\(\\) == L2Rib::destTypeMpls_";
  EXPECT_DEATH( floodSetSm->processMplsDest( 10, 1, Dest() ),
                std::string( "KezEvpnVlanFloodSetSm:[0-9]+" ) + mplsOnlyText );
  EXPECT_DEATH( fecSm->processMplsDest( 10, 1, Dest() ),
                std::string( "KezEvpnFloodSetFecSm:[0-9]+" ) + mplsOnlyText );
  EXPECT_DEATH( floodSetSm->createMplsDestConfig( { 10, 1, mpls( 0 ) } ),
                "tunnelId != Tunnel::TunnelTable::TunnelId::invalid\\(\\)" );
  EXPECT_DEATH( floodSetSm->createMplsDestConfig( { 10, 1, mpls( 5 ) } ),
                "hwInfoMapping\\(\\)->mappingHas\\( key \\)" );
  EXPECT_DEATH( Kez::indexToFecId( -1 ), "index >= 0" );
}

} // namespace
