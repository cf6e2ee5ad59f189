// The processor's time stamp, the cheapest time there is: counts at a steady rate from an
// arbitrary start, alike on all processors of a machine.
#pragma once

#include <chrono>
#include <cstdint>

namespace Ringlog {

inline uint64_t ticks() {
#if defined( __x86_64__ )
  return __builtin_ia32_rdtsc();
#else
  return static_cast< uint64_t >( std::chrono::steady_clock::now().time_since_epoch().count() );
#endif
}

// Of the steady clock, also while Vex::Clock is virtual.
inline double steadySeconds() {
  using Seconds = std::chrono::duration< double >;
  return Seconds( std::chrono::steady_clock::now().time_since_epoch() ).count();
}

// The two at one moment.
struct ClockPoint {
  uint64_t ticks;
  double seconds;
};

// The best of a few readings, since a thread may be put aside in the middle of one.
inline ClockPoint clockPoint() {
  ClockPoint best{};
  uint64_t bestGap = UINT64_MAX;
  for ( int i = 0; i < 4; ++i ) {
    const uint64_t before = ticks();
    const double seconds = steadySeconds();
    const uint64_t gap = ticks() - before;
    if ( gap < bestGap ) {
      bestGap = gap;
      best = { before + gap / 2, seconds };
    }
  }
  return best;
}

} // namespace Ringlog
