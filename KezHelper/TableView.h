// A table as others are asked for it, made of what stands elsewhere: of a collection in whose
// members its keys are, one or many in each, and of a function that finds the data of a key.
#pragma once

#include "KezHelper/HwTable.h"

#include <functional>
#include <vector>

namespace KezHelper {

// `range()` is the collection, `keysOf( walk )` the keys in the member that a walk over it stands
// at, and `find( key )` the data, nothing for a key that is in no table.
template< class Key, class Data, class Range > class TableView final : public HwTable< Key, Data > {
  using Base = HwTable< Key, Data >;
  using Member = decltype( std::declval< Range >()().begin() );

public:
  using Entry = typename Base::Entry;
  using KeysOf = std::function< std::vector< Key >( const Member & member ) >;
  using Find = std::function< std::optional< Data >( const Key & key ) >;

  TableView( Range range, KeysOf keysOf, Find find )
      : range_( std::move( range ) ), keysOf_( std::move( keysOf ) ), find_( std::move( find ) ) {}

  std::optional< Data > find( const Key & key ) const override { return find_( key ); }
  std::unique_ptr< typename Base::Walk > walk() const override {
    return std::make_unique< Walk >( *this );
  }

private:
  class Walk final : public Base::Walk {
  public:
    explicit Walk( const TableView & table ) : table_( table ), member_( table.range_().begin() ) {}

    std::optional< Entry > next() override {
      while ( at_ < keys_.size() || step() ) {
        if ( at_ == keys_.size() ) {
          continue;
        }
        const auto & key = keys_[ at_++ ];
        if ( auto data = table_.find_( key ) ) {
          return Entry{ key, std::move( *data ) };
        }
      }
      return std::nullopt;
    }

  private:
    bool step() {
      if ( std::exchange( begun_, true ) ) {
        ++member_;
      }
      if ( !member_.valid() ) {
        return false;
      }
      keys_ = table_.keysOf_( member_ );
      at_ = 0;
      return true;
    }

    const TableView & table_;
    Member member_;
    bool begun_ = false;
    std::vector< Key > keys_; // of the member
    size_t at_ = 0;
  };

  const Range range_;
  const KeysOf keysOf_;
  const Find find_;
};

template< class Key, class Data, class Range >
std::unique_ptr< const HwTable< Key, Data > >
tableView( Range range, typename TableView< Key, Data, Range >::KeysOf keysOf,
           typename TableView< Key, Data, Range >::Find find ) {
  return std::make_unique< TableView< Key, Data, Range > >( std::move( range ), std::move( keysOf ),
                                                            std::move( find ) );
}
// Where each member is a key.
template< class Key, class Data, class Range >
std::unique_ptr< const HwTable< Key, Data > >
tableView( Range range, typename TableView< Key, Data, Range >::Find find ) {
  return tableView< Key, Data >(
      std::move( range ), []( const auto & member ) { return std::vector{ Key( member.key() ) }; },
      std::move( find ) );
}

} // namespace KezHelper
