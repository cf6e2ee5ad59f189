#include "Ringlog/RingFile.h"

#include "Ringlog/Ring.h"
#include "Ringlog/Ticks.h"
#include "Vex/OwnFile.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <stdexcept>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace Ringlog {

using Vex::throwSystemError;

namespace {

constexpr size_t pageSize = 4096;

bool isSameFile( int one, int other ) {
  struct stat oneStatus {};
  struct stat otherStatus {};
  return fstat( one, &oneStatus ) == 0 && fstat( other, &otherStatus ) == 0 &&
         oneStatus.st_dev == otherStatus.st_dev && oneStatus.st_ino == otherStatus.st_ino;
}

bool hasMagic( int file ) {
  return std::ranges::any_of( RingFormat::headerCopies, [ & ]( size_t offset ) {
    uint64_t magic = 0;
    return pread( file, &magic, sizeof( magic ), static_cast< off_t >( offset ) ) ==
               sizeof( magic ) &&
           magic == RingFormat::magic;
  } );
}

double measureTicksPerSecond() {
  constexpr double duration = 0.002;
  const auto start = clockPoint();
  auto end = start;
  while ( end.seconds - start.seconds < duration ) {
    end = clockPoint();
  }
  return static_cast< double >( end.ticks - start.ticks ) / ( end.seconds - start.seconds );
}

} // namespace

void checkReplaceable( const Vex::String & path, const Descriptor & own ) {
  const auto file = Vex::openOwnFile( path );
  if ( file.number() < 0 ) {
    return;
  }
  struct stat status {};
  if ( fstat( file.number(), &status ) != 0 ) {
    throwSystemError( "cannot read " + path );
  }
  if ( !S_ISREG( status.st_mode ) || ( status.st_size != 0 && !hasMagic( file.number() ) ) ) {
    throw std::runtime_error( path + " is there and is no ring, so it is left alone" );
  }
  if ( !isSameFile( file.number(), own.number() ) &&
       flock( file.number(), LOCK_EX | LOCK_NB ) != 0 ) {
    throw std::runtime_error( path + " is being written by another process" );
  }
}

RingFile::RingFile( const Vex::String & path, size_t bytes ) {
  if ( bytes < smallestRing ) {
    throw std::runtime_error( "a ring takes at least " + std::to_string( smallestRing ) +
                              " bytes, not " + std::to_string( bytes ) );
  }
  makeHeader( bytes );
  Vex::String temporary = path + ".XXXXXX";
  const Descriptor file( mkostemp( temporary.data(), O_CLOEXEC ) );
  if ( file.number() < 0 ) {
    throwSystemError( "cannot make " + path );
  }
  try {
    // Opened for itself, since a mapping, which threads may keep, keeps the lock of its own file.
    lock_ = Descriptor( open( temporary.c_str(), O_RDWR | O_CLOEXEC ) );
    // All of it now: a full disk is an error here and a signal later.
    errno = posix_fallocate( file.number(), 0, static_cast< off_t >( header_.fileSize ) );
    void * memory = MAP_FAILED;
    if ( errno == 0 && fchmod( file.number(), Vex::fileMode() ) == 0 &&
         flock( lock_.number(), LOCK_EX | LOCK_NB ) == 0 ) {
      memory = mmap( nullptr, header_.fileSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE,
                     file.number(), 0 );
    }
    if ( memory == MAP_FAILED ) {
      throwSystemError( "cannot make " + path );
    }
    memory_ = static_cast< std::byte * >( memory );
    writeHeader();
    if ( rename( temporary.c_str(), path.c_str() ) != 0 ) {
      munmap( memory_, header_.fileSize );
      throwSystemError( "cannot make " + path );
    }
  } catch ( ... ) {
    unlink( temporary.c_str() );
    throw;
  }
}

RingFile::~RingFile() {
  munmap( memory_, header_.fileSize );
}

void RingFile::makeHeader( size_t bytes ) {
  constexpr size_t smallestTable = 4 * pageSize;
  constexpr size_t largestTable = 256 * pageSize;
  constexpr size_t smallestBlock = 2 * pageSize;
  constexpr size_t largestBlock = 16 * pageSize;
  header_.magic = RingFormat::magic;
  header_.layoutVersion = RingFormat::layoutVersion;
  header_.tableSize = std::clamp( bytes / 8 / pageSize * pageSize, smallestTable, largestTable );
  header_.blockSize = std::clamp( std::bit_floor( bytes / 32 ), smallestBlock, largestBlock );
  header_.blockCount = ( bytes - RingFormat::headerSize - header_.tableSize ) / header_.blockSize;
  header_.fileSize =
      RingFormat::headerSize + header_.tableSize + header_.blockCount * header_.blockSize;
  header_.process = static_cast< uint64_t >( getpid() );
}

void RingFile::writeHeader() {
  using Seconds = std::chrono::duration< double >;
  header_.ticksPerSecond = measureTicksPerSecond();
  const auto now = clockPoint();
  header_.ticks = now.ticks;
  header_.seconds = now.seconds;
  header_.wallSeconds = Seconds( std::chrono::system_clock::now().time_since_epoch() ).count();
  header_.check = RingFormat::checkOfHeader( header_ );
  for ( const size_t offset : RingFormat::headerCopies ) {
    std::memcpy( memory_ + offset, &header_, sizeof( header_ ) );
  }
}

RingFormat::Progress & RingFile::progress() const {
  return *reinterpret_cast< RingFormat::Progress * >( memory_ + RingFormat::progressOffset );
}

uint64_t * RingFile::table() const {
  return reinterpret_cast< uint64_t * >( memory_ + RingFormat::headerSize );
}

RingFormat::Block & RingFile::block( size_t index ) const {
  return *reinterpret_cast< RingFormat::Block * >( memory_ + RingFormat::headerSize +
                                                   header_.tableSize + index * header_.blockSize );
}

} // namespace Ringlog
