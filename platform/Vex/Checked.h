// What the types of an attribute's keys and values must have, asked where the attribute is
// declared.
#pragma once

#include "Vex/Domain.h"
#include "Vex/Hash.h"
#include "Vex/Text.h"

#include <concepts>

namespace Vex {

template< class T >
concept AttributeValue = std::default_initializable< T > && std::copyable< T > &&
    std::equality_comparable< T > &&
    ( HasBriefForm< T > ||
      ( HasTextForm< T > && requires( TextCursor & in, T & value ) { parseText( in, value ); } ) );

template< class T >
concept AttributeKey = AttributeValue< T > &&(
    HasWord< T > || requires { T::vexFields(); } ||
    std::is_convertible_v< const T &, std::string_view > ||
    requires( const T & key ) { static_cast< uint64_t >( key ); } );

namespace Detail {

// Stands for a type that will not do, so that nothing but the message about it is said.
struct Anything {
  Anything() = default;
  template< class T > Anything( const T & );
  template< class T > operator T &() const;
  bool operator==( const Anything & ) const = default;
  uint64_t vexWord() const;
  static std::string_view vexTypeName();
  friend void appendText( TextBuffer & out, const Anything & value );
  friend void parseText( TextCursor & in, Anything & value );
};

} // namespace Detail

// The type itself, if it will do.
template< class Key >
using CheckedKey = std::conditional_t< AttributeKey< Key >, Key, Detail::Anything >;
template< class Value >
using CheckedValue =
    std::conditional_t< AttributeValue< HeldBy< Value > >, Value, Detail::Anything >;

} // namespace Vex

#define VEX_CHECK_KEY( foo, Key )                                                                  \
  static_assert( Vex::AttributeKey< Key >,                                                         \
                 #foo " has keys of type " #Key ", which is no value type: VEX_VALUE and "         \
                      "VEX_ENUM make one, see docs/entities.md" );
#define VEX_CHECK_VALUE( foo, Value )                                                              \
  static_assert( Vex::AttributeValue< Vex::HeldBy< Value > >,                                      \
                 #foo " has values of type " #Value ", which is no value type: VEX_VALUE and "     \
                      "VEX_ENUM make one, see docs/entities.md" );
