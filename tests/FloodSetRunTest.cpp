// A random life of the machines that lead flood sets to hardware, against what their inputs say.
#include "FloodSetMachines.h"

namespace {

class FloodSetRunTest : public FloodSetMachines, public testing::WithParamInterface< uint32_t > {
protected:
  using Dests = std::set< Kez::VlanMacDest >;

  uint32_t upTo( uint32_t n ) { return uint32_t( random() % n ); }

  static Dests destsOf( const L2Rib::FloodSetOutput & output ) {
    Dests all;
    for ( const auto & [ vlan, vlanFloodSet ] : output.vlanFloodSet() ) {
      for ( const auto & [ mac, set ] : vlanFloodSet->floodSet() ) {
        for ( const auto & dest : set->destSet() ) {
          all.insert( { vlan, mac, dest } );
        }
      }
    }
    return all;
  }
  template< class Entries > static Dests destsIn( const Entries & entries ) {
    Dests all;
    for ( const auto & [ key, entry ] : entries ) {
      EXPECT_GT( entry->vlanMacDestSets(), 0u );
      for ( const auto & dest : entry->vlanMacDestSet() ) {
        all.insert( dest );
      }
    }
    return all;
  }
  static Via viaOf( const Kez::VlanMacDest & dest ) { // tunnel 14 << 44 | 3 is the one of type 14
    const auto & mpls = dest.dest.mpls();
    const auto tunnelId = Wire::FecIdIntfId::isSrTePolicyIntfId( mpls.intfId() )
                              ? Wire::FecIdIntfId::tunnelId( mpls.intfId() )
                              : mpls.tunnelId();
    return { tunnelId, mpls.label(),
             tunnelId == perVlanTunnel ? Bridging::VlanIdOrNone( dest.vlanId ) : 0u };
  }
  Kez::HwTunnelId hwTunnelIdOf( const Via & via ) const {
    const auto record = mapping->tunnelIdToHwTunnelId( via.tunnelId );
    return record ? record->hwTunnelId : Kez::HwTunnelId();
  }

  void expectFilter() {
    Dests expected;
    for ( const auto & dest : destsOf( *input ) ) {
      if ( dest.dest.destType() == L2Rib::destTypeMpls_ ) {
        expected.insert( dest );
      }
    }
    EXPECT_EQ( destsOf( *mplsOnly ), expected );
    for ( const auto & [ vlan, vlanFloodSet ] : mplsOnly->vlanFloodSet() ) {
      EXPECT_GT( vlanFloodSet->floodSets(), 0u );
      for ( const auto & [ mac, set ] : vlanFloodSet->floodSet() ) {
        EXPECT_GT( set->destSets(), 0u );
      }
    }
  }

  void expectConfigs() {
    std::map< Kez::VlanMacDest, Kez::MplsDestConfig > recorded;
    std::set< Kez::FloodSetMplsDestConfig > published;
    for ( const auto & dest : destsOf( *mplsOnly ) ) {
      const auto via = viaOf( dest );
      if ( hwInfo->mappingHas( via ) ) {
        const auto & info = hwInfo->mapping( via );
        const Kez::MplsDestConfig expected( via.tunnelId, via.label, hwTunnelIdOf( via ),
                                            info.hwIdForTunnelProgramming, info.l2IntfId );
        recorded[ dest ] = expected;
        published.insert( { { dest.macAddr, dest.vlanId }, expected } );
      }
    }
    std::map< Kez::VlanMacDest, Kez::MplsDestConfig > seenRecorded;
    for ( const auto & [ dest, each ] : floodSetSm->mplsDestHwConfig() ) {
      seenRecorded[ dest ] = each;
    }
    std::set< Kez::FloodSetMplsDestConfig > seenPublished;
    for ( const auto & [ pair, entry ] : config->config() ) {
      EXPECT_GT( entry->mplsDestConfigs(), 0u );
      for ( const auto & each : entry->mplsDestConfig() ) {
        seenPublished.insert( { pair, each } );
      }
    }
    EXPECT_EQ( seenRecorded, recorded );
    EXPECT_EQ( seenPublished, published );
    EXPECT_EQ( destsIn( floodSetSm->tunnelToFloodSetEntry() ), destsOf( *mplsOnly ) );
    EXPECT_EQ( destsIn( floodSetSm->hwInfoMapKeyToFloodSetEntry() ), destsOf( *mplsOnly ) );
    size_t further = 0;
    for ( const auto & [ floodSetConfig, count ] : floodSetSm->furtherDest() ) {
      further += count;
    }
    EXPECT_EQ( further, recorded.size() - published.size() );
  }

