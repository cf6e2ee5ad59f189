// A table of the simulated switch as its helpers answer for it.
#pragma once

#include "KezHelper/HwTable.h"
#include "Vex/Collection.h"

#include <functional>

namespace Switch {

template< class Data = Vex::NoValue >
std::optional< Data > entryOf( bool there, const Data & data = {} ) {
  return there ? std::optional( data ) : std::nullopt;
}

// `range()` is that of the collection that stands for it, `find( key )` the data of its entries,
// nothing for a member that is none.
template< class Key, class Data, class Range >
class SwitchTable final : public KezHelper::HwTable< Key, Data > {
  using Base = KezHelper::HwTable< Key, Data >;

public:
  using Entry = typename Base::Entry;
  using Find = std::function< std::optional< Data >( const Key & key ) >;

  SwitchTable( Range range, Find find )
      : range_( std::move( range ) ), find_( std::move( find ) ) {}

  std::optional< Data > find( const Key & key ) const override { return find_( key ); }
  std::unique_ptr< typename Base::Walk > walk() const override {
    return std::make_unique< Walk >( *this );
  }

private:
  class Walk final : public Base::Walk {
  public:
    explicit Walk( const SwitchTable & table ) : table_( table ), walk_( table.range_().begin() ) {}

    std::optional< Entry > next() override {
      while ( step() ) {
        if ( auto data = table_.find_( walk_.key() ) ) {
          return Entry{ walk_.key(), std::move( *data ) };
        }
      }
      return std::nullopt;
    }

  private:
    bool step() {
      if ( std::exchange( begun_, true ) ) {
        ++walk_;
      }
      return walk_.valid();
    }

    const SwitchTable & table_;
    decltype( std::declval< Range >()().begin() ) walk_;
    bool begun_ = false;
  };

  const Range range_;
  const Find find_;
};

template< class Key, class Data, class Range >
std::unique_ptr< const KezHelper::HwTable< Key, Data > >
switchTable( Range range, typename SwitchTable< Key, Data, Range >::Find find ) {
  return std::make_unique< SwitchTable< Key, Data, Range > >( std::move( range ),
                                                              std::move( find ) );
}

} // namespace Switch
