// How many durations there were, by how long they took. Adding one that took no time, as most calls
// of a simulated chip do, is one addition.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace Vex {

class DurationHistogram {
public:
  // In seconds; what is longer than the last is counted too.
  static constexpr auto bounds =
      std::to_array( { 0.0, 0.0001, 0.001, 0.01, 0.1, 1.0, 10.0, 100.0 } );

  // Less than none is none.
  void add( double seconds ) {
    if ( seconds <= 0 ) [[likely]] {
      ++counts_[ 0 ];
      return;
    }
    const auto * const bound = std::lower_bound( bounds.begin(), bounds.end(), seconds );
    ++counts_[ static_cast< size_t >( bound - bounds.begin() ) ];
    sum_ += seconds;
  }

  // Those that took no longer than a bound, by its index; all of them, by that behind the last.
  uint64_t upTo( size_t bound ) const {
    uint64_t all = 0;
    for ( size_t i = 0; i <= bound; ++i ) {
      all += counts_[ i ];
    }
    return all;
  }
  uint64_t count() const { return upTo( bounds.size() ); }
  double sum() const { return sum_; }

private:
  std::array< uint64_t, bounds.size() + 1 > counts_{};
  double sum_ = 0;
};

} // namespace Vex