  void expectFecs() {
    Dests dests;
    for ( const auto & dest : destsOf( *mplsOnly ) ) {
      if ( viaOf( dest ).tunnelId.value() != 0 ) {
        dests.insert( dest );
      }
    }
    EXPECT_EQ( destsIn( fecSm->floodSetEntryCache() ), dests );
    std::set< Via > used;
    for ( const auto & dest : dests ) {
      used.insert( viaOf( dest ) );
    }
    std::map< Via, std::set< Pair > > programmed;
    for ( const auto & [ pair, entry ] : status->status() ) {
      for ( const auto & [ each, how ] : entry->mplsDestStatus() ) {
        if ( how == Kez::HwProgrammingStatus::programmed ) {
          programmed[ Kez::mplsFloodSetVia( each.tunnelId, each.label, pair.vlanId ) ].insert(
              pair );
        }
      }
    }
    std::map< Via, std::set< Pair > > seenProgrammed;
    for ( const auto & [ via, entry ] : fecSm->floodSetStatusCache() ) {
      seenProgrammed[ via ];
      for ( const auto & pair : entry->status() ) {
        seenProgrammed[ via ].insert( pair );
      }
    }
    EXPECT_EQ( seenProgrammed, programmed );

    std::set< Via > requested;
    std::map< Via, Kez::MplsDestHwInfo > answered;
    for ( const auto & [ fecId, via ] : fecSm->fecIdCache() ) {
      EXPECT_EQ( fecSm->mplsFloodSetViaCache( via ), fecId );
      EXPECT_TRUE( fecSm->numAllocator()->isUsed( fecId.value() - firstFecId ) );
      EXPECT_EQ( request->fecHas( fecId ), request->hwFecIdRequestHas( fecId ) );
      EXPECT_TRUE( request->fecHas( fecId ) || response->hwFecIdResponseHas( fecId ) );
      EXPECT_TRUE( request->fecHas( fecId ) || !used.contains( via ) );
      EXPECT_TRUE( !request->fecHas( fecId ) || used.contains( via ) ||
                   programmed.contains( via ) );
      if ( request->fecHas( fecId ) ) {
        requested.insert( via );
        EXPECT_EQ( request->fec( fecId ).via,
                   ( Rook::Fib::FecVias{
                       { Wire::DynamicTunnelIntfId::intfId( via.tunnelId ), via.label } } ) );
      }
      if ( used.contains( via ) ) {
        EXPECT_EQ( request->hwFecIdRequest( fecId ),
                   Kez::HwFecIdRequest( fecId, hwTunnelIdOf( via ) ) );
      }
      if ( const auto answer = response->hwFecIdResponse( fecId );
           answer.l2IntfId != Wire::IntfId() ) {
        answered[ via ] = { answer.hwFecId, answer.l2IntfId };
      }
    }
    EXPECT_EQ( request->fecs(), requested.size() );
    EXPECT_EQ( fecSm->mplsFloodSetViaCaches(), fecSm->fecIdCaches() );
    EXPECT_EQ( fecSm->numAllocatorStatus()->counts().used, fecSm->fecIdCaches() );
    for ( const auto & via : used ) {
      EXPECT_TRUE( requested.contains( via ) );
    }
    std::set< Via > byTunnel;
    for ( const auto & [ tunnelId, entry ] : fecSm->tunnelInfoCache() ) {
      EXPECT_GT( entry->mplsFloodSetViaSets(), 0u );
      for ( const auto & via : entry->mplsFloodSetViaSet() ) {
        byTunnel.insert( via );
      }
    }
    EXPECT_EQ( byTunnel, requested );
    std::map< Via, Kez::MplsDestHwInfo > seenAnswered;
    for ( const auto & [ via, info ] : hwInfo->mapping() ) {
      seenAnswered[ via ] = info;
    }
    EXPECT_EQ( seenAnswered, answered );
  }

