// A journal of what hardware has: what it takes of its file and of memory, an entry, of the bytes
// that the entry itself has, and what it costs to write one.
#include "Ratio.h"

#include "KezEvpn/FloodSets.h"
#include "KezHelper/EvpnFloodingSmHelper.h"
#include "KezHelper/HwFecs.h"
#include "KezHelper/JournalFile.h"
#include "Vex/Descriptor.h"

#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using Bridging::VlanIdOrNone;
using KezHelper::EsiData;
using KezHelper::HwFec;
using KezHelper::JournalFile;
using KezHelper::JournalNames;
using KezHelper::PortVlanKey;

// A directory of journals, below the system's for temporary files.
class Directory {
public:
  Directory() { Rook::mountDirectoryIs( path_ ); }
  ~Directory() {
    Rook::mountDirectoryIs( "" );
    std::filesystem::remove_all( path_ );
  }
  Directory( const Directory & ) = delete;
  Directory & operator=( const Directory & ) = delete;

  // What the file takes of the file system.
  double bytes( const std::string & name ) const {
    struct stat status {};
    return stat( path( name ).c_str(), &status ) == 0 ? 512.0 * status.st_blocks : 0;
  }
  std::string path( const std::string & name ) const { return path_ + "/" + name; }

private:
  const std::string path_ =
      std::filesystem::temp_directory_path() / ( "JournalBench." + std::to_string( getpid() ) );
};

constexpr uint32_t ports = 100'000;
Wire::IntfId portOf( uint32_t i ) {
  static const auto all = [] {
    std::vector< Wire::IntfId > each;
    for ( uint32_t number = 1; number <= ports; ++number ) {
      each.emplace_back( "Ethernet" + std::to_string( number ) );
    }
    return each;
  }();
  return all[ i % ports ];
}
Bridging::VlanId vlanOf( uint32_t i ) {
  return static_cast< uint16_t >( i / 512 % 4000 + 1 );
}

