#include "KezHelper/Journal.h"
#include "KezHelper/EvpnFloodingSmHelper.h"
#include "KezHelper/HwFecs.h"
#include "RookTestTypes.h"
#include "switch/SwitchFloodingHelper.h"
#include "switch/SwitchHwTunnelIdHelper.h"
#include "switch/SwitchJournal.h"

#include <gmock/gmock.h>

#include <sys/wait.h>

#include <map>
#include <random>

namespace {

using KezHelper::EsiData;
using KezHelper::HwFec;
using KezHelper::JournalFile;
using KezHelper::JournalNames;
using KezHelper::PortVlanKey;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

using Tags = KezHelper::JournalTable< PortVlanKey, Bridging::VlanIdOrNone >;

// Runs it in another process, in which interned names have numbers of their own.
void inAnotherProcess( const std::function< void() > & what ) {
  const auto child = fork();
  if ( child == 0 ) {
    Wire::IntfId( "a-name-of-this-process-alone" );
    what();
    _exit( 0 );
  }
  waitpid( child, nullptr, 0 );
}

std::string messageOf( const std::function< void() > & what ) {
  try {
    what();
  } catch ( const std::runtime_error & error ) {
    return error.what();
  }
  return {};
}

template< class Data > using Block = KezHelper::Detail::JournalBlock< PortVlanKey, Data >;
using NotedTag = KezHelper::Detail::JournalNoted< Bridging::VlanIdOrNone >;

const auto leave = []( const PortVlanKey & ) { FAIL() << "nothing is uncertain"; };

TEST( Journal, MeansTheSameInTheNextProcess ) {
  const RookTest::MountDirectory directory;
  const EsiData data( 5, Kez::HwTunnelId( Kez::hwTunnelIdTypeSharedEsi, 7 ), 100, 200 );
  const Bridging::MacVlanPair host( 0x0102'0304'0506, 20 );
  const std::vector< Kez::HwTunnelId > ids{ { Kez::hwTunnelIdTypeDefault, 3 }, {} };
  // Interface ids are made within a process: a name is interned there.
  const auto port = [] { return PortVlanKey( "Port-Channel1", "swp12", 10 ); };
  const auto fec = [ & ] {
    return HwFec( true, { { "tunnel_a", 5 }, { "Ethernet1", 6 } }, Kez::HwTunnelIds::of( ids ) );
  };
  inAnotherProcess( [ & ] {
    JournalNames names( "chip" );
    JournalFile< PortVlanKey, EsiData > esi( names, "esi" );
    JournalFile< uint64_t, HwFec > fecs( names, "fec" );
    JournalFile< Bridging::MacVlanPair, Vex::NoValue > hosts( names, "host" );
    if ( !esi.put( { "swp13", "swp13", 10 }, {} ) || !esi.put( port(), data ) ||
         !fecs.put( 9, fec() ) || !hosts.put( host, {} ) ) {
      abort();
    }
    esi.del( { "swp13", "swp13", 10 } );
    raise( SIGKILL );
  } );
  JournalNames names( "chip" );
  JournalFile< PortVlanKey, EsiData > esi( names, "esi" );
  const JournalFile< uint64_t, HwFec > fecs( names, "fec" );
  const JournalFile< Bridging::MacVlanPair, Vex::NoValue > hosts( names, "host" );
  EXPECT_EQ( esi.size(), 1u );
  const auto walk = esi.walk();
  EXPECT_EQ( walk->next().value().key, port() );
  EXPECT_FALSE( walk->next() );
  EXPECT_EQ( esi.find( port() ), data );
  EXPECT_EQ( esi.find( { "swp14", "swp12", 10 } ), std::nullopt );
  EXPECT_EQ( fecs.find( 9 ), fec() );
  EXPECT_TRUE( hosts.find( host ) );

  // Lists are as long as they may be, and no longer.
  JournalFile< uint64_t, HwFec > more( names, "more" );
  const Rook::Fib::FecVia via( "Ethernet1", 6 );
  EXPECT_TRUE( more.put( 1, HwFec( true, { via, via, via, via }, {} ) ) );
  EXPECT_EQ( more.find( 1 ).value().via.size(), 4u );
  EXPECT_FALSE( more.put( 1, HwFec( true, { via, via, via, via, via }, {} ) ) );
  EXPECT_THAT( more.lack(), HasSubstr( "a list of 5" ) );
  EXPECT_EQ( more.find( 1 ).value().via.size(), 4u );
}

// Those of another release are read as they are.
TEST( Journal, PacksEachWordWholeHoweverItIsKept ) {
  const Kez::FloodSetMplsDestConfig value( { 0x0102'0304'0506, 20 },
                                           { 5, 100, { Kez::hwTunnelIdTypeSharedEsi, 7 }, 9, {} } );
  const auto bytes = KezHelper::journalBytesOf( value, []( Wire::IntfId ) { return 0; } );
  std::vector< int > packed;
  for ( const auto byte : bytes ) {
    packed.push_back( std::to_integer< int >( byte ) );
  }
  EXPECT_THAT( packed, ElementsAre( 6, 5, 4, 3, 2, 1, 20, 0, // the flood set
                                    5, 0, 0, 0, 0, 0, 0, 0,  // the tunnel
                                    100, 0, 0, 0,            // the label
                                    7, 0, 0, 0, 1, 0, 0, 0,  // the hardware tunnel id
                                    9, 0, 0, 0, 0, 0, 0, 0,  // the path's hardware id
                                    0, 0, 0, 0 ) );          // the interface
}

// The process ends within a call: the entry is known as uncertain, and the chip is asked to delete
// it. What no call was about is left alone.
TEST( Journal, TheEntryOfAnUnfinishedCallIsBroughtToASureState ) {
  const PortVlanKey first( "Ethernet1", "Ethernet1", 10 ), second( "Ethernet2", "Ethernet2", 10 );
  const auto done = [] { return true; };
  const auto refused = [] { return false; };
  const auto dies = [] { return raise( SIGKILL ) == 0; };
  const std::function< void( Tags & ) > calls[] = {
    [ & ]( Tags & tags ) { (void)tags.is( second, 20, dies ); },
    [ & ]( Tags & tags ) { (void)( tags.is( second, 20, done ) && tags.is( second, 30, dies ) ); },
    [ & ]( Tags & tags ) {
      (void)tags.is( second, 20, done );
      tags.del( second, dies );
    },
  };
  for ( const auto & call : calls ) {
    const RookTest::MountDirectory directory;
    inAnotherProcess( [ & ] {
      JournalNames names( "chip" );
      Tags tags( names, "tags", leave );
      (void)tags.is( first, 10, done );
      call( tags );
    } );
    {
      JournalNames names( "chip" );
      std::vector< PortVlanKey > removed;
      Tags tags( names, "tags", [ & ]( const PortVlanKey & key ) { removed.push_back( key ); } );
      EXPECT_THAT( removed, ElementsAre( second ) );
      EXPECT_EQ( tags.size(), 1u );
      EXPECT_EQ( tags.find( first ), Bridging::VlanIdOrNone( 10 ) );
      // What is refused leaves what was there, and no mark.
      EXPECT_FALSE( tags.is( first, 40, refused ) );
      EXPECT_FALSE( tags.is( second, 20, refused ) );
    }
    JournalNames names( "chip" );
    const Tags tags( names, "tags", leave );
    EXPECT_EQ( tags.size(), 1u );
    const auto entry = tags.walk()->next().value();
    EXPECT_EQ( entry.key, first );
    EXPECT_EQ( entry.data, Bridging::VlanIdOrNone( 10 ) );
  }
}

TEST( Journal, DamagedAndForeignOnesAreRefused ) {
  const RookTest::MountDirectory directory;
  const auto file = directory.path( "chip/tags" );
  {
    JournalNames names( "chip" );
    JournalFile< PortVlanKey, Bridging::VlanIdOrNone > tags( names, "tags" );
    ASSERT_TRUE( tags.put( { "Ethernet1", "swp1", 10 }, 110 ) );
    EXPECT_THAT( messageOf( [ & ] {
                   JournalFile< PortVlanKey, Bridging::VlanIdOrNone > again( names, "tags" );
                 } ),
                 file + " has a writer already, and may have one only" );
  }
  JournalNames names( "chip" );
  // The same words, but other fields.
  const auto foreign =
      messageOf( [ & ] { JournalFile< PortVlanKey, Bridging::VlanId > other( names, "tags" ); } );
  const auto size = std::to_string( sizeof( Block< Bridging::VlanIdOrNone > ) );
  EXPECT_THAT( foreign,
               StartsWith( file + " has records of " + size + " bytes, KezHelper::PortVlanKey" ) );
  EXPECT_THAT( foreign, HasSubstr( "to Bridging::VlanId[" ) );
  const auto mount = [ & ] {
    JournalFile< PortVlanKey, Bridging::VlanIdOrNone > tags( names, "tags" );
  };
  {
    // Names of another journal.
    JournalNames others( "other" );
    EXPECT_EQ( messageOf( [ & ] {
                 std::filesystem::copy( file, directory.path( "other/tags" ) );
                 JournalFile< PortVlanKey, Bridging::VlanIdOrNone > tags( others, "tags" );
               } ),
               directory.path( "other/tags" ) + ": " + directory.path( "other/intfId" ) +
                   ": interface 0 has no name" );
  }
  const Rook::Format::Layout layout( sizeof( Block< Bridging::VlanIdOrNone > ),
                                     static_cast< uint64_t >( getpagesize() ) );
  const auto record = layout.level( 0 ).slots + 16;
  RookTest::poke( file, record, 77 );
  EXPECT_EQ( messageOf( mount ), file + ": the record in slot 0 is damaged" );
}

// The chip is not called for what has no room, and what stands goes on.
TEST( Journal, AFullOneCallsNothing ) {
  const RookTest::MountDirectory directory;
  JournalNames names( "chip" );
  Tags tags( names, "tags", leave );
  names.numberIs( "Ethernet1" );
  const Rook::Format::Layout layout( sizeof( Block< NotedTag > ),
                                     static_cast< uint64_t >( getpagesize() ) );
  const RookTest::Limit longest( RLIMIT_FSIZE, layout.level( 0 ).end );
  const auto key = []( size_t at ) {
    return PortVlanKey( "Ethernet1", "Ethernet1", static_cast< uint16_t >( at ) );
  };
  size_t calls = 0;
  const auto call = [ & ] { return ++calls > 0; };
  size_t made = 0;
  while ( tags.is( key( made + 1 ), 10, call ) ) {
    ++made;
  }
  EXPECT_EQ( made, layout.capacity( 0 ) * Block< NotedTag >::entries );
  EXPECT_EQ( calls, made );
  EXPECT_EQ( tags.find( key( made + 1 ) ), std::nullopt );
  EXPECT_EQ( tags.lack(), "no room for " + directory.path( "chip/tags" ) + ": File too large" );
  EXPECT_TRUE( tags.is( key( 1 ), 20, call ) );
  tags.del( key( 2 ), [] {} );
  EXPECT_TRUE( tags.is( key( made + 1 ), 10, call ) );

  const auto hardware = Vex::makePtr< Switch::SimulatedSwitch >();
  Switch::SwitchJournal journal( *hardware );
  const auto helper = Vex::makePtr< Switch::SwitchFloodingHelper >( "helper", hardware );
  uint16_t vlan = 0;
  while ( helper->createVlan( ++vlan, 10 ) == Kez::HwProgrammingStatus::programmed ) {}
  EXPECT_EQ( hardware->fullCount( Switch::Operation::createVlan ), 1u );
  EXPECT_EQ( hardware->vlans(), vlan - 1u );
  EXPECT_GE( hardware->vlans(), 512u );
}

// Whatever comes and goes, and however often it is mounted anew.
TEST( Journal, HasWhatWasPutAndNotRemoved ) {
  const RookTest::MountDirectory directory;
  JournalNames names( "chip" );
  std::map< uint32_t, uint32_t > model;
  std::optional< JournalFile< uint32_t, uint32_t > > file;
  std::mt19937 random( 1 );
  constexpr uint32_t keys = 20'000;
  for ( uint32_t step = 0; step < 200'000; ++step ) {
    if ( step % 50'000 == 0 ) {
      file.reset();
      file.emplace( names, "table" );
    }
    const auto key = static_cast< uint32_t >( random() % keys );
    if ( random() % 3 && step < 180'000 ) {
      ASSERT_TRUE( file->put( key, step ) );
      model[ key ] = step;
    } else {
      file->del( key );
      model.erase( key );
    }
    if ( step % 10'000 == 9'999 ) {
      ASSERT_EQ( file->size(), model.size() );
      std::map< uint32_t, uint32_t > walked;
      for ( const auto walk = file->walk(); const auto entry = walk->next(); ) {
        EXPECT_TRUE( walked.emplace( entry->key, entry->data ).second );
      }
      EXPECT_EQ( walked, model );
      for ( uint32_t each = 0; each < keys; ++each ) {
        const auto found = file->find( each );
        const auto stands = model.find( each );
        ASSERT_EQ( found.value_or( UINT32_MAX ),
                   stands == model.end() ? UINT32_MAX : stands->second );
      }
    }
  }
  file->delAll();
  EXPECT_EQ( file->size(), 0u );
  EXPECT_FALSE( file->walk()->next() );
  ASSERT_TRUE( file->put( 1, 2 ) );
  EXPECT_EQ( file->find( 1 ), 2u );
}

// What paths and helpers change of the switch is there for the next one, until it starts over.
TEST( Journal, ASwitchGoesOnWithWhatTheLastOneHad ) {
  const RookTest::MountDirectory directory;
  using Kez::hwTunnelIdTypeDefault;
  {
    const auto hardware = Vex::makePtr< Switch::SimulatedSwitch >();
    Switch::SwitchJournal journal( *hardware );
    EXPECT_TRUE( journal.empty() );
    hardware->vlanIs( 10, 110 );
    hardware->vlanIs( 20, 120 );
    hardware->vlanIs( 10, 111 );
    hardware->vlanDel( 20 );
    const auto helper = Vex::makePtr< Switch::SwitchHwTunnelIdHelper >( "helper", hardware );
    for ( uint32_t tunnel = 101; tunnel <= 104; ++tunnel ) {
      helper->getHwTunnelIdForTunnel( hwTunnelIdTypeDefault, tunnel );
    }
    helper->releaseHwTunnelId( { hwTunnelIdTypeDefault, 2 } );
    helper->releaseHwTunnelId( { hwTunnelIdTypeDefault, 4 } );
  }
  const auto hardware = Vex::makePtr< Switch::SimulatedSwitch >();
  Switch::SwitchJournal journal( *hardware );
  EXPECT_FALSE( journal.empty() );
  EXPECT_EQ( hardware->vlans(), 1u );
  EXPECT_EQ( hardware->vlan( 10 ), Bridging::VlanIdOrNone( 111 ) );
  const auto helper = Vex::makePtr< Switch::SwitchHwTunnelIdHelper >( "helper", hardware );
  EXPECT_EQ( helper->hwTunnelIdsInUse()->find( { hwTunnelIdTypeDefault, 3 } ),
             Tunnel::TunnelTable::TunnelId( 103 ) );
  for ( const uint32_t number : { 2, 4, 5 } ) {
    EXPECT_EQ( helper->getHwTunnelId( hwTunnelIdTypeDefault ),
               Kez::HwTunnelId( hwTunnelIdTypeDefault, number ) );
  }
  const auto next = Vex::makePtr< Switch::SimulatedSwitch >();
  journal.startOver( *next );
  EXPECT_TRUE( journal.empty() );
  hardware->vlanIs( 30, 130 );
  EXPECT_TRUE( journal.empty() );
  next->nonDfPortIs( { "Ethernet1", "Ethernet1", 10 } );
  EXPECT_FALSE( journal.empty() );
}

} // namespace
