// Where the entries of a journal are, by the hashes of their keys: in private memory, since a
// process that mounts the journal reads all of it anyway. 8 to 16 bytes an entry.
#pragma once

#include "Rook/Index.h"
#include "Vex/Assert.h"

#include <optional>
#include <vector>

namespace KezHelper {

class JournalIndex {
public:
  // What an index can lead to.
  static constexpr uint32_t mostPlaces = 1u << 28;

  // `isIt( place )` says whether the entry looked for is there.
  std::optional< uint32_t > find( uint64_t hash, auto && isIt ) const {
    if ( !index_.stands() ) {
      return std::nullopt;
    }
    uint32_t place = 0;
    const auto found = index_.find( hash, [ & ]( uint32_t each ) {
      place = each;
      return isIt( each );
    } );
    return found.found ? std::optional( place ) : std::nullopt;
  }

  // Room for one more entry, at any of the first `places`. Raises std::bad_alloc, and nothing has
  // changed then. `forEach( enter )` calls `enter( hash, place )` for every entry.
  void makeRoom( uint32_t places, auto && forEach ) {
    VEX_ASSERT( places <= mostPlaces );
    if ( index_.stands() && places <= index_.capacity() && usedBuckets_ < index_.buckets() / 4 * 3 )
        [[likely]] {
      return;
    }
    const uint32_t capacity = std::bit_ceil( std::max( places, leastPlaces ) );
    std::vector< Rook::Format::Bucket > buckets( 2 * size_t( capacity ) );
    buckets_.swap( buckets );
    index_ = Rook::Index( buckets_.data(), capacity );
    usedBuckets_ = 0;
    forEach( [ this ]( uint64_t hash, uint32_t place ) { enter( hash, place ); } );
  }
  void enter( uint64_t hash, uint32_t place ) {
    const uint32_t bucket = index_.place( hash );
    usedBuckets_ += index_.isEmpty( bucket );
    index_.enter( bucket, hash, place );
  }
  void leave( uint64_t hash, uint32_t place ) {
    const auto found = index_.find( hash, [ = ]( uint32_t each ) { return each == place; } );
    VEX_ASSERT( found.found );
    usedBuckets_ -= index_.leave( found.bucket );
  }
  void clear() {
    index_ = {};
    buckets_.clear();
    usedBuckets_ = 0;
  }

private:
  static constexpr uint32_t leastPlaces = 64;

  std::vector< Rook::Format::Bucket > buckets_;
  Rook::Index index_;
  uint32_t usedBuckets_ = 0; // tombstones among them
};

} // namespace KezHelper
