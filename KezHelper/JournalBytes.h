// Values as bytes that mean the same in the next process, for the entries of a journal: numbers,
// enumerators and values of one word as they lie in memory, interface ids as the numbers that
// JournalNames has for them, values and lists of such, one after the other.
#pragma once

#include "KezHelper/JournalNames.h"
#include "Wire/EthAddr.h"

#include <bit>
#include <stdexcept>

namespace KezHelper {

// A list longer than that raises std::runtime_error.
inline constexpr size_t journalListLength = 4;

namespace Detail {

template< class T >
concept JournalList = requires( const T & list ) {
  list.size();
  *list.begin();
};
template< class T >
using ElementOf = std::remove_cvref_t< decltype( *std::declval< T >().begin() ) >;

// Lies there as its word does, however few bytes of it the value keeps.
template< class T >
concept WordOfJournal =
    std::unsigned_integral< typename T::VexWord > && !std::is_same_v< T, Wire::EthAddr >;

template< class T > constexpr size_t journalBytes() {
  if constexpr ( Vex::Composite< T > ) {
    return std::apply(
        []( const auto &... field ) {
          const auto each = []< class C, class F >( const Vex::Field< C, F > & ) {
            return journalBytes< F >();
          };
          return ( size_t( 0 ) + ... + each( field ) );
        },
        T::vexFields() );
  } else if constexpr ( std::is_same_v< T, Wire::IntfId > ) {
    return sizeof( uint32_t );
  } else if constexpr ( WordOfJournal< T > ) {
    return sizeof( typename T::VexWord );
  } else if constexpr ( std::is_empty_v< T > ) {
    return 0;
  } else if constexpr ( JournalList< T > ) {
    return 1 + journalListLength * journalBytes< ElementOf< T > >();
  } else {
    static_assert( Rook::Shareable< T > && std::is_trivially_copyable_v< T > );
    return sizeof( T );
  }
}

template< class T > const std::byte * copyFrom( const std::byte * at, T & value ) {
  std::memcpy( static_cast< void * >( &value ), at, sizeof( value ) );
  return at + sizeof( value );
}
template< class T > std::byte * copyTo( std::byte * at, const T & value ) {
  std::memcpy( at, &value, sizeof( value ) );
  return at + sizeof( value );
}

// Both return where the next value goes.
template< class T, class NumberOf >
std::byte * pack( std::byte * at, const T & value, const NumberOf & numberOf ) {
  if constexpr ( Vex::Composite< T > ) {
    std::apply(
        [ & ]( const auto &... field ) {
          ( ( at = pack( at, value.*field.member, numberOf ) ), ... );
        },
        T::vexFields() );
    return at;
  } else if constexpr ( std::is_same_v< T, Wire::IntfId > ) {
    return copyTo< uint32_t >( at, numberOf( value ) );
  } else if constexpr ( WordOfJournal< T > ) {
    return copyTo( at, value.value() );
  } else if constexpr ( std::is_empty_v< T > ) {
    return at;
  } else if constexpr ( JournalList< T > ) {
    if ( value.size() > journalListLength ) {
      throw std::runtime_error( "a list of " + std::to_string( value.size() ) +
                                " is longer than a journal has room for" );
    }
    auto * const end = at + journalBytes< T >();
    at = copyTo( at, static_cast< uint8_t >( value.size() ) );
    for ( const auto & each : value ) {
      at = pack( at, each, numberOf );
    }
    return end;
  } else {
    return copyTo( at, value );
  }
}

template< class T >
const std::byte * unpack( const std::byte * at, T & value, const JournalNames & names ) {
  if constexpr ( Vex::Composite< T > ) {
    std::apply(
        [ & ]( const auto &... field ) {
          ( ( at = unpack( at, value.*field.member, names ) ), ... );
        },
        T::vexFields() );
    return at;
  } else if constexpr ( std::is_same_v< T, Wire::IntfId > ) {
    uint32_t number = 0;
    at = copyFrom( at, number );
    value = names.intfId( number );
    return at;
  } else if constexpr ( WordOfJournal< T > ) {
    static_assert( std::endian::native == std::endian::little &&
                   std::is_trivially_copyable_v< T > );
    copyFrom( at, value );
    return at + sizeof( typename T::VexWord );
  } else if constexpr ( std::is_empty_v< T > ) {
    return at;
  } else if constexpr ( JournalList< T > ) {
    const auto * const end = at + journalBytes< T >();
    uint8_t size = 0;
    at = copyFrom( at, size );
    std::vector< ElementOf< T > > all;
    while ( all.size() < std::min< size_t >( size, journalListLength ) ) {
      at = unpack( at, all.emplace_back(), names );
    }
    if constexpr ( requires { T::of( all ); } ) {
      value = T::of( all );
    } else {
      value = T( all.begin(), all.end() );
    }
    return end;
  } else {
    return copyFrom( at, value );
  }
}

// What is packed, so that a journal of a release that packs otherwise is known as such.
template< class T > void appendPacked( Vex::TextBuffer & out ) {
  out.append( Vex::typeName< T >() );
  if constexpr ( Vex::Composite< T > ) {
    std::apply(
        [ & ]( const auto &... field ) {
          char before = '(';
          const auto append = [ & ]< class C, class F >( const Vex::Field< C, F > & each ) {
            out.append( std::exchange( before, ',' ) );
            out.append( each.name );
            out.append( ' ' );
            appendPacked< F >( out );
          };
          ( append( field ), ... );
        },
        T::vexFields() );
    out.append( ')' );
  }
}

} // namespace Detail

template< class T > using JournalBytes = std::array< std::byte, Detail::journalBytes< T >() >;

// `numberOf( intfId )` is the number of an interface id.
template< class T, class NumberOf >
JournalBytes< T > journalBytesOf( const T & value, const NumberOf & numberOf ) {
  JournalBytes< T > bytes{};
  Detail::pack( bytes.data(), value, numberOf );
  return bytes;
}
// Raises std::runtime_error for a number that has no name.
template< class T > T fromJournalBytes( const std::byte * bytes, const JournalNames & names ) {
  T value{};
  Detail::unpack( bytes, value, names );
  return value;
}

} // namespace KezHelper
