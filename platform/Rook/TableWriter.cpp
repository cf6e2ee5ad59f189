#include "Rook/TableWriter.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <new>

namespace Rook {

using Format::guarded;
using std::memory_order_release;
using Vex::String;

namespace {

String & directory() {
  static String directory;
  return directory;
}

} // namespace

String mountDirectory() {
  return directory();
}

void mountDirectoryIs( const String & path ) {
  directory() = path;
}

CorruptionHandling::CorruptionHandling()
    : handler_( []( const Corruption & corruption ) {
        std::fprintf( stderr, "Rook: %s\n", corruption.what() );
      } ) {}

TableWriter::TableWriter( const Description & description, bool shareable, Enter enter )
    : description_( description ), shareable_( shareable ), enter_( enter ),
      scratch_( Format::wordsOf( description.recordSize ) ) {}

void TableWriter::mount( const String & name ) {
  VEX_ASSERT( !writable() );
  if ( mountDirectory().empty() || !shareable_ ) {
    file_.emplace( name, description_ );
    status_ = MountStatus::privateMemory;
  } else {
    const auto path = std::filesystem::path( mountDirectory() + "/" + name );
    std::filesystem::create_directories( path.parent_path() );
    file_.emplace( TableFile::write( path, description_ ) );
    try {
      takeOver();
    } catch ( ... ) {
      forget();
      throw;
    }
    status_ = MountStatus::mounted;
  }
  statusChanged_();
}

void TableWriter::unmount() {
  forget();
  status_ = MountStatus::unmounted;
  statusChanged_();
}

void TableWriter::forget() {
  file_.reset();
  freeSlots_.clear();
  size_ = slots_ = readySlots_ = usedBuckets_ = 0;
  births_ = 0;
  index_ = Index();
  current_ = {};
  quiesced_ = false;
}

void TableWriter::quiescedIs( bool quiesced ) {
  VEX_ASSERT( writable() );
  if ( quiesced != quiesced_ ) {
    quiesced_ = quiesced;
    file_->state().quiesced.store( guarded( quiesced ), memory_order_release );
    statusChanged_();
  }
}

void TableWriter::notificationsSuppressedIs( bool suppressed ) {
  if ( suppressed != suppressed_ ) {
    suppressed_ = suppressed;
    callbacksStandIs( callbacksStand_ );
    statusChanged_();
  }
}

bool TableWriter::makeRoom() noexcept {
  VEX_ASSERT( writable() );
  lack_.reset();
  try {
    change( [ this ] { ensureRoom(); } );
  } catch ( const std::runtime_error & none ) {
    lack_ = none;
  }
  return !lack_;
}

// What the last writer was at when it ended: a replacement that it had committed is finished, an
// insertion that it had not is undone, and the index made anew, so that it need not matter what it
// says.
void TableWriter::takeOver() {
  auto & state = file_->state();
  const auto moment = file_->moment();
  births_ = Format::numberOf( moment.latestBirth );
  slots_ = readySlots_ = moment.slots;
  for ( uint32_t slot = slots_; slot-- > 0; ) {
    const auto found = file_->readSlot( slot, scratch_.size(), scratch_.data() );
    if ( found.damaged ) {
      throw file_->damageOfSlot( slot );
    }
    if ( found.present && found.birth <= moment.latestBirth ) {
      if ( found.staged ) {
        file_->settleSlot( slot, scratch_.size(), found.version, scratch_.data() );
      }
      ++size_;
      continue;
    }
    if ( found.present ) {
      file_->emptySlot( slot, scratch_.size(), found.version );
    }
    freeSlots_.push_back( slot );
  }
  if ( const uint64_t word = state.index.load( std::memory_order_relaxed ) ) {
    current_ = file_->currentIndex( word );
    freeSlots_.reserve( file_->capacity( current_.level ) );
    makeIndex( current_.level, 1 - current_.half );
  }
  state.quiesced.store( guarded( false ), memory_order_release );
  file_->countChange();
}

void TableWriter::grow() {
  try {
    if ( index_.stands() && !full() ) {
      makeIndex( current_.level, 1 - current_.half );
    } else if ( readySlots_ < index_.capacity() && index_.stands() ) {
      readySlots_ = file_->makeSlots( current_.level, readySlots_ );
    } else {
      const uint32_t level = index_.stands() ? current_.level + 1 : 0;
      freeSlots_.reserve( file_->capacity( level ) );
      const uint32_t ready = file_->makeLevel( level );
      makeIndex( level, 0 );
      readySlots_ = ready;
    }
  } catch ( const std::bad_alloc & ) {
    throw NoRoom( file_->noMemory() );
  }
}

// Of all that stands, and makes it the current one.
void TableWriter::makeIndex( uint32_t level, uint32_t half ) {
  file_->makeIndex( level, half );
  const Index made = file_->index( level, half );
  made.clear();
  usedBuckets_ = 0;
  for ( uint32_t slot = 0; slot < slots_; ++slot ) {
    const auto found = file_->readSlot( slot, scratch_.size(), scratch_.data() );
    if ( found.damaged ) {
      throw file_->damageOfSlot( slot );
    }
    if ( found.present ) {
      enter_( made, scratch_.data(), slot );
      ++usedBuckets_;
    }
  }
  current_ = { current_.generation + 1, level, half };
  index_ = made;
  file_->state().index.store( guarded( current_.value() ), memory_order_release );
}

void TableWriter::fatal( const Corruption & corruption ) const noexcept {
  handleCorruption( corruption );
  std::fprintf( stderr, "Rook: a table that is damaged cannot be written: %s\n",
                corruption.what() );
  std::abort();
}

} // namespace Rook
