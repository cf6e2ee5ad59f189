#include "FailingNew.h"
#include "KezEvpn/TunnelIdToHwTunnelIdMapping.h"
#include "KezEvpn/frame/Review.h"
#include "RookTestTypes.h"
#include "inspect/Inspect.h"

#include <gmock/gmock.h>

#include <fstream>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <sys/mman.h>
#include <sys/stat.h>
#include <thread>

namespace RookTest {

struct WithIntf {
  uint64_t key = 0;
  Wire::IntfId intfId;
  VEX_VALUE( WithIntf, "RookTest::WithIntf", key, intfId )
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
bool addressesLeft( size_t bytes ) {
  void * const memory = mmap( nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0 );
  return memory != MAP_FAILED && munmap( memory, bytes ) == 0;
}

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
    if ( addressesLeft( size_t( 64 ) << 20 ) ) {
      GTEST_SKIP() << "addresses are not limited here";
    }
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

// Whichever piece of memory cannot be had for another level; what stands needs none to go.
TEST( Rook, WithoutMemoryThereIsNoRoom ) {
  size_t pieces = 0;
  for ( bool grown = false; !grown; ++pieces ) {
    EntryTable table;
    table.mount( "table" );
    const auto put = [ & ] { table.put( Entry( table.size(), 1 ) ); };
    while ( table.size() < layout.capacity( 0 ) ) {
      put();
    }
    const auto lack = messageOf< Rook::NoRoom >( [ & ] {
      const FailingNew failing( pieces );
      put();
    } );
    grown = lack.empty();
    EXPECT_EQ( lack, grown ? "" : "no memory to make private table 'table' larger" );
    EXPECT_EQ( walk( table ).size(), layout.capacity( 0 ) + grown );
    const FailingNew failing( 0 );
    EXPECT_EQ( table.makeRoom(), grown );
    EXPECT_TRUE( table.lack() == lack );
    for ( uint64_t key = 0; key < layout.capacity( 0 ); ++key ) {
      table.del( key );
    }
  }
  EXPECT_GT( pieces, 3u );
}

// A reader may still look into the index of an earlier level, where it must not need memory that a
// full file system has not.
TEST( Rook, IndicesLeftBehindKeepTheirMemory ) {
  const MountDirectory directory;
  EntryTable table;
  table.mount( "table" );
  uint64_t least = layout.level( 2 ).end;
  for ( uint32_t level = 0; level <= 2; ++level ) {
    least -= layout.indexSize( level ); // of which one is used
  }
  while ( table.size() < layout.capacity( 2 ) ) {
    table.put( Entry( table.size(), 1 ) );
  }
  struct stat status {};
  ASSERT_EQ( stat( directory.path( "table" ).c_str(), &status ), 0 );
  EXPECT_GE( static_cast< uint64_t >( status.st_blocks ) * 512, least );
}

// What the private tables of this process have, in bytes.
size_t privateMemory() {
  size_t bytes = 0;
  for ( const auto & each : std::filesystem::directory_iterator( "/proc/self/fd" ) ) {
    std::error_code closed;
    struct stat status {};
    if ( read_symlink( each.path(), closed ).string().starts_with( "/memfd:Rook" ) &&
         stat( each.path().c_str(), &status ) == 0 ) {
      bytes += static_cast< size_t >( status.st_blocks ) * 512;
    }
  }
  return bytes;
}

// Whatever is looked up, also where several tags are alike: who looks at a slot without memory
// gives it some, or ends where there is none.
TEST( Rook, SlotsGetMemoryAsTheyAreUsed ) {
  EntryTable table;
  table.mount( "slots" );
  constexpr uint32_t level = 9;
  const auto & grown = layout.level( level + 1 );
  const uint64_t slots = grown.end - grown.slots;
  const auto before = privateMemory();
  while ( table.size() <= layout.capacity( level ) ) {
    table.put( Entry( table.size(), 1 ) );
  }
  EXPECT_LT( privateMemory() - before, grown.slots + slots / 4 );
  while ( table.size() < layout.capacity( level ) * 5 / 4 ) {
    table.put( Entry( table.size(), 1 ) );
  }
  const auto memory = privateMemory();
  EXPECT_LT( memory - before, grown.slots + slots / 2 );
  for ( uint64_t key = 0; key < 2 * table.size(); ++key ) {
    ASSERT_EQ( table.has( key ), key < table.size() );
    if ( key < table.size() ) {
      table.put( Entry( key, 2 ) );
    }
  }
  EXPECT_EQ( privateMemory(), memory );
}

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
      task, scheduler, 2, "review", *scheduler,
      [ & ] { task->review( table.range(), step, 0, Kez::Resume::atBookmark ); }, handle,
      Kez::unprogrammedReviewTexts );
  task->scheduleNow();
  for ( int run = 0; run < 3; ++run ) {
    EXPECT_EQ( scheduler->runReady(), 1u );
  }
  EXPECT_EQ( scheduler->runReady(), 0u );
  EXPECT_EQ( reviewed.size(), 20u );
  EXPECT_EQ( std::set( reviewed.begin(), reviewed.end() ).size(), 20u );
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
  EXPECT_EQ( Inspect::kezInspect( { "ring", path }, out, err ), 2 );
  EXPECT_THAT( err.str(), HasSubstr( path + " is a shared table, which kez-inspect table shows" ) );

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

TEST( TunnelIdToHwTunnelIdMapping, IsShownWhateverItsIndexHasLost ) {
  const MountDirectory directory;
  const auto mapping = Kez::tunnelIdToHwTunnelIdMappingFactory( "mapping" );
  for ( const uint32_t tunnel : { 5, 6 } ) {
    mapping->tunnelIdToHwTunnelIdIs( { tunnel, { Kez::hwTunnelIdTypeDefault, tunnel } } );
  }
  const Rook::Format::Layout layout( sizeof( TunnelIdToHwTunnelId ),
                                     static_cast< uint64_t >( getpagesize() ) );
  for ( uint64_t at = 0; at < layout.indexSize( 0 ); ++at ) {
    poke( directory.path( "mapping/tunnelIdToHwTunnelId" ), layout.level( 0 ).index + at, 0 );
  }
  std::vector< std::string > members;
  const auto & attribute = *mapping->fwkType().attribute( "tunnelIdToHwTunnelId" );
  attribute.forEach( *mapping, [ & ]( const auto & member ) {
    members.push_back( member.key + "=" + member.value );
  } );
  EXPECT_THAT( members, ElementsAre( "5=5,0:5", "6=6,0:6" ) );
  EXPECT_EQ( attribute.member( *mapping, "6" ), std::nullopt );
}

// A table that cannot become longer, in a file or in private memory.
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
    // So that the third level has room for an index, not for its slots.
    const Rook::Format::Layout layout( sizeof( TunnelIdToHwTunnelId ),
                                       static_cast< uint64_t >( getpagesize() ) );
    const Limit longest( RLIMIT_FSIZE, layout.level( 2 ).index + layout.indexSize( 2 ) );
    uint32_t next = 0;
    while ( mapping->tunnelIdToHwTunnelIdMakeRoom() ) {
      ASSERT_NO_THROW( mapping->tunnelIdToHwTunnelIdIs( record( ++next ) ) );
    }
    ASSERT_EQ( take().size(), next );
    const auto lack = ( shared ? "no room for " + directory.path( "mapping/tunnelIdToHwTunnelId" )
                               : "no room for private table 'mapping/tunnelIdToHwTunnelId'" ) +
                      ": File too large";
    EXPECT_EQ( mapping->tunnelIdToHwTunnelIdLack(), lack );
    EXPECT_EQ( next, layout.capacity( 1 ) );
    if ( shared ) {
      EXPECT_EQ( std::filesystem::file_size( directory.path( "mapping/tunnelIdToHwTunnelId" ) ),
                 layout.level( 1 ).end );
    }
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
