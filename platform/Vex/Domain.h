// Domains: figures that not every number will do for. An attribute whose type is a domain holds a
// plain value of it and takes no other, in code and by text:
//
//   VEX_TUNABLE( 1, retryInterval, Vex::Interval, 5.0 )    double retryInterval() const
//
// A value outside raises Vex::RangeError where it is set, one outside in a text ParseError, and the
// attribute keeps what it holds. A domain says
//
//   using Value = ...;                                 what is held
//   static constexpr Value vexLowest, vexHighest;      both are in it
//   static constexpr std::string_view vexTypeName();   what is expected, with its range
#pragma once

#include "Vex/Assert.h"
#include "Vex/Text.h"

#include <limits>

namespace Vex {

template< class T >
concept Domain = requires {
  typename T::Value;
  T::vexLowest;
  T::vexHighest;
  T::vexTypeName();
};

// How long something takes or is waited for once. No longer than some thirty years, so that a time
// of the clock plus a duration is exact to the microsecond.
struct Seconds {
  using Value = double;
  static constexpr double vexLowest = 0;
  static constexpr double vexHighest = 1e9;
  static constexpr std::string_view vexTypeName() { return "seconds, 0 to 1000000000"; }
};

// How long is waited before something is done again: long enough for time to pass in between.
struct Interval {
  using Value = double;
  static constexpr double vexLowest = 1e-6;
  static constexpr double vexHighest = Seconds::vexHighest;
  static constexpr std::string_view vexTypeName() {
    return "seconds above 0, 0.000001 to 1000000000";
  }
};

// From 0 to 1.
struct Probability {
  using Value = double;
  static constexpr double vexLowest = 0;
  static constexpr double vexHighest = 1;
  static constexpr std::string_view vexTypeName() { return "a probability, 0 to 1"; }
};

// A whole number above 0.
struct PositiveCount {
  using Value = uint64_t;
  static constexpr uint64_t vexLowest = 1;
  static constexpr uint64_t vexHighest = std::numeric_limits< uint64_t >::max();
  static constexpr std::string_view vexTypeName() { return "a whole number above 0"; }
};

// None contains NaN.
template< Domain D > constexpr bool contains( typename D::Value value ) {
  return value >= D::vexLowest && value <= D::vexHighest;
}

// Raises the RangeError of a value that `what` was given and the domain does not contain.
template< Domain D > [[noreturn]] void refuse( std::string_view what, typename D::Value value ) {
  throw RangeError( String( what ) + ": expected " + String( D::vexTypeName() ) + ", found " +
                    text( value ) );
}

namespace Detail {

template< class T > struct Held { using Type = T; };
template< Domain D > struct Held< D > { using Type = typename D::Value; };

} // namespace Detail

// What an attribute declared with T holds.
template< class T > using HeldBy = typename Detail::Held< T >::Type;

// The whole of `text` in its brief form, as a value that an attribute declared with T may hold.
template< class T > HeldBy< T > parseHeld( std::string_view text ) {
  if constexpr ( Domain< T > ) {
    typename T::Value value{};
    TextCursor in( text );
    if ( !readNumber( in, value ) || !contains< T >( value ) ) {
      TextCursor( text ).fail( String( T::vexTypeName() ) );
    }
    expectEnd( in );
    return value;
  } else {
    return parseBriefly< T >( text );
  }
}

} // namespace Vex
