#include "Ringlog/Ring.h"

#include "Ringlog/RingFile.h"
#include "Ringlog/Ticks.h"
#include "Ringlog/Trace.h"
#include "Vex/Clock.h"

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <pthread.h>
#include <utility>
#include <vector>

namespace Ringlog {

namespace {

using RingFormat::Block;
using RingFormat::Head;
using RingFormat::longestRecord;

constexpr uint64_t noMount = 0;
constexpr uint64_t notAttached = ~uint64_t( 0 );
std::atomic< uint64_t > currentMount{ noMount };

// Every ring of the process has its own range of numbers for call sites, so that one kept from
// an earlier ring is known by being too low.
std::atomic< uint32_t > siteNumbers{ RingFormat::firstSite };
constexpr size_t shortestEntry = 8; // in words

constexpr size_t clockRecordWords = RingFormat::recordWords + 1;
constexpr size_t mostRoom = longestRecord + clockRecordWords;

// A thread's place in its block, which it alone writes to.
struct Writer {
  uint64_t mount = notAttached;
  uint64_t * at = nullptr;
  uint64_t * end = nullptr;
  uint64_t * begin = nullptr;
  Block * block = nullptr;
  uint64_t sequence = 0;
  uint64_t clockTicks = 0; // when the clock is to be written next
  uint64_t ticksPerSecond = 0;
  uint32_t firstSite = 0;
  bool finished = false;
};
[[gnu::tls_model( "initial-exec" )]] constinit thread_local Writer writer;

uint64_t headWord( uint32_t site, size_t words, uint16_t flags ) {
  return std::bit_cast< uint64_t >( Head{ site, static_cast< uint16_t >( words ), flags } );
}

// What a mounted ring's threads share.
class Ring {
public:
  Ring( const Vex::String & path, size_t bytes )
      : file_( path, bytes ), tableWords_( file_.header().tableSize / sizeof( uint64_t ) ),
        firstSite_( siteNumbers.fetch_add( tableWords_ / shortestEntry ) ), nextSite_( firstSite_ ),
        owned_( file_.header().blockCount ) {}

  RingFile & file() { return file_; }
  uint32_t firstSite() const { return firstSite_; }

  // Points the writer to a block with room; false when other threads have them all.
  bool blockIs( Writer & writer );
  // Takes the writer's block back.
  void blockDel( Writer & writer );
  void recordLost() { file_.progress().lostRecords.fetch_add( 1, std::memory_order_relaxed ); }

  // The number of a call site with a handle, entered when it is new; none when the table is full.
  std::optional< uint32_t > siteIs( const Handle & handle, const CallSite & site,
                                    std::span< const PieceForm > forms );

  // In a child of fork, whose parent goes on writing.
  void abandon() { abandoned_ = true; }

private:
  size_t blockWords() const { return file_.header().blockSize / sizeof( uint64_t ); }
  std::optional< size_t > takeBlock();
  void begin( size_t index );