// The tables of a switch: the key and data of an entry each.
struct Dot1qMapping {
  static PortVlanKey key( uint32_t i ) {
    return { portOf( i % 512 ), portOf( i % 512 ), vlanOf( i ) };
  }
  static VlanIdOrNone data( uint32_t i ) { return vlanOf( i ); }
};
struct NonDfPort {
  static PortVlanKey key( uint32_t i ) { return Dot1qMapping::key( i ); }
  static Vex::NoValue data( uint32_t ) { return {}; }
};
struct EsiDataOfPort {
  static PortVlanKey key( uint32_t i ) { return Dot1qMapping::key( i ); }
  static EsiData data( uint32_t i ) { return { i, { Kez::hwTunnelIdTypeDefault, i }, 100, 200 }; }
};
struct EsiPortMap {
  static Wire::IntfId key( uint32_t i ) { return portOf( i ); }
  static Wire::MplsLabel data( uint32_t i ) { return 16 + i; }
};
struct FecOfPath {
  static uint64_t key( uint32_t i ) { return i; }
  static HwFec data( uint32_t i ) { return { false, { { portOf( i % 512 ), 16 + i } }, {} }; }
};
struct FloodSetDest {
  static Kez::FloodSetMplsDestConfig key( uint32_t i ) {
    return { { 0xFFFF'FFFF'FFFF, vlanOf( i ) },
             { i, i, { Kez::hwTunnelIdTypeDefault, i }, i, {} } };
  }
  static Vex::NoValue data( uint32_t ) { return {}; }
};
struct MacEntry {
  static Bridging::MacVlanPair key( uint32_t i ) {
    return { 0x0200'0000'0000 + uint64_t( i ), vlanOf( i ) };
  }
  static uint64_t data( uint32_t i ) { return i % 10'000; }
};

// Of `entries` entries, and the largest ratio of any number up to it, from 10,000 on.
template< class Table > void journalBytes( benchmark::State & state ) {
  using Key = decltype( Table::key( 0 ) );
  using Data = decltype( Table::data( 0 ) );
  const auto entries = static_cast< uint32_t >( state.range( 0 ) );
  constexpr double entry =
      KezHelper::Detail::journalBytes< Key >() + KezHelper::Detail::journalBytes< Data >();
  for ( auto _ : state ) {
    const Directory directory;
    JournalNames names( "chip" );
    JournalFile< Key, Data > journal( names, "table" );
    double most = 0;
    for ( uint32_t i = 0; i < entries; ++i ) {
      if ( !journal.put( Table::key( i ), Table::data( i ) ) ) {
        state.SkipWithError( journal.lack().c_str() );
        return;
      }
      if ( i >= 10'000 && i % 256 == 0 ) {
        most = std::max( most, directory.bytes( "chip/table" ) / i / entry );
      }
    }
    state.counters[ "entry" ] = entry;
    state.counters[ "bytes" ] = directory.bytes( "chip/table" ) / entries;
    state.counters[ "ratio" ] = directory.bytes( "chip/table" ) / entries / entry;
    state.counters[ "most" ] = most;
  }
}

// In no order, as machines create them; each once more with other data, and removed.
void journalWrites( benchmark::State & state ) {
  const auto entries = static_cast< uint32_t >( state.range( 0 ) );
  const auto keyOf = []( uint32_t i ) { return i * 2654435761u % ( 1u << 30 ); };
  const auto writes = [ & ]( auto && put, auto && del ) {
    for ( const uint32_t data : { 1, 2 } ) {
      for ( uint32_t i = 0; i < entries; ++i ) {
        put( keyOf( i ), data + i );
      }
    }
    for ( uint32_t i = 0; i < entries; ++i ) {
      del( keyOf( i ) );
    }
  };
  const auto subject = [ & ] {
    auto directory = std::make_unique< Directory >();
    auto names = std::make_unique< JournalNames >( "chip" );
    auto journal = std::make_unique< JournalFile< uint32_t, uint32_t > >( *names, "table" );
    return [ &, directory = std::move( directory ), names = std::move( names ),
             journal = std::move( journal ) ] {
      writes( [ & ]( uint32_t key,
                     uint32_t data ) { benchmark::DoNotOptimize( journal->put( key, data ) ); },
              [ & ]( uint32_t key ) { journal->del( key ); } );
    };
  };
  struct Line {
    uint32_t key;
    uint32_t data;
  };
  const auto floor = [ & ] {
    auto directory = std::make_unique< Directory >();
    std::filesystem::create_directories( directory->path( "" ) );
    auto log = std::make_unique< Vex::Descriptor >(
        open( directory->path( "log" ).c_str(), O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0600 ) );
    return [ &, directory = std::move( directory ), log = std::move( log ) ] {
      const auto append = [ & ]( const Line & line ) {
        benchmark::DoNotOptimize( write( log->number(), &line, sizeof( line ) ) );
      };
      writes(
          [ & ]( uint32_t key, uint32_t data ) {
            append( { key, data } );
          },
          [ & ]( uint32_t key ) {
            append( { key, 0 } );
          } );
    };
  };
  Bench::compareWith( state, 3.0 * entries, { "ratio" }, subject, floor );
}

} // namespace

BENCHMARK( journalBytes< Dot1qMapping > )
    ->Name( "journalBytes/Dot1qMapping" )
    ->Arg( 640'000 )
    ->Iterations( 1 );
BENCHMARK( journalBytes< NonDfPort > )
    ->Name( "journalBytes/NonDfPort" )
    ->Arg( 640'000 )
    ->Iterations( 1 );
BENCHMARK( journalBytes< EsiDataOfPort > )
    ->Name( "journalBytes/EsiDataOfPort" )
    ->Arg( 640'000 )
    ->Iterations( 1 );
BENCHMARK( journalBytes< EsiPortMap > )
    ->Name( "journalBytes/EsiPortMap" )
    ->Arg( ports )
    ->Iterations( 1 );
BENCHMARK( journalBytes< FecOfPath > )
    ->Name( "journalBytes/FecOfPath" )
    ->Arg( 100'000 )
    ->Iterations( 1 );
BENCHMARK( journalBytes< FloodSetDest > )
    ->Name( "journalBytes/FloodSetDest" )
    ->Arg( 1'024'000 )
    ->Iterations( 1 );
BENCHMARK( journalBytes< MacEntry > )
    ->Name( "journalBytes/MacEntry" )
    ->Arg( 1'000'000 )
    ->Iterations( 1 );
BENCHMARK( journalWrites )->Arg( 100'000 )->UseManualTime()->Unit( benchmark::kMillisecond );
