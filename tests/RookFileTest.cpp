// What a table's file is laid out like, and what a damaged, foreign or busy one is answered with.
#include "KezEvpn/KezEvpn.h"
#include "RookTestTypes.h"

#include <gmock/gmock.h>

#include <fstream>
#include <sstream>

namespace RookTest {

struct Pair {
  uint64_t first = 0;
  uint64_t second = 0;
  VEX_VALUE( Pair, "RookTest::Pair", first, second )
};

} // namespace RookTest

namespace {

using namespace RookTest;
using testing::HasSubstr;

// Parts are whole pages, none overlaps another, and the slots of all levels are gapless in pages.
TEST( Rook, LayoutsFitTheirPages ) {
  using Rook::Format::Layout;
  for ( const uint64_t page : { 4096, 16384, 65536 } ) {
    for ( size_t recordSize = 1; recordSize < 20000; recordSize += recordSize < 700 ? 5 : 3000 ) {
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
      // As many as there can be: a level more doubles the file.
      constexpr auto most = uint64_t( 1 ) << 40;
      ASSERT_TRUE( end <= most && ( slots == 1 << 28 || 2 * end + 4 * page > most ) );
    }
  }
  using Rook::Format::canMap;
  EXPECT_TRUE( canMap( 4096, 4096 ) && canMap( 65536, 4096 ) && canMap( 65536, 16384 ) );
  EXPECT_FALSE( canMap( 4096, 16384 ) || canMap( 0, 4096 ) || canMap( 3 * 4096, 4096 ) ||
                canMap( uint64_t( 1 ) << 40, 4096 ) );
}

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
  EXPECT_EQ( Rook::keyHash( Kez::TunnelIdToHwTunnelId( 7, {} ).key ),
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

} // namespace