  RingFile file_;
  const uint32_t tableWords_;
  const uint32_t firstSite_;
  uint32_t nextSite_;
  std::mutex mutex_;
  std::vector< bool > owned_;
  std::vector< size_t > partial_; // blocks without an owner that have room
  size_t next_ = 0;
  uint64_t sequences_ = 0;
  std::map< std::pair< const CallSite *, Vex::String >, uint32_t > sites_;
  std::vector< uint64_t > entry_;
  bool abandoned_ = false;
};

std::optional< size_t > Ring::takeBlock() {
  if ( !partial_.empty() ) {
    const size_t index = partial_.back();
    partial_.pop_back();
    return index;
  }
  for ( size_t tried = 0; tried < owned_.size(); ++tried ) {
    const size_t index = std::exchange( next_, ( next_ + 1 ) % owned_.size() );
    if ( !owned_[ index ] ) {
      begin( index );
      return index;
    }
  }
  return {};
}

void Ring::begin( size_t index ) {
  auto & block = file_.block( index );
  // Whoever reads what now is overwritten sees the sequence change.
  block.sequence.exchange( 0, std::memory_order_acq_rel );
  block.words.store( 0, std::memory_order_relaxed );
  block.sequence.store( ++sequences_, std::memory_order_release );
}

bool Ring::blockIs( Writer & writer ) {
  const std::lock_guard lock( mutex_ );
  const auto index = takeBlock();
  if ( !index ) {
    return false;
  }
  owned_[ *index ] = true;
  writer.block = &file_.block( *index );
  writer.begin = reinterpret_cast< uint64_t * >( writer.block ) + RingFormat::blockHeadWords;
  writer.at = writer.begin + writer.block->words.load( std::memory_order_relaxed );
  writer.end = writer.begin + blockWords() - RingFormat::blockHeadWords;
  writer.sequence = writer.block->sequence.load( std::memory_order_relaxed );
  writer.ticksPerSecond = static_cast< uint64_t >( file_.header().ticksPerSecond );
  writer.clockTicks = 0;
  return true;
}

void Ring::blockDel( Writer & writer ) {
  if ( !writer.block || abandoned_ ) {
    return;
  }
  const std::lock_guard lock( mutex_ );
  const auto offset = reinterpret_cast< std::byte * >( writer.block ) -
                      reinterpret_cast< std::byte * >( &file_.block( 0 ) );
  const auto index = static_cast< size_t >( offset ) / file_.header().blockSize;
  owned_[ index ] = false;
  if ( static_cast< size_t >( writer.end - writer.at ) >= mostRoom ) {
    partial_.push_back( index );
  }
}

void putEntryText( std::vector< uint64_t > & out, std::string_view text ) {
  uint64_t words[ textWords( RingFormat::longestText ) ];
  out.insert( out.end(), words, putText( words, text ) );
}

std::optional< uint32_t > Ring::siteIs( const Handle & handle, const CallSite & site,
                                        std::span< const PieceForm > forms ) {
  const std::lock_guard lock( mutex_ );
  auto key = std::pair( &site, Vex::String( handle.name() ) );
  if ( const auto found = sites_.find( key ); found != sites_.end() ) {
    return found->second;
  }
  entry_.assign( RingFormat::entryWords, 0 );
  entry_.push_back( static_cast< uint64_t >( site.level ) );
  entry_.push_back( static_cast< uint64_t >( site.line ) );
  putEntryText( entry_, handle.name() );
  putEntryText( entry_, site.file );
  for ( const auto & form : forms ) {
    entry_.push_back( static_cast< uint64_t >( form.kind ) );
    if ( form.kind == RingFormat::PieceKind::literal ) {
      putEntryText( entry_, form.literal );
    }
  }
  auto & committed = file_.progress().tableWords;
  const uint64_t used = committed.load( std::memory_order_relaxed );
  if ( entry_.size() > std::min< size_t >( tableWords_ - used, UINT16_MAX ) ) {
    return {};
  }
  const uint32_t number = nextSite_++;
  entry_[ 0 ] = headWord( number, entry_.size(), 0 );
  entry_[ 1 ] = RingFormat::checkOfItem( RingFormat::tableSeed, entry_.data(), entry_.size() );
  std::copy( entry_.begin(), entry_.end(), file_.table() + used );
  committed.store( used + entry_.size(), std::memory_order_release );
  sites_.emplace( std::move( key ), number );
  return number;
}

// Keeps a thread's ring mapped, and gives its block back.
struct Attachment {
  ~Attachment() {
    detach();
    writer.finished = true;
  }

  void detach() {
    if ( ring ) {
      ring->blockDel( writer );
      writer = {};
      ring.reset();
    }
  }

  std::shared_ptr< Ring > ring;
};
thread_local Attachment attachment;

class Mount {
public:
  static Mount & instance() {
    static Mount mount;
    return mount;
  }

  void ringIs( const Vex::String & path, size_t bytes ) {
    const std::lock_guard lock( mutex_ );
    checkReplaceable( path, lock_ );
    ring_ = std::make_shared< Ring >( path, bytes );
    path_ = path;
    lock_ = ring_->file().takeLock();
    currentMount.store( ++mounts_, std::memory_order_release );
    ringLevelsAre( true );
  }

  void ringDel() {
    const std::lock_guard lock( mutex_ );
    ringLevelsAre( false );
    forget();
  }

  Vex::String ringPath() {
    const std::lock_guard lock( mutex_ );
    return ring_ ? path_ : Vex::String();
  }

  std::shared_ptr< Ring > ring( uint64_t & mount ) {
    const std::lock_guard lock( mutex_ );
    mount = mounts_;
    return ring_;
  }

private:
  Mount() {
    pthread_atfork( [] { instance().mutex_.lock(); }, [] { instance().mutex_.unlock(); },
                    [] { instance().forked(); } );
  }
  ~Mount() { currentMount.store( noMount ); }

  void forked() {
    if ( ring_ ) {
      ring_->abandon();
      forget();
    }
    mutex_.unlock();
  }

  void forget() {
    currentMount.store( noMount, std::memory_order_release );
    ring_.reset();
    lock_ = Descriptor();
  }

