#include "Rook/TableFile.h"

#include "Vex/OwnFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Rook {

using Format::Header;
using Vex::Descriptor;
using Vex::String;
using Vex::throwSystemError;

static uint64_t systemPageSize() {
  return static_cast< uint64_t >( sysconf( _SC_PAGESIZE ) );
}

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
    : path_( path ), noMemory_( "no memory to make " + path + " larger" ),
      file_( std::move( file ) ) {}

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
  TableFile table( path, Vex::openOrMakeOwnFile( path ) );
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

void TableFile::makeHeader() {
  // In one write, so that a writer killed here leaves no header or a whole one.
  std::byte head[ Format::headSize ] = {};
  Header header{
    Format::magic, Format::layoutVersion, description_.recordSize, systemPageSize(), 0, {}
  };
  VEX_ASSERT( description_.fields.size() < sizeof( header.fields ) );
  description_.fields.copy( header.fields, sizeof( header.fields ) );
  header.check = checkOf( header );
  std::memcpy( head, &header, sizeof( header ) );
  if ( pwrite( file_.number(), head, sizeof( head ), 0 ) != sizeof( head ) ) {
    throwSystemError( "cannot write " + path_ );
  }
  layout_ = Format::Layout( header.recordSize, header.pageSize );
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
  if ( size() < Format::headSize ) {
    cutShort( Format::headSize );
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
  if ( !Format::canMap( header.pageSize, systemPageSize() ) ) {
    found( "is laid out for pages of " + std::to_string( header.pageSize ) +
           " bytes, and cannot be mapped where they have " + std::to_string( systemPageSize() ) );
  }
  layout_ = Format::Layout( header.recordSize, header.pageSize );
}

void TableFile::map( int protection ) {
  protection_ = protection;
  const Mapping::Part head[] = { { 0, layout_.headEnd() } };
  head_ = mapped( head );
}

// The slots' old addresses are given up when all is in place.
void TableFile::mapLevels( uint32_t level ) const {
  std::vector< Mapping::Part > slots;
  for ( uint32_t at = 0; at <= level; ++at ) {
    const auto & part = layout_.level( at );
    slots.push_back( { part.slots, part.end - part.slots } );
    if ( at == indices_.size() ) {
      const Mapping::Part index[] = { { part.index, part.slots - part.index } };
      indices_.push_back( mapped( index ) );
    }
  }
  slots_ = mapped( slots );
  levelsMapped_ = level + 1;
}

Mapping TableFile::mapped( std::span< const Mapping::Part > parts ) const {
  try {
    return { file_.number(), protection_, parts };
  } catch ( const std::system_error & error ) {
    const auto what = "cannot map " + path_ + ": " + error.code().message();
    if ( error.code() != std::errc::not_enough_memory ) {
      throw std::runtime_error( what );
    }
    throw NoRoom( what );
  }
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
  if ( current.level >= layout_.levels() ) {
    throw damageOf( "the word 'index' of the state" );
  }
  if ( current.level >= levelsMapped_ ) {
    const uint64_t least = layout_.level( current.level ).end;
    if ( size() < least ) {
      cutShort( least );
    }
    mapLevels( current.level );
  }
  return current;
}

Moment TableFile::moment() const {
  // In the order opposite to the writer's, so that each covers the one before.
  const uint64_t births = load( state().births, "births" );
  const uint64_t slots = load( state().slots, "slots" );
  const uint64_t index = state().index.load( std::memory_order_acquire );
  if ( slots > ( index ? layout_.capacity( currentIndex( index ).level ) : 0 ) ) {
    throw damageOf( "the word 'slots' of the state" );
  }
  return { Format::latestBirth( births ), static_cast< uint32_t >( slots ) };
}

void TableFile::lengthIs( uint64_t size ) {
  if ( ftruncate( file_.number(), static_cast< off_t >( size ) ) != 0 ) {
    throw NoRoom( "no room for " + path_ + ": " + std::strerror( errno ) );
  }
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

uint32_t TableFile::capacity( uint32_t level ) const {
  if ( level >= layout_.levels() ) {
    throw NoRoom( path_ + " is full" );
  }
  return layout_.capacity( level );
}

uint32_t TableFile::makeLevel( uint32_t level ) {
  const auto & made = layout_.level( level );
  const uint64_t before = size();
  try {
    lengthIs( std::max( before, made.end ) );
    if ( level == 0 ) {
      allocate( Format::stagingOffset, made.index - Format::stagingOffset );
    }
    makeIndex( level, 0 );
    const uint32_t slots = makeSlots( level, level ? layout_.capacity( level - 1 ) : 0 );
    mapLevels( level );
    return slots;
  } catch ( ... ) {
    // Where this fails the file keeps the memory.
    (void)!ftruncate( file_.number(), static_cast< off_t >( before ) );
    throw;
  }
}

// An eighth of the level at a time, so that a table that has just grown has no more than it needs.
uint32_t TableFile::makeSlots( uint32_t level, uint32_t from ) {
  const uint32_t first = level ? layout_.capacity( level - 1 ) : 0;
  const uint32_t end = layout_.capacity( level );
  const uint32_t to = level ? std::min( end, from + ( end - first ) / 8 ) : end;
  const uint64_t slotSize = Format::slotSizeOf( Format::wordsOf( description_.recordSize ) );
  allocate( layout_.level( level ).slots + ( from - first ) * slotSize, ( to - from ) * slotSize );
  return to;
}

void TableFile::makeIndex( uint32_t level, uint32_t half ) {
  const uint64_t size = layout_.indexSize( level );
  allocate( layout_.level( level ).index + half * size, size );
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