  void expectConsistent() {
    expectFilter();
    expectConfigs();
    expectFecs();
    EXPECT_EQ( hardware->lastRefusal(), "" );
    EXPECT_EQ( filter->vlanFloodSets(), input->vlanFloodSets() );
    EXPECT_EQ( floodSetSm->vlanFloodSets(), mplsOnly->vlanFloodSets() );
    EXPECT_EQ( fecSm->vlanFloodSets(), mplsOnly->vlanFloodSets() );
    EXPECT_EQ( fecSm->vlanFloodSetStatuss(), status->statuss() );
  }

  // With nothing more to come hardware has what is configured, and no FEC that nobody wants.
  void expectSettled() {
    std::set< Kez::FloodSetMplsDestConfig > wanted;
    for ( const auto & [ pair, entry ] : config->config() ) {
      for ( const auto & each : entry->mplsDestConfig() ) {
        wanted.insert( { pair, each } );
      }
    }
    std::set< Kez::FloodSetMplsDestConfig > programmed;
    for ( const auto & each : hardware->floodSetDest() ) {
      programmed.insert( each );
    }
    EXPECT_EQ( programmed, wanted );
    EXPECT_EQ( fecSm->fecIdCaches(), fecSm->floodSetEntryCaches() );
    EXPECT_EQ( hardware->fecs(), fecSm->fecIdCaches() );
    EXPECT_EQ( hwInfo->mappings(), fecSm->fecIdCaches() );
  }

  // An odd order starts the machine of FECs first, which only a first start may: what an earlier
  // one's FECs are used for must have been withdrawn before they are.
  void start( uint32_t order ) {
    if ( order % 3 == 0 ) {
      makeFecSm();
    }
    makeFilter();
    makeFloodSetSm();
    if ( order % 3 ) {
      makeFecSm();
    }
    // Nothing happens before the start.
    changeDest();
    hwTunnelIdIs( 1, 1 + upTo( 3 ) );
    if ( order % 2 ) {
      fecSm->handleInitialized();
      changeDest();
    }
    filter->handleInitialized();
    changeDest();
    floodSetSm->handleInitialized();
    if ( order % 2 == 0 ) {
      fecSm->handleInitialized();
    }
  }

  Dest anyDest() {
    const auto policy = Wire::FecIdIntfId::srTePolicyIntfId( 1 );
    const uint64_t tunnels[] = { 1, 1, 2, perVlanTunnel, 0 };
    const Wire::IntfId intfs[] = { {}, {}, "Ethernet1", policy };
    return upTo( 8 ) ? mpls( tunnels[ upTo( 5 ) ], 100 + upTo( 2 ), intfs[ upTo( 4 ) ] )
                     : Dest::ofVxlan( 7 );
  }
  void changeDest() {
    const auto set = floodSet( 10 + 10 * upTo( 2 ), upTo( 2 ) );
    if ( upTo( 2 ) ) {
      set->destSetIs( anyDest() );
    } else {
      set->destSetDel( anyDest() );
    }
  }
  void deleteVlan( Bridging::VlanId vlan ) {
    left = input->vlanFloodSetHas( vlan ) ? input->vlanFloodSet( vlan ) : left;
    input->vlanFloodSetDel( vlan );
  }
  // A FEC's answer changes, is not ready any more, or goes and comes back.
  void changeAnswer() {
    if ( response->hwFecIdResponses() == 0 ) {
      return;
    }
    const auto at = ( *response->hwFecIdResponse().begin() );
    const auto fecId = at.key;
    const auto answer = at.value;
    response->hwFecIdResponseIs( fecId, { answer.hwFecId, upTo( 3 ) ? "Ethernet9" : "" } );
    expectConsistent();
    if ( upTo( 2 ) ) {
      response->hwFecIdResponseDel( fecId );
      expectConsistent();
    }
    response->hwFecIdResponseIs( fecId, answer );
  }
  // Machines bear a zombie mark while their inputs change. The one of FECs and the one that uses
  // them bear it together: else one of them may use what the other is through with.
  void changeUnheard() {
    const bool filterDeaf = upTo( 2 );
    const bool othersDeaf = !filterDeaf || upTo( 2 );
    const auto mark = [ & ]( bool zombie ) {
      if ( filterDeaf ) {
        filter->vexDoZombieReactors( zombie );
      }
      if ( othersDeaf ) {
        floodSetSm->vexDoZombieReactors( zombie );
        fecSm->vexDoZombieReactors( zombie );
      }
    };
    mark( true );
    input->sourceIs( std::to_string( random() ) );
    for ( uint32_t change = upTo( 6 ); change > 0; --change ) {
      switch ( upTo( 6 ) ) {
      case 0:
        deleteVlan( 10 );
        break;
      case 1:
        hwTunnelIdIs( 1, 1 + upTo( 3 ) );
        break;
      case 2:
        advance( 0.25 );
        break;
      default:
        changeDest();
      }
    }
    mark( false );
    EXPECT_EQ( mplsOnly->source(), input->source() );
  }
  void restart( bool severalAtOnce ) {
    switch ( severalAtOnce ? 4 : upTo( 4 ) ) {
    case 0:
      filter = nullptr;
      changeDest();
      mplsOnly->vlanFloodSetIs( 30 )->floodSetIs( 1 ); // left half done
      makeFilter();
      filter->handleInitialized();
      break;
    case 1:
      floodSetSm = nullptr;
      changeDest();
      makeFloodSetSm();
      changeDest();
      floodSetSm->handleInitialized();
      break;
    case 2:
      fecSm = nullptr;
      changeDest();
      makeFecSm();
      fecSm->handleInitialized();
      break;
    case 3:
      floodSetSm->handleInitialized();
      fecSm->handleInitialized(); // the same machines, from the beginning
      break;
    default:
      filter = nullptr;
      floodSetSm = nullptr;
      fecSm = nullptr;
      start( 2 * upTo( 3 ) );
    }
  }

