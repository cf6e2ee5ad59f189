#include "Ringlog/RingReader.h"

#include "Ringlog/Trace.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace Ringlog {

using RingFormat::Head;
using RingFormat::Header;
using RingFormat::PieceKind;
using Vex::throwSystemError;

namespace {

Head headOf( uint64_t word ) {
  return std::bit_cast< Head >( word );
}

// As many bytes as there are.
size_t readAt( int file, void * out, size_t size, uint64_t offset ) {
  size_t done = 0;
  while ( done < size ) {
    const auto count = pread( file, static_cast< std::byte * >( out ) + done, size - done,
                              static_cast< off_t >( offset + done ) );
    if ( count < 0 && errno == EINTR ) {
      continue;
    }
    if ( count <= 0 ) {
      break;
    }
    done += static_cast< size_t >( count );
  }
  return done;
}

bool isLevel( uint64_t word ) {
  return word <= highestLevel;
}

bool isWhole( const Header & header ) {
  return header.check == RingFormat::checkOfHeader( header );
}

} // namespace

RingReader::RingReader( const Vex::String & path )
    : path_( path ), file_( open( path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK ) ) {
  if ( file_.number() < 0 ) {
    throwSystemError( "cannot open " + path );
  }
  struct stat status {};
  if ( fstat( file_.number(), &status ) != 0 || !S_ISREG( status.st_mode ) ) {
    throw std::runtime_error( path + " is no file" );
  }
  readHeader();
  const auto size = static_cast< uint64_t >( status.st_size );
  if ( size < header_.fileSize ) {
    problem( "the file is cut short: " + std::to_string( size ) + " bytes of " +
             std::to_string( header_.fileSize ) );
  }
  blocks_.resize( header_.blockCount );
  clock_[ header_.ticks ] = header_.seconds;
}

void RingReader::readHeader() {
  bool isRing = false;
  for ( const size_t offset : RingFormat::headerCopies ) {
    Header header{};
    readAt( file_.number(), &header, sizeof( header ), offset );
    const bool whole = isWhole( header );
    if ( whole && header.magic == RingFormat::magic ) {
      if ( header.layoutVersion != RingFormat::layoutVersion ) {
        throw std::runtime_error(
            path_ + " is a ring of layout " + std::to_string( header.layoutVersion ) +
            "; this reader knows layout " + std::to_string( RingFormat::layoutVersion ) );
      }
      header_ = header;
      return;
    }
    isRing = isRing || header.magic == RingFormat::magic;
    problem( "the header is damaged at byte " + std::to_string( offset ) );
  }
  throw std::runtime_error(
      path_ + ( isRing ? " is a ring whose header is damaged in both copies" : " is no ring" ) );
}

std::vector< uint64_t > RingReader::readWords( uint64_t offset, size_t count ) const {
  std::vector< uint64_t > words( count );
  words.resize( readAt( file_.number(), words.data(), count * sizeof( uint64_t ), offset ) /
                sizeof( uint64_t ) );
  return words;
}

uint64_t RingReader::lostRecords() const {
  const auto words =
      readWords( RingFormat::progressOffset + offsetof( RingFormat::Progress, lostRecords ), 1 );
  return words.empty() ? 0 : words[ 0 ];
}

bool RingReader::isReplaced() const {
  struct stat ours {};
  struct stat present {};
  return fstat( file_.number(), &ours ) == 0 && stat( path_.c_str(), &present ) == 0 &&
         ( ours.st_dev != present.st_dev || ours.st_ino != present.st_ino );
}

void RingReader::problem( const Vex::String & text ) {
  if ( known_.insert( text ).second ) {
    problems_.push_back( text );
  }
}

// Items that are not whole are stepped over word by word, since their size may be what is wrong.
template< class Give > void RingReader::walk( const Part & part, Give && give ) {
  size_t damaged = 0;
  for ( size_t at = 0; at < part.words.size(); ) {
    const auto rest = part.words.subspan( at );
    const size_t size = headOf( rest[ 0 ] ).words;
    if ( size > RingFormat::entryWords && size <= rest.size() &&
         RingFormat::checkOfItem( part.seed, rest.data(), size ) == rest[ 1 ] &&
         give( rest.first( size ) ) ) {
      at += size;
    } else {
      ++at;
      ++damaged;
    }
  }
  if ( damaged != 0 ) {
    problem( part.name + ": " + std::to_string( damaged * sizeof( uint64_t ) ) +
             " bytes are damaged" );
  }
}

