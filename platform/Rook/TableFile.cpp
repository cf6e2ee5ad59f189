#include "Rook/TableFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace Rook {

using Format::Header;
using Vex::Descriptor;
using Vex::String;
using Vex::throwSystemError;

uint64_t Format::checkOf( const Header & header ) {
  uint64_t words[ sizeof( Header ) / sizeof( uint64_t ) ];
  std::memcpy( words, &header, sizeof( header ) );
  Sum sum;
  for ( size_t i = 0; i < std::size( words ); ++i ) {
    if ( i != offsetof( Header, check ) / sizeof( uint64_t ) ) {
      sum.add( words[ i ], i );
    }
  }
  return withCheck( 0, sum.with( 0 ) );
}

TableFile::TableFile( const String & path, Descriptor file )
    : path_( path ), file_( std::move( file ) ) {}

TableFile::TableFile( const String & name, const Description & description )
    : TableFile( "private table '" + name + "'",
                 Descriptor( memfd_create( "Rook", MFD_CLOEXEC ) ) ) {
  if ( file_.number() < 0 ) {
    throwSystemError( "cannot make " + path_ );
  }
  description_ = description;
  makeHeader();
  map( PROT_READ | PROT_WRITE );
}

TableFile TableFile::write( const String & path, const Description & description ) {
  TableFile table(
      path, Descriptor( open( path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0644 ) ) );
  if ( table.file_.number() < 0 ) {
    throwSystemError( "cannot open " + path );
  }
  if ( flock( table.file_.number(), LOCK_EX | LOCK_NB ) != 0 ) {
    if ( errno != EWOULDBLOCK ) {
      throwSystemError( "cannot lock " + path );
    }
    throw std::runtime_error( path + " has a writer already, and may have one only" );
  }
  if ( table.size() == 0 ) {
    table.description_ = description;
    table.makeHeader();
  } else {
    table.checkHeader( &description );
  }
  table.map( PROT_READ | PROT_WRITE );
  return table;
}

TableFile TableFile::read( const String & path, const Description * expected ) {
  TableFile table( path, Descriptor( open( path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK ) ) );
  if ( table.file_.number() < 0 ) {
    throwSystemError( "cannot open " + path );
  }
  table.checkHeader( expected );
  table.map( PROT_READ );
  return table;
}

TableFile::~TableFile() {
  if ( memory_ ) {
    munmap( slots_, slotsSize() );
    munmap( memory_, levels_.back().end );
  }
}

TableFile::TableFile( TableFile && other ) noexcept
    : path_( std::move( other.path_ ) ), file_( std::move( other.file_ ) ),
      description_( std::move( other.description_ ) ), levels_( std::move( other.levels_ ) ),
      memory_( std::exchange( other.memory_, nullptr ) ),
      slots_( std::exchange( other.slots_, nullptr ) ), levelsSeen_( other.levelsSeen_ ) {}

void TableFile::makeHeader() {
  // In one write, so that a writer killed here leaves no header or a whole one.
  std::byte page[ Format::pageSize ] = {};
  Header header{ Format::magic, Format::layoutVersion, description_.recordSize, 0, {} };
  VEX_ASSERT( description_.fields.size() < sizeof( header.fields ) );
  description_.fields.copy( header.fields, sizeof( header.fields ) );
  header.check = checkOf( header );
  std::memcpy( page, &header, sizeof( header ) );
  if ( pwrite( file_.number(), page, sizeof( page ), 0 ) != sizeof( page ) ) {
    throwSystemError( "cannot write " + path_ );
  }
}

void TableFile::checkHeader( const Description * expected ) {
  const auto found = [ this ]( const String & what ) {
    throw std::runtime_error( path_ + " " + what );
  };
  struct stat status {};
  if ( fstat( file_.number(), &status ) != 0 || !S_ISREG( status.st_mode ) ) {
    found( "is no file" );
  }
  Header header{};
  const auto read = pread( file_.number(), &header, sizeof( header ), 0 );
  if ( read == 0 ) {
    found( "is empty: no writer has made it a table yet" );
  }
  if ( header.magic != Format::magic ) {
    found( "is no table: expected it to begin with ROOKTBL" );
  }
  if ( size() < Format::pageSize ) {
    cutShort( Format::pageSize );
  }
  if ( header.layoutVersion != Format::layoutVersion ) {
    found( "has layout version " + std::to_string( header.layoutVersion ) + ", expected " +
           std::to_string( Format::layoutVersion ) );
  }
  if ( header.check != checkOf( header ) ) {
    found( "is damaged: its header has not the checksum it says" );
  }
  description_ = { header.recordSize, header.fields };
  if ( expected && ( description_.recordSize != expected->recordSize ||
                     description_.fields != expected->fields ) ) {
    found( "has records of " + std::to_string( description_.recordSize ) + " bytes, " +
           description_.fields + "; expected " + std::to_string( expected->recordSize ) +
           " bytes, " + expected->fields );
  }
}

