// Words that are kept in fewer bytes than the integers that they are taken as.
#pragma once

#include <climits>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace Vex {

// Of `count` parts, the lowest first, to one of which it is aligned. What it has no room for is cut
// off.
template< std::unsigned_integral Word, std::unsigned_integral Part, size_t count >
class NarrowWord {
  // Joined by itself, so that the compiler loads it in one.
  using Half = std::conditional_t< sizeof( Word ) == sizeof( uint64_t ), uint32_t, uint16_t >;
  static constexpr size_t inHalf = sizeof( Half ) / sizeof( Part );
  static_assert( sizeof( Half ) < sizeof( Word ) && inHalf < count &&
                 count * sizeof( Part ) < sizeof( Word ) );

public:
  constexpr NarrowWord( Word word ) : NarrowWord( word, std::make_index_sequence< count >() ) {}
  constexpr operator Word() const {
    return joined< Half, 0 >( std::make_index_sequence< inHalf >() ) |
           joined< Word, inHalf >( std::make_index_sequence< count - inHalf >() );
  }

private:
  static constexpr size_t bits = CHAR_BIT * sizeof( Part );

  template< size_t... i >
  constexpr NarrowWord( Word word, std::index_sequence< i... > )
      : parts_{ static_cast< Part >( word >> bits * i )... } {}
  template< class Joined, size_t first, size_t... i >
  constexpr Joined joined( std::index_sequence< i... > ) const {
    return static_cast< Joined >(
        ( ... | ( Joined( parts_[ first + i ] ) << bits * ( first + i ) ) ) );
  }

  Part parts_[ count ];
};

} // namespace Vex
