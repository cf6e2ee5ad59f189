// Value types. A composite value is a struct that declares its fields and then lists them once:
//
//   struct IntfVlanKey {
//     Wire::IntfId intfId;
//     Bridging::VlanId vlanId = 1;
//     VEX_VALUE( IntfVlanKey, "Kez::IntfVlanKey", intfId, vlanId )
//   };
//
// which gives it construction from its fields and from a text (a pair of iterators), equality,
// lexicographic order, the seeded hash, and the text form
//   Value('Kez::IntfVlanKey', ** {'intfId': Ethernet1, 'vlanId': 10})
// whose parse error names the field that does not parse. Its brief form is "Ethernet1,10"; a
// composite field stands there in parentheses. The brief parser takes the full form too.
//
// An enumeration VEX_ENUM( Colour, "Kez::Colour", red, green ) numbers its enumerators from 0,
// prints by name, and parses from name or number.
#pragma once

#include "Vex/ForEach.h"
#include "Vex/Hash.h"
#include "Vex/Text.h"

#include <array>
#include <compare>
#include <cstring>
#include <tuple>

namespace Vex {

// A field of a composite value, and its name.
template< class C, class T > struct Field {
  using Type = T;
  std::string_view name;
  T C::*member;
};

template< class C, class T > constexpr Field< C, T > field( std::string_view name, T C::*member ) {
  return { name, member };
}

template< class T >
concept Composite = requires {
  T::vexFields();
  T::vexTypeName();
};

template< Composite T > uint32_t hashFields( const T & value, uint32_t seed ) {
  return std::apply(
      [ & ]( const auto &... field ) {
        uint32_t hash = seed;
        ( ( hash = hashMix( hash, fieldHash( value.*field.member ) ) ), ... );
        return hashResult( hash );
      },
      T::vexFields() );
}

// Whether values are equal just when their bytes are: words, and composites without padding that
// consist of such. A class of which it is true says so with a member type VexEqualAsBytes.
template< class T > constexpr bool equalAsBytes() {
  if constexpr ( !std::has_unique_object_representations_v< T > ) {
    return false;
  } else if constexpr ( Composite< T > ) {
    return std::apply(
        []< class... F >( const Field< T, F > &... ) {
          return ( equalAsBytes< F >() && ... ) && ( sizeof( F ) + ... ) == sizeof( T );
        },
        T::vexFields() );
  } else {
    return std::is_integral_v< T > || std::is_enum_v< T > || requires {
      typename T::VexEqualAsBytes;
    };
  }
}

// Whether the bytes of two values are equal, of which there are whole words.
template< class T > bool equalWords( const T & a, const T & b ) {
  static_assert( equalAsBytes< T >() && sizeof( T ) % sizeof( uint64_t ) == 0 );
  uint64_t differing = 0;
  for ( size_t at = 0; at < sizeof( T ); at += sizeof( uint64_t ) ) {
    uint64_t ofA, ofB;
    std::memcpy( &ofA, reinterpret_cast< const std::byte * >( &a ) + at, sizeof( ofA ) );
    std::memcpy( &ofB, reinterpret_cast< const std::byte * >( &b ) + at, sizeof( ofB ) );
    differing |= ofA ^ ofB;
  }
  return differing == 0;
}

template< Composite T > bool equalFields( const T & a, const T & b ) {
  if constexpr ( equalAsBytes< T >() && sizeof( T ) % sizeof( uint64_t ) == 0 ) {
    return equalWords( a, b );
  } else {
    return std::apply(
        [ & ]( const auto &... field ) {
          return ( ( a.*field.member == b.*field.member ) && ... );
        },
        T::vexFields() );
  }
}

namespace Detail {

// What stands before field `i` of T in its text, in one piece so that it is copied in one.
template< class T, size_t i > constexpr auto textBeforeField() {
  constexpr std::string_view type = i == 0 ? T::vexTypeName() : std::string_view();
  constexpr std::string_view name = std::get< i >( T::vexFields() ).name;
  constexpr std::string_view pieces[] = { i == 0 ? "Value('" : ", '", type,
                                          i == 0 ? "', ** {'" : "", name, "': " };
  constexpr size_t size = [ & ] {
    size_t sum = 0;
    for ( const auto piece : pieces ) {
      sum += piece.size();
    }
    return sum;
  }();
  std::array< char, size > text{};
  size_t at = 0;
  for ( const auto piece : pieces ) {
    for ( const char c : piece ) {
      text[ at++ ] = c;
    }
  }
  return text;
}
template< class T, size_t i > constexpr auto textStoredBeforeField = textBeforeField< T, i >();
template< class T, size_t i >
constexpr std::string_view beforeField( textStoredBeforeField< T, i >.data(),
                                        textStoredBeforeField< T, i >.size() );

} // namespace Detail

template< Composite T > void appendText( TextBuffer & out, const T & value ) {
  constexpr auto fields = T::vexFields();
  [ & ]< size_t... i >( std::index_sequence< i... > ) {
    ( ( out.append( Detail::beforeField< T, i > ),
        appendText( out, value.*std::get< i >( fields ).member ) ),
      ... );
  }
  ( std::make_index_sequence< std::tuple_size_v< decltype( fields ) > >() );
  out.append( "})" );
}

namespace Detail {

// What fails in `parse` is said to stand in field `name`.
template< class Parse > void parseInField( std::string_view name, Parse && parse ) {
  try {
    parse();
  } catch ( ParseError & error ) {
    error.inField( name );
    throw;
  }
}

// Says what is missing of the text before field `i`; what closes a field belongs to it.
template< class T, size_t i > void failBeforeField( TextCursor & in ) {
  constexpr auto fields = T::vexFields();
  if constexpr ( i == 0 ) {
    in.expect( "Value('" );
    in.expect( T::vexTypeName() );
    in.expect( "', ** {'" );
  } else {
    parseInField( std::get< i - 1 >( fields ).name, [ & ] { in.expect( ", '" ); } );
  }
  parseInField( std::get< i >( fields ).name, [ & ] {
    in.expect( std::get< i >( fields ).name );
    in.expect( "': " );
  } );
}

template< class T, size_t i > void parseField( TextCursor & in, T & value ) {
  constexpr auto field = std::get< i >( T::vexFields() );
  if ( !in.skip( beforeField< T, i > ) ) [[unlikely]] {
    failBeforeField< T, i >( in );
  }
  auto & member = value.*field.member;
  parseInField( field.name, [ & ] {
    parseText( in, member );
    if constexpr ( i + 1 == std::tuple_size_v< decltype( T::vexFields() ) > ) {
      in.expect( "})" );
    }
  } );
}

template< class T >
void parseBriefField( TextCursor & in, std::string_view name, T & value, bool last ) {
  parseInField( name, [ & ] {
    if constexpr ( Composite< T > ) {
      in.expect( "(" );
      parseBrief( in, value );
      in.expect( ")" );
    } else {
      parseBriefText( in, value );
    }
    if ( !last ) {
      in.expect( "," );
      in.skip( " " );
    }
  } );
}

} // namespace Detail

template< Composite T > void parseText( TextCursor & in, T & value ) {
  [ & ]< size_t... i >( std::index_sequence< i... > ) {
    ( Detail::parseField< T, i >( in, value ), ... );
  }
  ( std::make_index_sequence< std::tuple_size_v< decltype( T::vexFields() ) > >() );
}

template< Composite T > void appendBrief( TextBuffer & out, const T & value ) {
  const auto appendOne = [ & ]( const auto & member ) {
    if constexpr ( Composite< std::remove_cvref_t< decltype( member ) > > ) {
      out.append( '(' );
      appendBrief( out, member );
      out.append( ')' );
    } else {
      appendBriefText( out, member );
    }
  };
  std::apply(
      [ & ]( const auto &... field ) {
        std::string_view opening;
        ( ( out.append( opening ), appendOne( value.*field.member ), opening = "," ), ... );
      },
      T::vexFields() );
}

template< Composite T > void parseBrief( TextCursor & in, T & value ) {
  if ( in.startsWith( "Value(" ) ) {
    parseText( in, value );
    return;
  }
  std::apply(
      [ & ]( const auto &... field ) {
        size_t left = sizeof...( field );
        ( Detail::parseBriefField( in, field.name, value.*field.member, --left == 0 ), ... );
      },
      T::vexFields() );
}

// `names` in order of the enumerators, which are numbered from 0.
template< class E > void appendEnum( TextBuffer & out, E value, const auto & names ) {
  const auto number = static_cast< std::underlying_type_t< E > >( value );
  if ( number < names.size() ) {
    out.append( names[ number ] );
  } else {
    appendText( out, number );
  }
}

template< class E > E enumOfNumber( const char * type, uint64_t number, size_t count ) {
  if ( number >= count ) {
    throw RangeError( String( type ) + ": no enumerator has the value " +
                      std::to_string( number ) );
  }
  return static_cast< E >( number );
}

template< class E > void parseEnum( TextCursor & in, E & value, const auto & names ) {
  const auto word = in.peekWord();
  for ( size_t i = 0; i < names.size(); ++i ) {
    if ( word == names[ i ] || word == std::to_string( i ) ) {
      value = static_cast< E >( i );
      in.word();
      return;
    }
  }
  String expected = "one of";
  for ( const auto name : names ) {
    expected += ' ';
    expected += name;
  }
  in.fail( expected + " (or its number)" );
}

} // namespace Vex