// Addresses for all that the table can become; what the file has not yet is not touched.
void TableFile::map( int protection ) {
  const size_t words = Format::wordsOf( description_.recordSize );
  const size_t slotSize = Format::slotSizeOf( words );
  uint64_t end = Format::levelsOffset( words );
  for ( uint32_t level = 0; level < Format::mostLevels && end < Format::mostBytes; ++level ) {
    levels_.push_back( Format::Level::after( end, level, slotSize ) );
    end = levels_.back().end;
  }
  void * const memory =
      mmap( nullptr, end, protection, MAP_SHARED | MAP_NORESERVE, file_.number(), 0 );
  void * const slots =
      mmap( nullptr, slotsSize(), PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0 );
  if ( memory == MAP_FAILED || slots == MAP_FAILED ) {
    throwSystemError( "cannot map " + path_ );
  }
  memory_ = static_cast< std::byte * >( memory );
  slots_ = static_cast< std::byte * >( slots );
  madvise( memory_, end, MADV_DONTDUMP );
  std::byte * at = slots_;
  for ( const auto & level : levels_ ) {
    const uint64_t size = level.end - level.slots;
    if ( mmap( at, size, protection, MAP_SHARED | MAP_NORESERVE | MAP_FIXED, file_.number(),
               static_cast< off_t >( level.slots ) ) == MAP_FAILED ) {
      throwSystemError( "cannot map " + path_ );
    }
    at += size;
  }
}

uint64_t TableFile::slotsSize() const {
  uint64_t size = 0;
  for ( const auto & level : levels_ ) {
    size += level.end - level.slots;
  }
  return size;
}

uint64_t TableFile::size() const {
  struct stat status {};
  if ( fstat( file_.number(), &status ) != 0 ) {
    throwSystemError( "cannot read " + path_ );
  }
  return static_cast< uint64_t >( status.st_size );
}

bool TableFile::isReplaced() const {
  struct stat own {};
  struct stat named {};
  return fstat( file_.number(), &own ) != 0 || stat( path_.c_str(), &named ) != 0 ||
         own.st_dev != named.st_dev || own.st_ino != named.st_ino;
}

Format::Current TableFile::currentIndex( uint64_t word ) const {
  const auto current = Format::Current::of( valueOf( word, "index" ) );
  if ( current.level >= levels_.size() ) {
    throw damageOf( "the word 'index' of the state" );
  }
  if ( current.level >= levelsSeen_ ) {
    const uint64_t least = levels_[ current.level ].end;
    if ( size() < least ) {
      cutShort( least );
    }
    levelsSeen_ = current.level + 1;
  }
  return current;
}

Moment TableFile::moment() const {
  // In the order opposite to the writer's, so that each covers the one before.
  const uint64_t births = load( state().births, "births" );
  const uint64_t slots = load( state().slots, "slots" );
  const uint64_t index = state().index.load( std::memory_order_acquire );
  if ( slots > ( index ? Format::capacityOf( currentIndex( index ).level ) : 0 ) ) {
    throw damageOf( "the word 'slots' of the state" );
  }
  return { Format::latestBirth( births ), static_cast< uint32_t >( slots ) };
}

void TableFile::allocate( uint64_t offset, uint64_t size ) {
  do {
    errno = posix_fallocate( file_.number(), static_cast< off_t >( offset ),
                             static_cast< off_t >( size ) );
  } while ( errno == EINTR );
  if ( errno != 0 ) {
    throw NoRoom( "no room for " + path_ + ": " + std::strerror( errno ) );
  }
}

void TableFile::makeLevel( uint32_t level ) {
  if ( level >= levels_.size() ) {
    throw NoRoom( path_ + " is full" );
  }
  const auto & made = levels_[ level ];
  if ( level == 0 ) {
    allocate( Format::stagingOffset, made.index - Format::stagingOffset );
  }
  makeIndex( level, 0 );
  allocate( made.slots, made.end - made.slots );
}

void TableFile::makeIndex( uint32_t level, uint32_t half ) {
  const uint64_t size = Format::Level::indexSize( level );
  allocate( levels_[ level ].index + half * size, size );
}

void TableFile::dropIndices( uint32_t level ) {
  // A file system that cannot keeps the memory.
  fallocate( file_.number(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
             static_cast< off_t >( levels_[ level ].index ),
             static_cast< off_t >( 2 * Format::Level::indexSize( level ) ) );
}

Corruption TableFile::damageOf( const String & what ) const {
  return Corruption( path_ + ": " + what + " is damaged" );
}

Corruption TableFile::damageOfSlot( uint32_t slot ) const {
  return damageOf( "the record in slot " + std::to_string( slot ) );
}

Corruption TableFile::damageOfIndex() const {
  return damageOf( "the index" );
}

void TableFile::cutShort( uint64_t least ) const {
  throw std::runtime_error( path_ + " is cut short: it has " + std::to_string( size() ) +
                            " bytes, expected at least " + std::to_string( least ) );
}

} // namespace Rook
