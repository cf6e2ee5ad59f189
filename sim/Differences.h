// Gathers how what is there differs from what is expected, as text.
#pragma once

#include "Vex/Text.h"

#include <set>

namespace Sim {

template< class T > Vex::String textOf( const T & value ) {
  return Vex::briefText( value );
}
template< class A, class B > Vex::String textOf( const std::pair< A, B > & value ) {
  return textOf( value.first ) + " -> " + textOf( value.second );
}

class Differences {
public:
  void expect( bool holds, const Vex::String & what ) {
    if ( !holds ) {
      text_ += what + "\n";
    }
  }
  // Both hold the same, but that what finds no room may be missing.
  template< class T >
  void same( const Vex::String & what, const std::set< T > & expected,
             const std::set< T > & present, bool room = true ) {
    for ( const auto & each : expected ) {
      if ( room && !present.contains( each ) ) {
        expect( false, what + " lacks " + textOf( each ) );
      }
    }
    for ( const auto & each : present ) {
      if ( !expected.contains( each ) ) {
        expect( false, what + " has " + textOf( each ) );
      }
    }
  }
  const Vex::String & text() const { return text_; }

private:
  Vex::String text_;
};

template< class Range > auto setOf( const Range & range ) {
  std::set< std::decay_t< decltype( *range.begin() ) > > all;
  for ( const auto & each : range ) {
    all.insert( each );
  }
  return all;
}

// Of a map: its (key, value) pairs.
template< class Key, class Value, class Range > auto pairsOf( const Range & range ) {
  std::set< std::pair< Key, Value > > all;
  for ( const auto & [ key, value ] : range ) {
    all.emplace( key, value );
  }
  return all;
}

} // namespace Sim
