// Two hashes of values. The published one is seeded, 32 bits wide and mixes the hash of each
// field in field order (the mixing steps are those of MurmurHash3's 32-bit variant). The
// containers use a cheaper one of 64 bits.
#pragma once

#include <cstdint>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

namespace Vex {

constexpr uint32_t hashMix( uint32_t hash, uint32_t value ) {
  value *= 0xCC9E2D51u;
  value = ( value << 15 ) | ( value >> 17 );
  hash ^= value * 0x1B873593u;
  return ( ( hash << 13 ) | ( hash >> 19 ) ) * 5 + 0xE6546B64u;
}

constexpr uint32_t hashResult( uint32_t hash ) {
  hash = ( hash ^ ( hash >> 16 ) ) * 0x85EBCA6Bu;
  hash = ( hash ^ ( hash >> 13 ) ) * 0xC2B2AE35u;
  return hash ^ ( hash >> 16 );
}

// Jenkins's one-at-a-time hash of the eight bytes in memory order, from 0.
inline uint32_t oneAtATimeHash( uint64_t value ) {
  uint32_t hash = 0;
  for ( int i = 0; i < 8; ++i ) {
    hash += reinterpret_cast< const unsigned char * >( &value )[ i ];
    hash += hash << 10;
    hash ^= hash >> 6;
  }
  hash += hash << 3;
  hash ^= hash >> 11;
  return hash + ( hash << 15 );
}

// The published hash of one field: the type's own `hash( seed )`, or one mix of a plain value.
template< class T > uint32_t hashOf( const T & value, uint32_t seed ) {
  if constexpr ( requires { value.hash( seed ); } ) {
    return value.hash( seed );
  } else if constexpr ( sizeof( T ) > 4 ) {
    return hashResult( hashMix( seed, oneAtATimeHash( static_cast< uint64_t >( value ) ) ) );
  } else {
    return hashResult( hashMix( seed, static_cast< uint32_t >( value ) ) );
  }
}

// What a field adds to its value's hash: a 64-bit word its one-at-a-time hash, anything else its
// own hash from 0.
template< class T > uint32_t fieldHash( const T & field ) {
  if constexpr ( requires { typename T::VexWord; } ) {
    return fieldHash( field.value() );
  } else if constexpr ( std::is_integral_v< T > && sizeof( T ) == 8 ) {
    return oneAtATimeHash( field );
  } else {
    return hashOf( field, 0 );
  }
}

template< class T >
concept HasWord = std::is_integral_v< T > || std::is_enum_v< T > || requires( const T & value ) {
  value.vexWord();
};

template< HasWord T > constexpr uint64_t wordOf( const T & value ) {
  if constexpr ( requires { value.vexWord(); } ) {
    return value.vexWord();
  } else {
    return static_cast< uint64_t >( value );
  }
}

// The word whose low bits tell those apart that are used one after the other, where it is not the
// value's own.
template< HasWord T > constexpr uint64_t neighbourWordOf( const T & value ) {
  if constexpr ( requires { value.vexNeighbourWord(); } ) {
    return value.vexNeighbourWord();
  } else {
    return wordOf( value );
  }
}

constexpr uint64_t goldenRatio = 0x9E3779B97F4A7C15ull;

// The halves of a product of two words, one over the other.
constexpr uint64_t foldedProduct( uint64_t a, uint64_t b ) {
  __extension__ using Product = unsigned __int128;
  const Product product = static_cast< Product >( a ) * b;
  return static_cast< uint64_t >( product ) ^ static_cast< uint64_t >( product >> 64 );
}

constexpr uint64_t foldWord( uint64_t hash, uint64_t word ) {
  return foldedProduct( hash ^ word, goldenRatio );
}

// Every word of a value, each mixed whole.
template< class T > constexpr uint64_t foldHash( uint64_t hash, const T & value ) {
  if constexpr ( HasWord< T > ) {
    return foldWord( hash, wordOf( value ) );
  } else if constexpr ( requires { T::vexFields(); } ) {
    return std::apply(
        [ & ]( const auto &... field ) {
          ( ( hash = foldHash( hash, value.*field.member ) ), ... );
          return hash;
        },
        T::vexFields() );
  } else if constexpr ( std::is_convertible_v< const T &, std::string_view > ) {
    const std::string_view text( value );
    for ( const char c : text ) {
      hash = foldWord( hash, static_cast< unsigned char >( c ) );
    }
    return foldWord( hash, text.size() );
  } else {
    return foldWord( hash, static_cast< uint64_t >( value ) );
  }
}

// The hash of containers. What is used one after the other, such as VLANs and ports, has words
// that follow each other: those that differ in their two low bits alone share a cache line of the
// index (of words after other fields, in the lowest bit alone, for there are many such rows), and
// the next four bits choose among neighbouring lines. All else is multiplied, so that even steps
// are spread evenly. A multiplier cannot do that for all steps; bench/HashSearch.cpp searches for
// ones that do it for keys such as the machines have, and ranks the two here.
struct ContainerHash {
  uint64_t spread; // its upper bits choose the line
  uint64_t word;

  // The bits of the word that choose among neighbouring lines.
  static constexpr int neighbourShift = 2;
  static constexpr uint32_t neighbourMask = 15;
  constexpr uint32_t neighbour() const { return ( word >> neighbourShift ) & neighbourMask; }
};

// What the words of a key's fields are multiplied by.
struct HashMultipliers {
  uint64_t before; // of fields before the last
  uint64_t last;   // of the last field, or the only one
};
constexpr HashMultipliers containerMultipliers{ 0x50D9C93085B94C2B, 0x6408CBA6AB22F2C7 };

template< class T >
constexpr uint64_t spreadHash( uint64_t hash, const T & value, HashMultipliers by ) {
  if constexpr ( HasWord< T > ) {
    return ( hash + wordOf( value ) ) * by.before;
  } else {
    return foldHash( hash, value );
  }
}

template< class T >
constexpr ContainerHash lastHash( uint64_t before, const T & value, int shift,
                                  HashMultipliers by ) {
  if constexpr ( HasWord< T > ) {
    const uint64_t word = neighbourWordOf( value ) << shift;
    return { ( before + ( word >> 6 ) ) * by.last, word };
  } else {
    return { foldHash( before, value ), 0 };
  }
}

template< class T >
constexpr ContainerHash containerHash( const T & value,
                                       HashMultipliers by = containerMultipliers ) {
  if constexpr ( !HasWord< T > && requires { T::vexFields(); } ) {
    constexpr auto fields = T::vexFields();
    constexpr size_t last = std::tuple_size_v< decltype( fields ) > - 1;
    return [ & ]< size_t... i >( std::index_sequence< i... > ) {
      uint64_t before = 0;
      ( ( before = spreadHash( before, value.*std::get< i >( fields ).member, by ) ), ... );
      return lastHash( before, value.*std::get< last >( fields ).member, last ? 1 : 0, by );
    }
    ( std::make_index_sequence< last >() );
  } else {
    return lastHash( 0, value, 0, by );
  }
}

} // namespace Vex
