// What the writer of a table does whatever its records are: mounting, taking a table over,
// handing out slots, growth and the index. Table is what is used, and says what is raised and that
// one is for one thread. The mount directory is the process's, and set by one thread too.
//
// Invariants while a table is mounted:
//   1. `births_`, `slots_` and `current_` are what the state of the file says.
//   2. Each of the first `slots_` slots has a record, which stands in the index once, or is one of
//      the free slots; `size_` counts the former.
//   3. The index has an empty bucket, for `usedBuckets_`, the others, are three quarters at most.
//   4. The first `readySlots_` slots, at least `slots_`, have memory.
//   5. The free slots have capacity for all, so that removals need no memory.
#pragma once

#include "Rook/CorruptionHandler.h"

#include "Vex/Value.h"

#include <vector>

namespace Rook {

// The directory below which tables have their files; none, and none is made, keeps those mounted
// from then on in private memory.
Vex::String mountDirectory();
void mountDirectoryIs( const Vex::String & path );

VEX_ENUM( MountStatus, "Rook::MountStatus", unmounted, privateMemory, mounted )

class TableWriter : public CorruptionHandling {
public:
  TableWriter( const TableWriter & ) = delete;
  TableWriter & operator=( const TableWriter & ) = delete;

  // Makes the table `name` below the mount directory, or takes over the one that stands there with
  // its records. Raises std::runtime_error, and Corruption where records are damaged, and nothing
  // is mounted then.
  void mount( const Vex::String & name );
  // Leaves the file to readers and to the next writer. Nothing can be read or written any more.
  void unmount();
  MountStatus mountStatus() const { return status_; }

  // The writer's word, also to readers, that the table has settled.
  bool quiesced() const { return quiesced_; }
  void quiescedIs( bool quiesced );

  bool notificationsSuppressed() const { return suppressed_; }
  void notificationsSuppressedIs( bool suppressed );

  // Called after one of the above has changed.
  void statusHandlerIs( std::function< void() > handler ) { statusChanged_ = std::move( handler ); }

  size_t size() const { return size_; }
  // Of records for which there is memory.
  size_t capacity() const { return readySlots_; }

  // Makes room for one more record, so that the next insertion needs none. When there is none, be
  // it for want of memory, it returns false, `lack` says why, nothing has changed, and what needs
  // no room goes on: records that stand are replaced and removed. Damage met on the way ends the
  // writer, as in a write.
  [[nodiscard]] bool makeRoom() noexcept;
  // Why makeRoom returned false when it was last called; empty when it returned true.
  std::string_view lack() const { return lack_ ? lack_->what() : std::string_view(); }

  // --- For walks
  const TableFile & file() const { return *file_; }
  void handleDamagedSlot( uint32_t slot ) const { handleCorruption( file_->damageOfSlot( slot ) ); }

protected:
  // Enters the slot of a record in an index.
  using Enter = void ( * )( const Index & index, const uint64_t * record, uint32_t slot );

  // Records of an unshareable type stay in private memory.
  TableWriter( const Description & description, bool shareable, Enter enter );
  ~TableWriter() = default;

  bool writable() const { return file_.has_value(); }
  // Whether there is somebody to be told of a change.
  bool tells() const { return tells_; }
  void callbacksStandIs( bool callbacksStand ) {
    callbacksStand_ = callbacksStand;
    tells_ = callbacksStand_ && !suppressed_;
  }
  const Index & index() const { return index_; }
  uint32_t slots() const { return slots_; }

  // --- Changes; `words` is what the records have, a constant there.

  // Of a record that does not stand. Raises what ensureRoom does, and nothing has changed then.
  void insert( const auto & hash, size_t words, const uint64_t * record ) {
    ensureRoom();
    const uint32_t slot = takeSlot();
    const auto state = file_->readSlot( slot, words, scratch_.data() );
    if ( state.damaged ) [[unlikely]] {
      throw file_->damageOfSlot( slot );
    }
    const uint32_t bucket = index_.place( hash );
    usedBuckets_ += index_.isEmpty( bucket );
    index_.enter( bucket, hash, slot );
    file_->fillSlot( slot, words, state.version, Format::birthOf( ++births_ ), record );
    file_->state().births.store( Format::guarded( births_ ), std::memory_order_release );
    file_->countChange();
    ++size_;
  }
  void remove( uint32_t bucket, uint32_t slot, size_t words, uint64_t version ) {
    file_->emptySlot( slot, words, version );
    usedBuckets_ -= index_.leave( bucket );
    freeSlots_.push_back( slot ); // which has the capacity
    --size_;
  }

  // Damage met by a write or a removal ends the process.
  template< class Change > auto change( Change && change ) {
    try {
      return change();
    } catch ( const Corruption & corruption ) {
      fatal( corruption );
    }
  }

private:
  [[noreturn]] void fatal( const Corruption & corruption ) const noexcept;
  void takeOver();
  void forget();
  void makeIndex( uint32_t level, uint32_t half );
  void grow();

  bool full() const { return freeSlots_.empty() && slots_ == readySlots_; }
  // Room for one more record. Raises NoRoom, and std::runtime_error when the system cannot make it
  // for another reason. The index is made anew when tombstones fill it.
  void ensureRoom() {
    while ( !index_.stands() || full() || usedBuckets_ >= index_.buckets() / 4 * 3 )
      [[unlikely]] {
        grow();
      }
  }
  uint32_t takeSlot() {
    if ( freeSlots_.empty() ) {
      file_->state().slots.store( Format::guarded( slots_ + 1 ), std::memory_order_release );
      return slots_++;
    }
    const uint32_t slot = freeSlots_.back();
    freeSlots_.pop_back();
    return slot;
  }

  const Description description_;
  const bool shareable_;
  const Enter enter_;
  std::optional< TableFile > file_;
  MountStatus status_ = MountStatus::unmounted;
  bool quiesced_ = false;
  bool suppressed_ = false;
  bool callbacksStand_ = false;
  bool tells_ = false;
  std::function< void() > statusChanged_ = [] {};
  std::optional< std::runtime_error > lack_; // as it was raised: a copy needs no memory

  Index index_;
  Format::Current current_{};
  uint64_t births_ = 0;
  uint32_t slots_ = 0;
  uint32_t readySlots_ = 0;
  uint32_t size_ = 0;
  uint32_t usedBuckets_ = 0; // tombstones among them
  std::vector< uint32_t > freeSlots_;
  std::vector< uint64_t > scratch_; // of a record's words
};

} // namespace Rook
