// The generator SplitMix64, whose n-th number needs no other: nothing is kept but the count.
#pragma once

#include <cstdint>

namespace Switch {

constexpr uint64_t randomNumber( uint64_t seed, uint64_t n ) {
  uint64_t number = seed + n * 0x9E3779B97F4A7C15ull;
  number = ( number ^ ( number >> 30 ) ) * 0xBF58476D1CE4E5B9ull;
  number = ( number ^ ( number >> 27 ) ) * 0x94D049BB133111EBull;
  return number ^ ( number >> 31 );
}

} // namespace Switch
