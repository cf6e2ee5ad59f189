// Walks of a table, by its writer or by a reader: in no order to be relied on, exactly the
// records that stood when the walk began and still stand when it reaches them. Every one that
// stands throughout is visited, none that was inserted meanwhile. A damaged record is handed to
// the table's corruption handler and stepped over; damage of the table as a whole is raised when
// the walk begins.
#pragma once

#include "Rook/Record.h"

#include <algorithm>

namespace Rook {

template< auto keyField, class Table > class Walk {
  using Type = RecordOf< keyField >;
  using Record = typename Type::Record;
  using Key = typename Type::Key;

public:
  bool valid() const { return at_ < moment_.slots; }
  bool operator!=( std::nullptr_t ) const { return valid(); }
  Walk & operator++() {
    at_ = next( std::max( at_ + 1, sought_ ), record_ );
    return *this;
  }
  const Record & operator*() const { return record_; }
  Key key() const { return Type::key( record_ ); }
  // Whether a record is left after the one that the walk stands on, as things stand now.
  bool more() const {
    sought_ = next( std::max( at_ + 1, sought_ ), following_ );
    return sought_ < moment_.slots;
  }
  Key nextKey() const {
    more();
    return Type::key( following_ );
  }

private:
  template< auto, class > friend class Range;
  Walk( const Table & table, uint32_t from )
      : table_( table ), moment_( table.file().moment() ), at_( next( from, record_ ) ) {}

  uint32_t next( uint32_t from, Record & record ) const {
    typename Type::Words words;
    SlotState state;
    if ( from < moment_.slots && table_.file().copySlot( from, Type::words, words.data(), state ) &&
         state.birth <= moment_.latestBirth ) [[likely]] {
      record = Type::record( words );
      return from;
    }
    const auto [ slot, found ] = search( table_, moment_, from );
    record = found;
    return slot;
  }
  // Slot by slot, from one whose record could not be copied at once.
  [[gnu::noinline]] static std::pair< uint32_t, Record > search( const Table & table, Moment moment,
                                                                 uint32_t from ) {
    for ( uint32_t slot = from; slot < moment.slots; ++slot ) {
      typename Type::Words words;
      const auto state = table.file().readSlot( slot, Type::words, words.data() );
      if ( state.damaged ) {
        table.handleDamagedSlot( slot );
      } else if ( state.present && state.birth <= moment.latestBirth ) {
        return { slot, Type::record( words ) };
      }
    }
    return { moment.slots, Record() };
  }

  const Table & table_;
  const Moment moment_;
  Record record_{};
  mutable Record following_{};
  mutable uint32_t sought_ = 0; // no record before it is left, after the present one
  uint32_t at_;
};

// For range-based for; from the first record or from that of a given key.
template< auto keyField, class Table > class Range {
  using Key = typename RecordOf< keyField >::Key;

public:
  explicit Range( const Table & table ) : table_( table ) {}

  Walk< keyField, Table > begin() const { return { table_, from_ }; }
  std::nullptr_t end() const { return nullptr; }
  // A key that does not stand, or none, is the first.
  Range from( const std::optional< Key > & key ) const {
    Range range( table_ );
    range.from_ = key ? table_.slotOf( *key ).value_or( 0 ) : 0;
    return range;
  }

private:
  const Table & table_;
  uint32_t from_ = 0;
};

} // namespace Rook