#define VEX_VALUE_PARAMETER( name ) const decltype( name ) & name##_
#define VEX_VALUE_INITIALISER( name ) name( name##_ )
#define VEX_VALUE_FIELD( name ) Vex::field( #name, &VexSelf::name )
#define VEX_VALUE( Type, typeName, ... )                                                           \
  using VexSelf = Type;                                                                            \
  Type() = default;                                                                                \
  Type( VEX_FOR_EACH( VEX_VALUE_PARAMETER, __VA_ARGS__ ) )                                         \
      : VEX_FOR_EACH( VEX_VALUE_INITIALISER, __VA_ARGS__ ) {}                                      \
  template< Vex::TextIterator Begin, Vex::TextIterator End >                                       \
  Type( const Begin & begin, const End & end ) {                                                   \
    Vex::parseWhole( *this, std::to_address( begin ), std::to_address( end ) );                    \
  }                                                                                                \
  static constexpr std::string_view vexTypeName() {                                                \
    return typeName;                                                                               \
  }                                                                                                \
  static constexpr auto vexFields() {                                                              \
    return std::make_tuple( VEX_FOR_EACH( VEX_VALUE_FIELD, __VA_ARGS__ ) );                        \
  }                                                                                                \
  uint32_t hash( uint32_t seed ) const {                                                           \
    return Vex::hashFields( *this, seed );                                                         \
  }                                                                                                \
  [[maybe_unused]] friend Vex::String valueToStrep( const Type & value ) {                         \
    return Vex::text( value );                                                                     \
  }                                                                                                \
  friend std::ostream & operator<<( std::ostream & out, const Type & value ) {                     \
    return out << Vex::text( value );                                                              \
  }                                                                                                \
  friend bool operator==( const Type & a, const Type & b ) {                                       \
    return Vex::equalFields( a, b );                                                               \
  }                                                                                                \
  friend std::strong_ordering operator<=>( const Type &, const Type & ) = default;

