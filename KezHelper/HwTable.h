// Hardware that can be asked what it has, table by table. A helper whose chip can be read back, or
// that keeps a journal of its own, answers for each such table; without one it works all the same,
// but hardware has to be empty when a machine starts.
#pragma once

#include <memory>
#include <optional>

namespace KezHelper {

template< class K, class D > class HwTable {
public:
  using Key = K;
  using Data = D;
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

  virtual ~HwTable() = default;
  virtual std::optional< Data > find( const Key & key ) const = 0;
  virtual std::unique_ptr< Walk > walk() const = 0;
};

} // namespace KezHelper