  std::mutex mutex_;
  Vex::String path_; // of its file
  std::shared_ptr< Ring > ring_;
  Descriptor lock_;
  uint64_t mounts_ = noMount;
};

[[gnu::noinline, gnu::cold]] bool attach() {
  if ( writer.finished ) {
    return false;
  }
  attachment.detach();
  if ( currentMount.load( std::memory_order_acquire ) == noMount ) {
    return false;
  }
  uint64_t mount = 0;
  auto ring = Mount::instance().ring( mount );
  if ( !ring ) {
    return false;
  }
  writer.firstSite = ring->firstSite();
  writer.mount = mount;
  attachment.ring = std::move( ring );
  return true;
}

// Whether the writer has the words, in its block or in a new one.
[[gnu::noinline, gnu::cold]] bool makeRoom( size_t words ) {
  auto & ring = *attachment.ring;
  do {
    ring.blockDel( writer );
    writer.block = nullptr;
    writer.at = writer.end = nullptr;
    if ( !ring.blockIs( writer ) ) {
      ring.recordLost();
      return false;
    }
  } while ( static_cast< size_t >( writer.end - writer.at ) < words );
  return true;
}

inline void write( Writer & w, uint32_t site, bool hasSeconds, double seconds,
                   std::span< const uint64_t > values, uint64_t now ) {
  uint64_t * const out = w.at;
  const size_t size = RingFormat::recordWords + hasSeconds + values.size();
  const uint64_t head = headWord( site, size, hasSeconds ? RingFormat::hasSeconds : 0 );
  out[ 0 ] = head;
  out[ 2 ] = now;
  uint64_t check = RingFormat::checkNext( RingFormat::checkNext( w.sequence, head ), now );
  uint64_t * to = out + RingFormat::recordWords;
  if ( hasSeconds ) {
    *to = std::bit_cast< uint64_t >( seconds );
    check = RingFormat::checkNext( check, *to++ );
  }
  for ( const uint64_t word : values ) {
    *to++ = word;
    check = RingFormat::checkNext( check, word );
  }
  out[ 1 ] = check;
  w.at = out + size;
  w.block->words.store( static_cast< uint64_t >( w.at - w.begin ), std::memory_order_release );
}

[[gnu::noinline, gnu::cold]] void writeClock() {
  const auto point = clockPoint();
  const uint64_t word = std::bit_cast< uint64_t >( point.seconds );
  writer.clockTicks = point.ticks + writer.ticksPerSecond;
  write( writer, RingFormat::clockSite, false, 0, { &word, 1 }, point.ticks );
}

inline void writeSite( Writer & w, uint32_t site, std::span< const uint64_t > values ) {
  const bool isVirtual = Vex::Clock::isVirtual();
  const size_t words = RingFormat::recordWords + isVirtual + values.size() + clockRecordWords;
  if ( static_cast< size_t >( w.end - w.at ) < words && !makeRoom( words ) ) [[unlikely]] {
    return;
  }
  const uint64_t now = ticks();
  if ( now >= w.clockTicks ) [[unlikely]] {
    writeClock();
  }
  write( w, site, isVirtual, isVirtual ? Vex::Clock::now() : 0, values, now );
}

// Known only by its text, as a record of a site that needs no entry.
void writeAsText( const Handle & handle, const CallSite & site, std::string_view text ) {
  uint64_t words[ 3 * textWords( RingFormat::longestText ) + 2 ];
  uint64_t * end = putText( words, handle.name().substr( 0, 128 ) );
  *end++ = static_cast< uint64_t >( site.level );
  end = putText( end, std::string_view( site.file ).substr( 0, 512 ) );
  *end++ = static_cast< uint64_t >( site.line );
  end = putText( end, text );
  writeSite( writer, RingFormat::textSite, { words, end } );
}

} // namespace

bool writeRecord( const Handle & handle, const CallSite & site,
                  std::span< const uint64_t > values ) noexcept {
  // Before the mount is looked at: a number of a later ring than the thread's comes with a later
  // mount.
  const uint64_t inRing = site.inRing.load( std::memory_order_acquire );
  Writer & w = writer;
  if ( w.mount != currentMount.load( std::memory_order_acquire ) && !attach() ) [[unlikely]] {
    return true;
  }
  const auto number = static_cast< uint32_t >( inRing );
  if ( inRing >> 32 != handle.number() || number < w.firstSite ||
       values.size() > longestRecord - RingFormat::recordWords - 1 ) [[unlikely]] {
    return false;
  }
  writeSite( w, number, values );
  return true;
}

void writeFirstRecord( const Handle & handle, CallSite & site, std::span< const PieceForm > forms,
                       std::span< const uint64_t > values ) noexcept {
  if ( values.size() <= longestRecord - RingFormat::recordWords - 1 ) {
    if ( const auto number = attachment.ring->siteIs( handle, site, forms ) ) {
      site.inRing.store( uint64_t( handle.number() ) << 32 | *number, std::memory_order_release );
      writeSite( writer, *number, values );
      return;
    }
  }
  Vex::TextBuffer text;
  appendPieces( text, forms, values );
  writeAsText( handle, site, text.view() );
}

void ringIs( const Vex::String & path, size_t bytes ) {
  Mount::instance().ringIs( path, bytes );
}

void ringDel() {
  Mount::instance().ringDel();
}

Vex::String ringPath() {
  return Mount::instance().ringPath();
}

} // namespace Ringlog