void RingReader::readTable() {
  const auto progress =
      readWords( RingFormat::progressOffset + offsetof( RingFormat::Progress, tableWords ), 1 );
  const size_t capacity = header_.tableSize / sizeof( uint64_t );
  size_t words = progress.empty() ? 0 : progress[ 0 ];
  if ( words > capacity ) {
    problem( "the size of the call-site table is damaged" );
    words = capacity;
  }
  if ( words <= tableWords_ ) {
    return;
  }
  const auto table =
      readWords( RingFormat::headerSize + tableWords_ * sizeof( uint64_t ), words - tableWords_ );
  tableWords_ = words;
  walk( { "the call-site table", RingFormat::tableSeed, table },
        [ & ]( std::span< const uint64_t > item ) { return siteIs( item ); } );
}

bool RingReader::siteIs( std::span< const uint64_t > item ) {
  Site site{};
  site.words.assign( item.begin(), item.end() );
  std::span< const uint64_t > words( site.words );
  words = words.subspan( RingFormat::entryWords );
  std::string_view handle;
  std::string_view file;
  bool cut = false;
  if ( words.size() < 2 || !isLevel( words[ 0 ] ) ) {
    return false;
  }
  site.level = static_cast< int >( words[ 0 ] );
  site.line = static_cast< int >( words[ 1 ] );
  words = words.subspan( 2 );
  if ( !takeText( words, handle, cut ) || !takeText( words, file, cut ) ) {
    return false;
  }
  site.handle = handle;
  site.file = file;
  while ( !words.empty() ) {
    PieceForm form{ static_cast< PieceKind >( words[ 0 ] ), {} };
    words = words.subspan( 1 );
    if ( form.kind > PieceKind::text ||
         ( form.kind == PieceKind::literal && !takeText( words, form.literal, cut ) ) ) {
      return false;
    }
    site.forms.push_back( form );
  }
  sites_[ headOf( item[ 0 ] ).site ] = std::move( site );
  return true;
}

void RingReader::readBlock( size_t index, std::vector< std::vector< uint64_t > > & buffers,
                            std::vector< Found > & found ) {
  const uint64_t offset = RingFormat::headerSize + header_.tableSize + index * header_.blockSize;
  const size_t capacity = header_.blockSize / sizeof( uint64_t ) - RingFormat::blockHeadWords;
  const auto name = "block " + std::to_string( index );
  auto & progress = blocks_[ index ];
  const auto head = readWords( offset, RingFormat::blockHeadWords );
  if ( head.size() < RingFormat::blockHeadWords || head[ 0 ] == 0 ) {
    return;
  }
  if ( head[ 0 ] != progress.sequence ) {
    progress = { head[ 0 ], 0 };
  }
  if ( head[ 1 ] > capacity ) {
    problem( name + ": its size is damaged" );
  }
  const size_t end = std::min( head[ 1 ], capacity );
  if ( end <= progress.words ) {
    return;
  }
  auto words =
      readWords( offset + ( RingFormat::blockHeadWords + progress.words ) * sizeof( uint64_t ),
                 end - progress.words );
  // What was begun anew meanwhile may be partly overwritten.
  const auto headAfter = readWords( offset, 1 );
  if ( headAfter.empty() || headAfter[ 0 ] != head[ 0 ] ) {
    return;
  }
  progress.words = end;
  buffers.push_back( std::move( words ) );
  walk( { name, head[ 0 ], buffers.back() }, [ & ]( std::span< const uint64_t > item ) {
    if ( item.size() < RingFormat::recordWords + ( headOf( item[ 0 ] ).flags != 0 ) ) {
      return false;
    }
    if ( headOf( item[ 0 ] ).site == RingFormat::clockSite ) {
      clock_[ item[ 2 ] ] = std::bit_cast< double >( item.back() );
    } else {
      found.push_back( { item[ 2 ], head[ 0 ], item.data() } );
    }
    return true;
  } );
}