  Vex::Ptr< L2Rib::VlanFloodSet > left; // a VLAN that was deleted, to be put back
  std::mt19937_64 random{ GetParam() };
};

// Hardware answers within the write, later, or later and in any order; it refuses one thing in
// four in half of the runs. Restarts come only where hardware keeps to the order, since a machine
// that starts does not wait for what an earlier one's paths are still used for.
TEST_P( FloodSetRunTest, AfterAnyEventEverythingIsWhatTheInputsSay ) {
  const uint32_t timing = GetParam() % 3;
  driver->answerDelayIs( timing ? 0.5 : 0 );
  driver->shuffleSeedIs( timing == 2 ? GetParam() : 0 );
  for ( const auto operation :
        { Agent::FallibleOperation::createFec, Agent::FallibleOperation::createFloodSetDest } ) {
    const auto fault = hardware->faultIs( operation );
    fault->seedIs( GetParam() );
    fault->probabilityIs( GetParam() % 2 ? 0.25 : 0 );
  }
  start( GetParam() );
  expectConsistent();
  for ( int event = 0; event < 600 && !HasFailure(); ++event ) {
    SCOPED_TRACE( event );
    const Bridging::VlanId vlan = 10 + 10 * upTo( 2 );
    switch ( upTo( 14 ) ) {
    case 0:
      deleteVlan( vlan );
      break;
    case 1:
      if ( left && !left->parent() ) {
        left->floodSetIs( 1 )->destSetIs( anyDest() );
        input->vlanFloodSetIs( left );
      }
      break;
    case 2:
      floodSet( vlan, upTo( 2 ) )->destSetDelAll();
      break;
    case 3:
      upTo( 3 ) ? hwTunnelIdIs( 1 + upTo( 2 ), 1 + upTo( 3 ) )
                : mapping->tunnelIdToHwTunnelIdDel( 1 );
      break;
    case 4:
      advance( upTo( 3 ) ? 0.25 : 20 );
      break;
    case 5:
      changeAnswer();
      break;
    case 6:
      if ( timing != 2 ) {
        restart( upTo( 3 ) == 0 );
      }
      break;
    case 7:
      changeUnheard();
      break;
    default:
      changeDest();
    }
    expectConsistent();
  }
  advance( 300 );
  expectConsistent();
  expectSettled();
  input->vlanFloodSetDelAll();
  advance( 300 );
  expectConsistent();
  expectSettled();
  EXPECT_EQ( fecSm->fecIdCaches(), 0u );
}

INSTANTIATE_TEST_SUITE_P( Seeds, FloodSetRunTest, testing::Range( 1u, 31u ) );

} // namespace