#define VEX_ENUM_NAME( name ) std::string_view( #name )
#define VEX_ENUM( Type, typeName, ... )                                                            \
  enum class Type : uint32_t { __VA_ARGS__ };                                                      \
  [[maybe_unused]] constexpr auto vexNames( Type ) {                                               \
    return std::array{ VEX_FOR_EACH( VEX_ENUM_NAME, __VA_ARGS__ ) };                               \
  }                                                                                                \
  [[maybe_unused]] constexpr std::string_view vexTypeName( Type ) {                                \
    return typeName;                                                                               \
  }                                                                                                \
  [[maybe_unused]] inline void appendText( Vex::TextBuffer & out, Type value ) {                   \
    Vex::appendEnum( out, value, vexNames( value ) );                                              \
  }                                                                                                \
  [[maybe_unused]] inline void parseText( Vex::TextCursor & in, Type & value ) {                   \
    Vex::parseEnum( in, value, vexNames( value ) );                                                \
  }                                                                                                \
  [[maybe_unused]] inline Vex::String stringValue( Type value ) {                                  \
    return Vex::text( value );                                                                     \
  }                                                                                                \
  [[maybe_unused]] inline Type Type##Instance( unsigned value ) {                                  \
    return Vex::enumOfNumber< Type >( typeName, value, vexNames( Type{} ).size() );                \
  }                                                                                                \
  [[maybe_unused]] inline Type Type##Instance( const Vex::String & name ) {                        \
    return Vex::parse< Type >( name );                                                             \
  }                                                                                                \
  [[maybe_unused]] inline std::ostream & operator<<( std::ostream & out, Type value ) {            \
    return out << stringValue( value );                                                            \
  }
