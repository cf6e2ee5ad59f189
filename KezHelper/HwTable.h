// Hardware that can be asked what it has, table by table. A helper whose chip can be read back, or
// that keeps a journal of its own, answers for each such table; without one it works all the same,
// but hardware has to be empty when a machine starts.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace KezHelper {

template< class K, class D > class HwTable {
public:
  using Key = K;
  using Data = D;
  // A key of the table and what stands under it.
  struct Entry {
    Key key;
    Data data;
  };
  // One pass over the entries, for as long as it takes: it comes once to every entry that stands
  // from its beginning to its end, and to others perhaps. The table outlives it.
  class Walk {
  public:
    virtual ~Walk() = default;
    // None behind the last entry.
    virtual std::optional< Entry > next() = 0;
  };

  // Who is to hear of entries that are lost, for as long as it is held.
  using LossListener = std::shared_ptr< const std::function< void( const Key & key ) > >;

  virtual ~HwTable() = default;
  virtual std::optional< Data > find( const Key & key ) const = 0;
  virtual std::unique_ptr< Walk > walk() const = 0;

  // Calls `lost` for an entry that was answered as programmed and turns out not to be there: audits
  // have the machine try it again, as if it had been refused. Earlier listeners hear it earlier.
  LossListener onLost( std::function< void( const Key & key ) > lost ) const {
    auto listener =
        std::make_shared< const std::function< void( const Key & key ) > >( std::move( lost ) );
    std::erase_if( listeners_, []( const auto & each ) { return each.expired(); } );
    listeners_.push_back( listener );
    return listener;
  }

protected:
  // Whether anybody has heard it.
  bool tellLost( const Key & key ) const {
    bool heard = false;
    for ( const auto & each : std::vector( listeners_ ) ) {
      if ( const auto listener = each.lock() ) {
        ( *listener )( key );
        heard = true;
      }
    }
    return heard;
  }

private:
  mutable std::vector< std::weak_ptr< const std::function< void( const Key & key ) > > > listeners_;
};

} // namespace KezHelper
