// How much of what happened when, in bounded space: bins of one width, from an origin on. What
// falls beyond the last one doubles the width.
#pragma once

#include "Vex/Value.h"

#include <algorithm>
#include <array>
#include <vector>

namespace Agent {

// A refusal is a call that a plan had fail or that found no room. A failure is what should not be:
// a wrong call, an expectation that does not hold, a bad line.
VEX_ENUM( Happening, "Agent::Happening", line, call, refusal, failure, comment, trace )
constexpr size_t happeningCount = 6;

class Histogram {
public:
  static constexpr size_t binLimit = 240;
  // By happening; comments and traces are not counted.
  static constexpr size_t countedLimit = 4;
  using Bin = std::array< uint64_t, countedLimit >;

  explicit Histogram( double width, double origin = 0 ) : origin_( origin ), width_( width ) {}

  // `at` is finite and not before the origin.
  void add( double at, Happening what ) {
    if ( static_cast< size_t >( what ) >= countedLimit ) {
      return;
    }
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
