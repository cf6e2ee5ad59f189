#include "KezEvpn/Review.h"
#include "KezEvpn/TunnelIdToHwTunnelIdMapping.h"
#include "RookTestTypes.h"
#include "inspect/Inspect.h"

#include <gmock/gmock.h>

#include <fstream>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <thread>

namespace RookTest {

struct WithIntf {
  uint64_t key = 0;
  Wire::IntfId intfId;
  VEX_VALUE( WithIntf, "RookTest::WithIntf", key, intfId )
};

struct Pair {
  uint64_t first = 0;
  uint64_t second = 0;
  VEX_VALUE( Pair, "RookTest::Pair", first, second )
};

} // namespace RookTest

namespace {

using namespace RookTest;
using Kez::HwTunnelId;
using Kez::TunnelIdToHwTunnelId;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

// A table is what a std::map is, to its writer, to a reader that was attached all along, to one
// attached now and to the next writer; small enough for its index to fill up with tombstones, and
// growing on the way.
// A system maps also what one with larger pages laid out.
class RookPages : public testing::TestWithParam< uint64_t > {};

TEST_P( RookPages, AgreesWithAPlainMap ) {
  const MountDirectory directory;
  std::map< uint64_t, Entry > model;
  std::filesystem::create_directory( directory.path( "" ) );
  std::ofstream( directory.path( "table" ), std::ios::binary ) << headOf( GetParam() );
  std::optional< EntryTable > writer( std::in_place );
  writer->mount( "table" );
  const EntryReader reader( directory.path( "table" ) );
  std::mt19937_64 random( 1 );
  for ( uint64_t step = 1; step <= 40000; ++step ) {
    const uint64_t key = random() % ( step < 20000 ? 500 : 2500 );
    if ( random() % 3 ) {
      model[ key ] = Entry( key, step );
      writer->put( model[ key ] );
    } else {
      EXPECT_EQ( writer->del( key ), model.erase( key ) == 1 );
    }
    const uint64_t other = random() % 2600;
    const auto expected = model.contains( other ) ? std::optional( model[ other ] ) : std::nullopt;
    ASSERT_EQ( writer->record( other ), expected );
    ASSERT_EQ( reader.record( other ), expected );
    if ( step % 5000 == 0 ) {
      writer.reset();
      writer.emplace().mount( "table" );
      const EntryReader late( directory.path( "table" ) );
      EXPECT_EQ( writer->size(), model.size() );
      for ( const auto & walked : { walk( *writer ), walk( reader ), walk( late ) } ) {
        ASSERT_EQ( walked, model );
      }
    }
  }
}
INSTANTIATE_TEST_SUITE_P( Rook, RookPages, testing::Values( getpagesize(), 16 * getpagesize() ) );

// Parts are whole pages, none overlaps another, and the slots of all levels are gapless in pages.
TEST( Rook, LayoutsFitTheirPages ) {
  using Rook::Format::Layout;
  for ( const uint64_t page : { 4096, 16384, 65536 } ) {
    for ( size_t recordSize = 1; recordSize < 700; recordSize += 5 ) {
      const Layout layout( recordSize, page );
      const size_t words = ( recordSize + 7 ) / 8;
      const uint64_t head = Rook::Format::stagingOffset + 8 * Rook::Format::stagingSizeOf( words );
      ASSERT_TRUE( layout.headEnd() >= head && layout.headEnd() < head + page );
      uint64_t end = layout.headEnd();
      uint64_t slots = 0;
      for ( uint32_t level = 0; level < layout.levels(); ++level ) {
        const auto & part = layout.level( level );
        ASSERT_EQ( part.index, end );
        ASSERT_GE( layout.indexSize( level ), layout.capacity( level ) * uint64_t( 8 ) );
        slots += ( part.end - part.slots ) / ( 16 + 8 * words );
        end = part.end;
        ASSERT_EQ( slots, layout.capacity( level ) );
        for ( const uint64_t place :
              { part.index, part.index + layout.indexSize( level ), part.slots, part.end } ) {
          ASSERT_EQ( place % page, 0u ) << page << " " << recordSize << " " << level;
        }
      }
      ASSERT_LE( layout.capacity( 0 ), std::max( uint64_t( 512 ), page / 8 ) );
      ASSERT_TRUE( slots == 1 << 28 || end >= uint64_t( 1 ) << 40 );
    }
  }
  using Rook::Format::canMap;
  EXPECT_TRUE( canMap( 4096, 4096 ) && canMap( 65536, 4096 ) && canMap( 65536, 16384 ) );
  EXPECT_FALSE( canMap( 4096, 16384 ) || canMap( 0, 4096 ) || canMap( 3 * 4096, 4096 ) ||
                canMap( uint64_t( 1 ) << 40, 4096 ) );
}

// The addresses that this process has.
size_t addresses() {
  size_t pages = 0;
  std::ifstream( "/proc/self/statm" ) >> pages;
  return pages * static_cast< size_t >( getpagesize() );
}

// Tables of few records, and their readers, take few addresses: processes may have a limit of them.
TEST( Rook, AddressesAreTakenAsATableGrows ) {
  const MountDirectory directory;
  const size_t before = addresses();
  std::array< EntryTable, 32 > tables;
  std::vector< EntryReader > readers;
  for ( auto & table : tables ) {
    const auto name = std::to_string( readers.size() );
    table.mount( name );
    table.put( Entry( 1, 1 ) );
    readers.emplace_back( directory.path( name ) );
    EXPECT_TRUE( readers.back().has( 1 ) );
  }
  EXPECT_LE( addresses() - before, tables.size() * layout.level( 0 ).end * 3 );
}

#if !defined( __SANITIZE_ADDRESS__ ) && !defined( __SANITIZE_THREAD__ )
// Sanitizers end when they get no more.
TEST( Rook, WithoutAddressesThereIsNoRoom ) {
  EntryTable table;
  table.mount( "table" );
  uint64_t records = 0;
  const auto put = [ & ] {
    table.put( Entry( records, 1 ) );
    ++records;
  };
  std::string lack;
  {
    const Limit limit( RLIMIT_AS, addresses() + ( size_t( 8 ) << 20 ) );
    lack = messageOf< Rook::NoRoom >( [ & ] {
      while ( records < 1000000 ) {
        put();
      }
    } );
    EXPECT_FALSE( table.makeRoom() );
  }
  EXPECT_EQ( lack, "cannot map private table 'table': Cannot allocate memory" );
  EXPECT_EQ( table.lack(), lack );
  EXPECT_EQ( walk( table ).size(), records );
  ASSERT_NO_THROW( put() );
  EXPECT_EQ( walk( table ).size(), records );
}
#endif

TEST( Rook, WalksMeetWhatStandsAndNothingNew ) {
  EntryTable table;
  table.mount( "private" );
  EXPECT_EQ( table.mountStatus(), Rook::MountStatus::privateMemory );
  std::vector< uint64_t > order;
  for ( uint64_t key = 0; key < 8; ++key ) {
    table.put( Entry( key, 1 ) );
  }
  for ( const auto & entry : table.range() ) {
    order.push_back( entry.key );
  }
  ASSERT_EQ( order.size(), 8u );

  // A step removes its key and one ahead, puts the first back and adds another, which take the
  // places ahead that were freed.
  std::vector< uint64_t > met;
  for ( auto at = table.range().begin(); at.valid(); ++at ) {
    met.push_back( at.key() );
    if ( met.size() == 2 ) {
      EXPECT_EQ( at.nextKey(), order[ 2 ] );
      table.del( order[ 2 ] );
      table.del( at.key() );
      table.put( Entry( order[ 2 ], 2 ) );
      table.put( Entry( 100, 2 ) );
      table.put( Entry( order[ 7 ], 2 ) );
      EXPECT_EQ( at.nextKey(), order[ 3 ] );
    }
    EXPECT_EQ( at.more(), met.size() < 7 );
    EXPECT_EQ( ( *at ).value, at.key() == order[ 7 ] ? 2u : 1u );
  }
  EXPECT_THAT( met, ElementsAre( order[ 0 ], order[ 1 ], order[ 3 ], order[ 4 ], order[ 5 ],
                                 order[ 6 ], order[ 7 ] ) );

  met.clear();
  for ( const auto & entry : table.range().from( order[ 5 ] ) ) {
    met.push_back( entry.key );
  }
  EXPECT_THAT( met, ElementsAre( order[ 5 ], order[ 6 ], order[ 7 ] ) );
  EXPECT_EQ( ( *table.range().from( 12345 ).begin() ).key, order[ 0 ] );
}

// Runs over a table that park again what they take visit each key once, whether they yield or not.
TEST( Rook, ReviewsWalkTables ) {
  EntryTable table;
  table.mount( "private" );
  for ( uint64_t key = 0; key < 20; ++key ) {
    table.put( Entry( key, 0 ) );
  }
  const auto scheduler = Vex::makePtr< Loom::TaskScheduler >();
  scheduler->workBudgetIs( 7 );
  Ringlog::Handle handle( "TableReview" );
  Vex::Ptr< Kez::ReviewTask< uint64_t > > task;
  std::vector< uint64_t > reviewed;
  const auto step = [ & ]( uint64_t key ) {
    reviewed.push_back( key );
    table.del( key );
    table.put( Entry( key, 1 ) );
  };
  Kez::ReviewTask< uint64_t >::replace(
      task, scheduler, 2, "review", *scheduler, [ & ] { task->review( table.range(), step, 0 ); },
      handle, Kez::unprogrammedReviewTexts );
  task->scheduleNow();
  for ( int run = 0; run < 3; ++run ) {
    EXPECT_EQ( scheduler->runReady(), 1u );
  }
  EXPECT_EQ( scheduler->runReady(), 0u );
  EXPECT_EQ( reviewed.size(), 20u );
  EXPECT_EQ( std::set( reviewed.begin(), reviewed.end() ).size(), 20u );
}

// --- What a damaged, foreign or busy file is answered with

TEST( Rook, SaysWhyATableIsRefused ) {
  const MountDirectory directory;
  EntryTable writer;
  writer.mount( "table" );
  writer.put( Entry( 1, 2 ) );
  const auto path = directory.path( "table" );
  const auto refusal = [ & ]( const auto & open ) {
    return messageOf< std::runtime_error >( open );
  };
  const auto read = [ & ] { EntryReader reader( path ); };
  const auto write = [ & ] { EntryTable().mount( "table" ); };
  EXPECT_EQ( refusal( write ), path + " has a writer already, and may have one only" );
  EXPECT_EQ( refusal( [ & ] { Rook::Reader< &Kez::TunnelIdToHwTunnelId::key > other( path ); } ),
             path +
                 " has records of 24 bytes, RookTest::Entry[key]{key:whole number@0+8u,value:whole "
                 "number@8+8u,twice:whole number@16+8u}; expected 16 bytes, "
                 "Kez::TunnelIdToHwTunnelId[key]{key:Tunnel::TunnelTable::TunnelId@0+8u,hwTunnelId:"
                 "Kez::HwTunnelId@8+8u}" );
  writer.unmount();

  const auto whole = contentOf( path );
  struct Case {
    std::string content;
    std::string message;
  };
  const auto changed = [ & ]( size_t offset, char byte ) {
    auto content = whole;
    content[ offset ] = byte;
    return content;
  };
  const auto size = std::to_string( whole.size() );
  for ( const auto & [ content, message ] : {
            Case{ "a text of somebody's", "is no table: expected it to begin with ROOKTBL" },
            Case{ changed( 8, 9 ), "has layout version 9, expected 6" },
            Case{ headOf( 2048 ),
                  "is laid out for pages of 2048 bytes, and cannot be mapped where they have " +
                      std::to_string( getpagesize() ) },
            Case{ changed( 40, 'x' ), "is damaged: its header has not the checksum it says" },
            Case{ whole.substr( 0, 100 ),
                  "is cut short: it has 100 bytes, expected at least 4096" },
            Case{ whole.substr( 0, whole.size() - 1 ), "is cut short: it has " +
                                                           std::to_string( whole.size() - 1 ) +
                                                           " bytes, expected at least " + size },
            Case{ whole.substr( 0, 5000 ),
                  "is cut short: it has 5000 bytes, expected at least " + size },
        } ) {
    std::ofstream( path, std::ios::binary | std::ios::trunc ) << content;
    EXPECT_THAT( refusal( read ), HasSubstr( message ) );
    EXPECT_EQ( refusal( write ), refusal( read ) );
    EXPECT_EQ( contentOf( path ), content );
  }
  std::ofstream( path, std::ios::trunc ).close();
  EXPECT_THAT( refusal( read ), HasSubstr( "is empty: no writer has made it a table yet" ) );
  EXPECT_EQ( refusal( write ), "" );
  EXPECT_EQ( refusal( read ), "" );
  EXPECT_THAT( refusal( [] { EntryReader reader( "/" ); } ), HasSubstr( "is no file" ) );
}

// What tests/data keeps of a file of a layout: each line an offset and the words from there, all in
// base 16; the rest is zero.
std::string keptFile( uint64_t layoutVersion ) {
  std::ifstream in( KEZ_TEST_DATA "/rook-layout-" + std::to_string( layoutVersion ) );
  std::string content;
  for ( std::string line; std::getline( in, line ); ) {
    std::istringstream words( line );
    size_t offset = 0;
    words >> std::hex >> offset;
    content.resize( offset );
    words.ignore();
    for ( uint64_t word = 0; words >> word; ) {
      content.append( reinterpret_cast< const char * >( &word ), sizeof( word ) );
    }
  }
  return content;
}

// A change of the bytes, by another hash too, needs another layout version and a file kept of it.
TEST( Rook, LayoutsAreKeptOrRefusedByName ) {
  EXPECT_EQ( Rook::keyHash( uint64_t( 0x123456789ABCDEF ) ), 0xC27A443D5FF218E );
  EXPECT_EQ( Rook::keyHash( Kez::TunnelIdToHwTunnelId( 7, HwTunnelId() ).key ),
             Rook::keyHash( uint64_t( 7 ) ) );
  EXPECT_EQ( Rook::keyHash( Pair( 7, 5 ) ), 0x4F38073DA3635CF3 );
  const auto hash = Rook::keyHash( uint32_t( 1000 ) );
  EXPECT_EQ( hash.spread, 0xDC83EEC4070C39A9 );
  EXPECT_EQ( hash.neighbour(), 10u );
  EXPECT_EQ( hash.mixed(), 0x41E93E3A893C3465 );

  const MountDirectory directory;
  const auto path = directory.path( "table" );
  EntryTable().mount( "table" );
  for ( uint64_t layoutVersion = 1; layoutVersion < Rook::Format::layoutVersion; ++layoutVersion ) {
    auto content = layoutVersion == 5 ? keptFile( 5 ) : std::string( 8192, '\0' );
    std::memcpy( content.data(), &Rook::Format::magic, 8 );
    std::memcpy( &content[ 8 ], &layoutVersion, 8 );
    std::ofstream( path, std::ios::binary ) << content;
    EXPECT_EQ( messageOf< std::runtime_error >( [ & ] { EntryReader reader( path ); } ),
               path + " has layout version " + std::to_string( layoutVersion ) + ", expected 6" );
  }

  if ( getpagesize() != 4096 ) {
    GTEST_SKIP() << "the file is kept as systems with pages of 4096 bytes lay it out";
  }
  const auto kept = keptFile( Rook::Format::layoutVersion );
  std::ofstream( path, std::ios::binary ) << kept;
  const EntryReader reader( path );
  EXPECT_EQ( reader.record( 1 ), Entry( 1, 1 ) );
  EXPECT_EQ( reader.record( 2 ), Entry( 2, 4 ) );
  EXPECT_EQ( reader.record( 3 ), std::nullopt );
  EntryTable writer;
  writer.mount( "table" );
  EXPECT_EQ( walk( writer ), walk( reader ) );
  writer.unmount();
  std::filesystem::remove( path );
  writer.mount( "table" );
  for ( const uint64_t key : { 1, 2, 3 } ) {
    writer.put( Entry( key, key ) );
  }
  writer.put( Entry( 2, 4 ) );
  writer.del( 3 );
  EXPECT_TRUE( contentOf( path ) == kept );
}

// Any one bit that is flipped leaves every record right, or raises an error; nothing is missing
// without one.
TEST( Rook, NoticesFlippedBits ) {
  const MountDirectory directory;
  {
    EntryTable writer;
    writer.mount( "table" );
    for ( uint64_t key = 0; key < 40; ++key ) {
      writer.put( Entry( key, 1 ) );
      writer.put( Entry( key, key ) );
    }
    for ( uint64_t key = 30; key < 40; ++key ) {
      writer.del( key );
    }
  }
  const auto path = directory.path( "table" );
  std::fstream file( path, std::ios::in | std::ios::out | std::ios::binary );
  size_t noticed = 0;
  const auto flip = [ & ]( size_t bit ) {
    file.seekg( static_cast< std::streamoff >( bit / 8 ) );
    const int byte = file.get() ^ 1 << bit % 8;
    file.seekp( static_cast< std::streamoff >( bit / 8 ) );
    file.put( static_cast< char >( byte ) ).flush();
  };
  const auto check = [ & ] {
    const EntryReader reader( path );
    for ( uint64_t key = 0; key < 50; ++key ) {
      try {
        ASSERT_EQ( reader.record( key ),
                   key < 30 ? std::optional( Entry( key, key ) ) : std::nullopt );
      } catch ( const Rook::Corruption & ) {
        ++noticed;
      }
    }
    size_t left = 30;
    EntryReader walked( path );
    walked.corruptionHandlerIs( [ & ]( const Rook::Corruption & ) { --left; } );
    for ( const auto & entry : walked.range() ) {
      ASSERT_EQ( entry, Entry( entry.key, entry.key ) );
      --left;
    }
    // A free slot may be the damaged one.
    ASSERT_TRUE( left == 0 || left + 1 == 0 ) << left;
  };
  const size_t end = ( slotsOffset + 41 * 40 ) * 8;
  for ( size_t bit = 0; bit< end; bit += bit / 8 > 4096 && bit / 8 < slotsOffset ? 23 : 7 ) {
    flip( bit );
    try {
      check();
    } catch ( const std::runtime_error & ) {
      ++noticed;
    }
    ASSERT_FALSE( HasFatalFailure() ) << "bit " << bit % 8 << " of byte " << bit / 8;
    flip( bit );
  }
  EXPECT_GT( noticed, 1000u );
}

TEST( Rook, DamageEndsAWriterThatMeetsIt ) {
  const MountDirectory directory;
  EntryTable table;
  table.mount( "table" );
  table.put( Entry( 9, 9 ) );
  table.put( Entry( 1, 2 ) );
  const auto path = directory.path( "table" );
  const size_t second = recordOffset + 40;
  poke( path, second + 8, 7 ); // the value
  EXPECT_THROW( (void)table.record( 1 ), Rook::Corruption );
  std::string told;
  table.corruptionHandlerIs( [ & ]( const auto & corruption ) { told = corruption.what(); } );
  EXPECT_EQ( table.examine( 9 ).record, Entry( 9, 9 ) );
  EXPECT_FALSE( table.examine( 2 ).record || table.examine( 2 ).damage );
  const auto examined = table.examine( 1 );
  EXPECT_FALSE( examined.record );
  EXPECT_THAT( examined.damage.value().what(), HasSubstr( "the record in slot 1 is damaged" ) );
  EXPECT_EQ( told, "" );
  EXPECT_EQ( table.safeRecord( 1 ), std::nullopt );
  EXPECT_EQ( std::exchange( told, "" ), examined.damage->what() );
  EXPECT_EQ( walk( table ).size(), 1u );
  EXPECT_THAT( told, HasSubstr( "table: the record in slot 1 is damaged" ) );
  const char * const end = "cannot be written.*the record in slot 1 is damaged";
  EXPECT_DEATH( table.del( 1 ), end );
  EXPECT_DEATH( table.commit( Entry( 1, 4 ) ), end );
  table.put( Entry( 1, 3 ) ); // which does not look at the value that it replaces
  EXPECT_EQ( table.record( 1 ), Entry( 1, 3 ) );
  poke( path, second, 3 ); // the key
  EXPECT_DEATH( table.put( Entry( 1, 4 ) ), end );
  // What nothing leads to is not taken for the record that it looks like.
  poke( path, recordOffset, 2 );
  table.put( Entry( 2, 3 ) );
  EXPECT_EQ( table.record( 2 ), Entry( 2, 3 ) );
  EXPECT_THROW( (void)table.record( 9 ), Rook::Corruption );
  EXPECT_DEATH( table.delAll(), "cannot be written.*the record in slot 0 is damaged" );
  const char check = contentOf( path )[ birthsOffset + 7 ];
  poke( path, birthsOffset + 7, static_cast< char >( ~check ) );
  EXPECT_DEATH( table.delAll(), "cannot be written.*the word 'births' of the state is damaged" );
  poke( path, birthsOffset + 7, check );
  table.unmount();
  EXPECT_THAT( messageOf< Rook::Corruption >( [ & ] { table.mount( "table" ); } ),
               HasSubstr( "the record in slot 1 is damaged" ) );
  EXPECT_DEATH( table.put( Entry( 1, 3 ) ), "assertion failed: writable\\(\\)" );
}

// As a writer leaves it that is killed while it copies a record in place.
TEST( Rook, StagedRecordsStandAndAreFinishedByTheNextWriter ) {
  const MountDirectory directory;
  const auto path = directory.path( "table" );
  const auto stage = [ & ] {
    poke( path, slotsOffset, static_cast< char >( contentOf( path )[ slotsOffset ] ^ 3 ) );
    poke( path, recordOffset + 8, 77 );
  };
  std::optional< EntryTable > writer( std::in_place );
  writer->mount( "table" );
  writer->put( Entry( 1, 2 ) );
  writer->put( Entry( 1, 3 ) );
  writer.reset();
  const EntryReader reader( path );
  stage();
  EXPECT_EQ( reader.record( 1 ), Entry( 1, 3 ) );
  EXPECT_EQ( walk( reader ).at( 1 ), Entry( 1, 3 ) );
  writer.emplace().mount( "table" );
  for ( const uint64_t value : { 3, 4 } ) {
    EXPECT_EQ( writer->record( 1 ), Entry( 1, value ) );
    EXPECT_EQ( reader.record( 1 ), Entry( 1, value ) );
    EXPECT_EQ( contentOf( path )[ slotsOffset ] & 1, 0 );
    writer->put( Entry( 1, 4 ) );
  }
  writer.reset();

  // What another slot staged, in this one's cell.
  stage();
  const auto cell = static_cast< size_t >( contentOf( path )[ slotsOffset ] ) >> 2 & 7;
  poke( path, stagingOffset + cell * 64 + 4, 5 );
  EXPECT_THROW( (void)reader.record( 1 ), Rook::Corruption );
  EXPECT_THROW( EntryTable().mount( "table" ), Rook::Corruption );
}

// The inspector knows no record types. It shows what it can, and follows until the file goes.
TEST( Rook, InspectorShowsAndFollowsTables ) {
  const MountDirectory directory;
  Rook::Table< &Kez::TunnelIdToHwTunnelId::key > table;
  table.mount( "table" );
  const auto path = directory.path( "table" );
  const Kez::TunnelIdToHwTunnelId five( 5, Kez::HwTunnelId( Kez::hwTunnelIdTypeSharedEsi, 7 ) );
  const Kez::TunnelIdToHwTunnelId six( 6, Kez::HwTunnelId() );
  table.put( five );
  table.put( six );
  std::ostringstream out;
  std::ostringstream err;
  EXPECT_EQ( Inspect::kezInspect( { "table", path }, out, err ), 0 );
  EXPECT_EQ( out.str(), Vex::text( five ) + "\n" + Vex::text( six ) + "\n" );
  out.str( "" );
  EXPECT_EQ( Inspect::kezInspect( { "table", path, "6" }, out, err ), 0 );
  EXPECT_EQ( out.str(), Vex::text( six ) + "\n" );
  EXPECT_EQ( Inspect::kezInspect( { "table", path, "7" }, out, err ), 1 );
  EXPECT_THAT( err.str(), HasSubstr( "no record has the key 7" ) );
  EXPECT_EQ( Inspect::kezInspect( { "table", path + "/none" }, out, err ), 2 );

  out.str( "" );
  std::thread follower( [ & ] { Inspect::kezInspect( { "table", path, "--follow" }, out, err ); } );
  std::this_thread::sleep_for( std::chrono::milliseconds( 250 ) );
  table.del( 5 );
  table.put( six );
  std::this_thread::sleep_for( std::chrono::milliseconds( 250 ) );
  std::filesystem::remove( path );
  follower.join();
  EXPECT_EQ( out.str(), Vex::text( five ) + "\n" + Vex::text( six ) + "\ndel 5\nset " +
                            Vex::text( six ) + "\n" );
}

// --- The mapping of tunnels

class MappingWatcher : public Vex::Reactor {
public:
  MappingWatcher( Vex::ReactorOwner & owner, const Vex::Entity * entity ) : Reactor( owner ) {
    Reactor::notifierIs( entity );
  }
  ~MappingWatcher() override { Reactor::notifierIs( nullptr ); }
  std::vector< std::string > story;

private:
  void onAttribute( Vex::AttrId id, const void * key ) override {
    using Mapping = Kez::TunnelIdToHwTunnelIdMapping;
    story.push_back( std::to_string( id ) );
    if ( id == Mapping::tunnelIdToHwTunnelIdAttr ) {
      story.back() += " " + Vex::text( Mapping::tunnelIdToHwTunnelIdAttr.key( key ) );
    }
  }
};

TEST( TunnelIdToHwTunnelIdMapping, TellsOfEveryWriteAndKeepsItsControlInformed ) {
  const MountDirectory directory;
  auto mapping = Kez::tunnelIdToHwTunnelIdMappingFactory( "mapping" );
  struct Owner : Vex::ReactorOwner {
  } owner;
  std::optional< MappingWatcher > watcher( std::in_place, owner, mapping.get() );
  const auto take = [ & ] { return std::exchange( watcher->story, {} ); };
  const TunnelIdToHwTunnelId record( 5, HwTunnelId( Kez::hwTunnelIdTypeSharedEsi, 7 ) );
  mapping->tunnelIdToHwTunnelIdDelAll();
  mapping->tunnelIdToHwTunnelIdIs( record );
  mapping->tunnelIdToHwTunnelIdIs( record );
  auto edited = *mapping->tunnelIdToHwTunnelId( 5 );
  edited.hwTunnelId = HwTunnelId( Kez::hwTunnelIdTypeDefault, 8 );
  mapping->tunnelIdToHwTunnelIdCommit( edited );
  mapping->tunnelIdToHwTunnelIdDel( 6 );
  EXPECT_THAT( take(), ElementsAre( "1 5", "1 5", "1 5" ) );
  EXPECT_EQ( mapping->tunnelIdToHwTunnelIds(), 1u );

  using Reader = Rook::Reader< &TunnelIdToHwTunnelId::key >;
  const Reader reader( directory.path( "mapping/tunnelIdToHwTunnelId" ) );
  EXPECT_EQ( reader.record( 5 ), edited );
  const auto & attribute = *mapping->fwkType().attribute( "tunnelIdToHwTunnelId" );
  EXPECT_EQ( attribute.kind, Rook::tableKind );
  EXPECT_EQ( text( attribute.kind ), "table" );
  EXPECT_EQ( attribute.member( *mapping, "5" )->value, "5,0:8" );
  EXPECT_EQ( attribute.size( *mapping ), 1u );
  attribute.forEach( *mapping, []( const auto & member ) { EXPECT_EQ( member.key, "5" ); } );
  EXPECT_THROW( attribute.memberIs( *mapping, "6", "5,0:8" ), Vex::ParseError );

  const auto control = mapping->tunnelIdToHwTunnelIdControl();
  EXPECT_EQ( control->mountStatus(), Rook::MountStatus::mounted );
  EXPECT_EQ( control->entity(), mapping.get() );
  mapping->tunnelIdToHwTunnelIdTable().quiescedIs( true );
  mapping->tunnelIdToHwTunnelIdTable().notificationsSuppressedIs( true );
  EXPECT_TRUE( control->quiesced() && control->notificationsSuppressed() && reader.quiesced() );
  mapping->tunnelIdToHwTunnelIdIs( TunnelIdToHwTunnelId( 9, HwTunnelId() ) );
  EXPECT_THAT( take(), ElementsAre() );
  mapping->tunnelIdToHwTunnelIdTable().notificationsSuppressedIs( false );
  mapping->tunnelIdToHwTunnelIdDelAll();
  EXPECT_THAT( take(), UnorderedElementsAre( "1 5", "1 9" ) );
  EXPECT_EQ( mapping->notifications(), 5u );
  EXPECT_EQ( reader.record( 5 ), std::nullopt );

  const auto other = Vex::makePtr< Rook::CollectionControl >();
  mapping->tunnelIdToHwTunnelIdControlIs( other );
  mapping->tunnelIdToHwTunnelIdControlIs( other );
  EXPECT_THAT( take(), ElementsAre( "2" ) );
  EXPECT_EQ( control->entity(), nullptr );
  EXPECT_EQ( other->entityName(), "mapping" );
  EXPECT_TRUE( other->quiesced() );
  watcher.reset();
  auto successor = Kez::tunnelIdToHwTunnelIdMappingFactory( "successor" );
  successor->tunnelIdToHwTunnelIdControlIs( other );
  mapping = nullptr;
  EXPECT_EQ( other->entity(), successor.get() );
  successor = nullptr;
  EXPECT_EQ( other->entity(), nullptr );
  EXPECT_EQ( other->refs(), 1u );
}

// A table of 512 records that cannot become longer, in a file or in private memory.
TEST( TunnelIdToHwTunnelIdMapping, WithoutRoomNothingChangesAndWhatStandsGoesOn ) {
  for ( const bool shared : { true, false } ) {
    const MountDirectory directory;
    if ( !shared ) {
      Rook::mountDirectoryIs( "" );
    }
    const auto mapping = Kez::tunnelIdToHwTunnelIdMappingFactory( "mapping" );
    struct Owner : Vex::ReactorOwner {
    } owner;
    MappingWatcher watcher( owner, mapping.get() );
    const auto take = [ & ] { return std::exchange( watcher.story, {} ); };
    const auto record = [ & ]( uint32_t tunnel ) {
      return TunnelIdToHwTunnelId( tunnel, HwTunnelId( Kez::hwTunnelIdTypeDefault, tunnel ) );
    };
    const Limit longest( RLIMIT_FSIZE, 64 * 1024 );
    uint32_t next = 0;
    while ( mapping->tunnelIdToHwTunnelIdMakeRoom() ) {
      ASSERT_NO_THROW( mapping->tunnelIdToHwTunnelIdIs( record( ++next ) ) );
    }
    ASSERT_EQ( take().size(), next );
    const auto lack = ( shared ? "no room for " + directory.path( "mapping/tunnelIdToHwTunnelId" )
                               : "no room for private table 'mapping/tunnelIdToHwTunnelId'" ) +
                      ": File too large";
    EXPECT_EQ( mapping->tunnelIdToHwTunnelIdLack(), lack );
    EXPECT_EQ( messageOf< Rook::NoRoom >(
                   [ & ] { mapping->tunnelIdToHwTunnelIdIs( record( next + 1 ) ); } ),
               lack );
    EXPECT_THAT( take(), ElementsAre() );
    EXPECT_EQ( mapping->tunnelIdToHwTunnelIds(), next );
    EXPECT_FALSE( mapping->tunnelIdToHwTunnelIdHas( next + 1 ) );

    mapping->tunnelIdToHwTunnelIdIs( record( 1 ) );
    mapping->tunnelIdToHwTunnelIdDel( 2 );
    EXPECT_TRUE( mapping->tunnelIdToHwTunnelIdMakeRoom() );
    EXPECT_EQ( mapping->tunnelIdToHwTunnelIdLack(), "" );
    mapping->tunnelIdToHwTunnelIdIs( record( 2 ) );
    EXPECT_THAT( take(), ElementsAre( "1 1", "1 2", "1 2" ) );
    EXPECT_FALSE( mapping->tunnelIdToHwTunnelIdMakeRoom() );
    {
      const Limit more( RLIMIT_FSIZE, 1024 * 1024 );
      EXPECT_TRUE( mapping->tunnelIdToHwTunnelIdMakeRoom() );
    }
    mapping->tunnelIdToHwTunnelIdIs( record( next + 1 ) );
    EXPECT_EQ( mapping->tunnelIdToHwTunnelId( next + 1 ), record( next + 1 ) );
  }
}

TEST( Rook, InterfacesStayInPrivateMemory ) {
  const MountDirectory directory;
  Rook::Table< &WithIntf::key > table;
  table.mount( "interfaces" );
  EXPECT_EQ( table.mountStatus(), Rook::MountStatus::privateMemory );
  table.put( WithIntf( 1, "swp1" ) );
  EXPECT_EQ( table.record( 1 ), WithIntf( 1, "swp1" ) );
}

} // namespace
