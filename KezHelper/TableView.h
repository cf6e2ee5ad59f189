// One side of a table that is audited: a function that finds the data of a key, and where its keys
// are, in the members of a collection, one or many in each.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace KezHelper {

template< class Key, class Data > class TableView {
public:
  // A walk over the keys, a key or a member without any at a time, so that none takes long.
  class Walk {
  public:
    virtual ~Walk() = default;
    // False behind the last one. The key need not have any data.
    virtual bool next( std::optional< Key > & key ) = 0;
  };

  virtual ~TableView() = default;
  virtual std::optional< Data > find( const Key & key ) const = 0;
  virtual std::unique_ptr< Walk > walk() const = 0;
};

// A view on a collection, of which a member may have several entries.
template< class Key, class Data, class Range >
class TableViewOf final : public TableView< Key, Data > {
  using Base = TableView< Key, Data >;
  using Member = decltype( std::declval< Range >()().begin() );

public:
  using KeysOf = std::function< std::vector< Key >( const Member & member ) >;
  using Find = std::function< std::optional< Data >( const Key & key ) >;

  TableViewOf( Range range, KeysOf keysOf, Find find )
      : range_( std::move( range ) ), keysOf_( std::move( keysOf ) ), find_( std::move( find ) ) {}

  std::optional< Data > find( const Key & key ) const override { return find_( key ); }
  std::unique_ptr< typename Base::Walk > walk() const override {
    return std::make_unique< Walk >( *this );
  }

private:
  class Walk final : public Base::Walk {
  public:
    explicit Walk( const TableViewOf & view ) : view_( view ), member_( view.range_().begin() ) {}

    bool next( std::optional< Key > & key ) override {
      key.reset();
      if ( at_ == keys_.size() && !step() ) {
        return false;
      }
      if ( at_ < keys_.size() ) {
        key = keys_[ at_++ ];
      }
      return true;
    }

  private:
    bool step() {
      if ( std::exchange( begun_, true ) ) {
        ++member_;
      }
      at_ = 0;
      keys_ = member_.valid() ? view_.keysOf_( member_ ) : std::vector< Key >();
      return member_.valid();
    }

    const TableViewOf & view_;
    Member member_;
    bool begun_ = false;
    std::vector< Key > keys_; // of the member
    size_t at_ = 0;
  };

  const Range range_;
  const KeysOf keysOf_;
  const Find find_;
};

// `range()` is the collection, `keysOf( walk )` the keys in the member that a walk over it stands
// at, and `find( key )` the data, nothing for a key that is in no table.
template< class Key, class Data, class Range >
std::unique_ptr< const TableView< Key, Data > >
tableView( Range range, typename TableViewOf< Key, Data, Range >::KeysOf keysOf,
           typename TableViewOf< Key, Data, Range >::Find find ) {
  return std::make_unique< TableViewOf< Key, Data, Range > >(
      std::move( range ), std::move( keysOf ), std::move( find ) );
}
// Where each member is a key.
template< class Key, class Data, class Range >
std::unique_ptr< const TableView< Key, Data > >
tableView( Range range, typename TableViewOf< Key, Data, Range >::Find find ) {
  return tableView< Key, Data >(
      std::move( range ), []( const auto & member ) { return std::vector{ Key( member.key() ) }; },
      std::move( find ) );
}

} // namespace KezHelper
