// How much of what happened when, in bounded space: bins of one width, from an origin on. What
// falls beyond the last one doubles the width.
#pragma once

#include "Vex/Value.h"

#include <algorithm>
#include <array>
#include <vector>

namespace Agent {

VEX_ENUM( Happening, "Agent::Happening", line, call, failure )

class Histogram {
public:
  static constexpr size_t binLimit = 240;
  using Bin = std::array< uint64_t, 3 >; // by happening

  explicit Histogram( double width, double origin = 0 ) : origin_( origin ), width_( width ) {}

  // `at` is finite and not before the origin.
  void add( double at, Happening what ) {
    while ( at - origin_ >= width_ * binLimit ) {
      fold();
    }
    const auto bin = static_cast< size_t >( ( at - origin_ ) / width_ );
    bins_.resize( std::max( bins_.size(), bin + 1 ) );
    ++bins_[ bin ][ static_cast< size_t >( what ) ];
  }

  double origin() const { return origin_; }
  double width() const { return width_; }
  const std::vector< Bin > & bins() const { return bins_; }

private:
  void fold() {
    width_ *= 2;
    std::vector< Bin > folded( ( bins_.size() + 1 ) / 2 );
    for ( size_t i = 0; i < bins_.size(); ++i ) {
      for ( size_t what = 0; what < bins_[ i ].size(); ++what ) {
        folded[ i / 2 ][ what ] += bins_[ i ][ what ];
      }
    }
    bins_ = std::move( folded );
  }

  double origin_;
  double width_;
  std::vector< Bin > bins_;
};

} // namespace Agent