std::vector< size_t > RingReader::unreadBlocks() const {
  std::vector< std::pair< uint64_t, size_t > > unread; // sequence and index
  for ( size_t index = 0; index < blocks_.size(); ++index ) {
    const auto head =
        readWords( RingFormat::headerSize + header_.tableSize + index * header_.blockSize,
                   RingFormat::blockHeadWords );
    const auto & progress = blocks_[ index ];
    if ( head.size() == RingFormat::blockHeadWords && head[ 0 ] != 0 &&
         ( head[ 0 ] != progress.sequence || head[ 1 ] > progress.words ) ) {
      unread.emplace_back( head[ 0 ], index );
    }
  }
  std::ranges::sort( unread );
  std::vector< size_t > indices;
  indices.reserve( unread.size() );
  for ( const auto & each : unread ) {
    indices.push_back( each.second );
  }
  return indices;
}

void RingReader::read( const std::function< void( const RingRecord & ) > & give ) {
  readBlocks( unreadBlocks(), give );
}

bool RingReader::readPart( size_t blocks,
                           const std::function< void( const RingRecord & ) > & give ) {
  const auto unread = unreadBlocks();
  const auto part = std::min( blocks, unread.size() );
  readBlocks( { unread.data(), part }, give );
  return part < unread.size();
}

void RingReader::readBlocks( std::span< const size_t > blocks,
                             const std::function< void( const RingRecord & ) > & give ) {
  std::vector< std::vector< uint64_t > > buffers;
  std::vector< Found > found;
  for ( const auto index : blocks ) {
    readBlock( index, buffers, found );
  }
  // After the records, so that it has the call sites of them all.
  readTable();
  std::ranges::stable_sort( found, []( const Found & one, const Found & other ) {
    return std::pair( one.ticks, one.sequence ) < std::pair( other.ticks, other.sequence );
  } );
  for ( const auto & each : found ) {
    this->give( each.item, give );
  }
  // What comes later is of later times.
  while ( clock_.size() > 2 ) {
    clock_.erase( clock_.begin() );
  }
}

double RingReader::secondsAt( uint64_t ticks ) const {
  const auto after = clock_.upper_bound( ticks );
  const auto before = after == clock_.begin() ? after : std::prev( after );
  const auto passed = static_cast< double >( static_cast< int64_t >( ticks - before->first ) );
  if ( after == before || after == clock_.end() ) {
    return before->second + passed / header_.ticksPerSecond;
  }
  return before->second + passed * ( after->second - before->second ) /
                              static_cast< double >( after->first - before->first );
}

void RingReader::give( const uint64_t * item,
                       const std::function< void( const RingRecord & ) > & give ) {
  const auto head = headOf( item[ 0 ] );
  std::span< const uint64_t > values( item, head.words );
  values = values.subspan( RingFormat::recordWords );
  RingRecord record{};
  record.isVirtual = ( head.flags & RingFormat::hasSeconds ) != 0;
  if ( record.isVirtual ) {
    record.time = std::bit_cast< double >( values[ 0 ] );
    values = values.subspan( 1 );
  } else {
    record.time = secondsAt( item[ 2 ] );
  }
  if ( head.site == RingFormat::textSite ) {
    giveText( record, values, give );
    return;
  }
  const auto found = sites_.find( head.site );
  if ( found == sites_.end() ) {
    problem( "records of call site " + std::to_string( head.site ) +
             ", which the table does not have, are left out" );
    return;
  }
  const auto & site = found->second;
  Vex::TextBuffer text;
  if ( !appendPieces( text, site.forms, values ) ) {
    problem( "records of call site " + std::to_string( head.site ) +
             " do not have the values that the table says" );
  }
  record.handle = site.handle;
  record.level = site.level;
  record.text = text.view();
  record.file = site.file;
  record.line = site.line;
  give( record );
}

void RingReader::giveText( RingRecord & record, std::span< const uint64_t > values,
                           const std::function< void( const RingRecord & ) > & give ) {
  const auto take = [ & ]() -> uint64_t {
    const uint64_t word = values.empty() ? UINT64_MAX : values[ 0 ];
    values = values.subspan( std::min< size_t >( values.size(), 1 ) );
    return word;
  };
  bool cut = false;
  Vex::TextBuffer text;
  std::string_view line;
  const bool hasHandle = takeText( values, record.handle, cut );
  const uint64_t level = take();
  const bool hasFile = takeText( values, record.file, cut );
  record.level = static_cast< int >( level );
  record.line = static_cast< int >( take() );
  if ( hasHandle && isLevel( level ) && hasFile && takeText( values, line, cut ) ) {
    text.append( line );
    text.append( cut ? "..." : "" );
    record.text = text.view();
    give( record );
  } else {
    problem( "a record of text is not of its form" );
  }
}

} // namespace Ringlog
