// A record, tables and readers of it, and a directory for them.
#pragma once

#include "Rook/Reader.h"
#include "Rook/Table.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <sys/resource.h>
#include <unistd.h>

namespace RookTest {

struct Entry {
  uint64_t key = 0;
  uint64_t value = 0;
  uint64_t twice = 0;
  VEX_VALUE( Entry, "RookTest::Entry", key, value, twice )
  Entry( uint64_t key, uint64_t value ) : Entry( key, value, 2 * value ) {}
};
using EntryTable = Rook::Table< &Entry::key >;
using EntryReader = Rook::Reader< &Entry::key >;

// Tables are mounted below it while it stands.
class MountDirectory {
public:
  MountDirectory() { Rook::mountDirectoryIs( directory_ ); }
  ~MountDirectory() {
    Rook::mountDirectoryIs( "" );
    std::filesystem::remove_all( directory_ );
  }
  MountDirectory( const MountDirectory & ) = delete;
  MountDirectory & operator=( const MountDirectory & ) = delete;

  std::string path( const std::string & name ) const { return directory_ + "/" + name; }

private:
  const std::string directory_ = testing::TempDir() + "rook-" + std::to_string( getpid() );
};

// This process may have no more than so much of what it names while it stands, such as
// RLIMIT_FSIZE, the length of files.
class Limit {
public:
  Limit( int resource, rlim_t most ) : resource_( resource ) {
    getrlimit( resource, &before_ );
    const rlimit limit{ most, before_.rlim_max };
    setrlimit( resource, &limit );
  }
  ~Limit() {
    setrlimit( resource_, &before_ );
    std::signal( SIGXFSZ, handler_ );
  }
  Limit( const Limit & ) = delete;
  Limit & operator=( const Limit & ) = delete;

private:
  const int resource_;
  void ( *const handler_ )( int ) = std::signal( SIGXFSZ, SIG_IGN );
  rlimit before_{};
};

// Where a small table's file has its staging cells, of 64 bytes, and its first slot's record.
const Rook::Format::Layout layout( sizeof( Entry ), static_cast< uint64_t >( getpagesize() ) );
constexpr size_t stagingOffset = Rook::Format::stagingOffset;
const size_t slotsOffset = layout.level( 0 ).slots;
const size_t recordOffset = slotsOffset + sizeof( Rook::Format::SlotHead );
constexpr size_t birthsOffset = Rook::Format::stateOffset + offsetof( Rook::Format::State, births );

inline void poke( const std::string & path, size_t offset, char byte ) {
  std::fstream file( path, std::ios::in | std::ios::out | std::ios::binary );
  file.seekp( static_cast< std::streamoff >( offset ) );
  file.put( byte );
}

inline std::string contentOf( const std::string & path ) {
  std::ifstream file( path, std::ios::binary );
  return { std::istreambuf_iterator< char >( file ), {} };
}

// The head of a table of entries that is laid out for pages of so many bytes, and has none yet.
inline std::string headOf( uint64_t pageSize ) {
  const auto description = Rook::RecordOf< &Entry::key >::description();
  Rook::Format::Header header{
    Rook::Format::magic, Rook::Format::layoutVersion, description.recordSize, pageSize, 0, {}
  };
  description.fields.copy( header.fields, sizeof( header.fields ) );
  header.check = checkOf( header );
  std::string head( Rook::Format::headSize, '\0' );
  std::memcpy( head.data(), &header, sizeof( header ) );
  return head;
}

// Every record that a walk meets, each once.
template< class Table > std::map< uint64_t, Entry > walk( const Table & table ) {
  std::map< uint64_t, Entry > all;
  for ( const auto & entry : table.range() ) {
    EXPECT_TRUE( all.emplace( entry.key, entry ).second ) << entry.key;
  }
  return all;
}

// What an exception of this type says; empty when there is none.
template< class Exception, class Action > std::string messageOf( Action && action ) {
  try {
    action();
  } catch ( const Exception & exception ) {
    return exception.what();
  }
  return "";
}

} // namespace RookTest
