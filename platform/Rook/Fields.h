// What a table's file says of its records, so that they can be checked and shown by those who do
// not know their type: "Kez::Thing[key]{key:Kez::Key@0+8u,size:Kez::Size@8{wide:...}}", each
// field with its type, its offset and, for a plain one, its size and kind: u(nsigned), i(nteger),
// b(oolean), f(loat).
#pragma once

#include "Vex/Describe.h"

#include <array>

namespace Rook {

namespace Detail {

template< class T > constexpr bool isShareable() {
  if constexpr ( Vex::Composite< T > ) {
    return std::apply(
        []( const auto &... field ) {
          const auto each = []< class C, class F >( const Vex::Field< C, F > & ) {
            return isShareable< F >();
          };
          return ( each( field ) && ... );
        },
        T::vexFields() );
  } else {
    return std::is_arithmetic_v< T > || std::is_enum_v< T > || requires {
      typename T::VexWord;
    };
  }
}

} // namespace Detail

// A record that means the same in every process: made of numbers, enumerators and values of one
// word. Anything else, an interface id above all, whose number may be that of a name interned
// here, keeps the table in private memory.
template< class T >
concept Shareable = Detail::isShareable< T >();

namespace Detail {

template< class T > constexpr char kindOf() {
  return std::is_same_v< T, bool >       ? 'b'
         : std::is_floating_point_v< T > ? 'f'
         : std::is_signed_v< T >         ? 'i'
                                         : 'u';
}

template< class T >
void appendFields( Vex::TextBuffer & out, const std::byte * record, const T & value ) {
  if constexpr ( Vex::Composite< T > ) {
    std::apply(
        [ & ]( const auto &... field ) {
          char before = '{';
          const auto append = [ & ]( std::string_view name, const auto & member ) {
            const auto at = reinterpret_cast< const std::byte * >( &member );
            out.append( std::exchange( before, ',' ) );
            out.append( name );
            out.append( ':' );
            out.append( Vex::typeName< std::remove_cvref_t< decltype( member ) > >() );
            out.append( '@' );
            appendText( out, at - record );
            appendFields( out, record, member );
          };
          ( append( field.name, value.*field.member ), ... );
        },
        T::vexFields() );
    out.append( '}' );
  } else {
    out.append( '+' );
    appendText( out, sizeof( T ) );
    out.append( kindOf< T >() );
  }
}

} // namespace Detail

// Of the records whose key is the field of this name.
template< Vex::Composite T > Vex::String fieldsOf( std::string_view key ) {
  Vex::TextBuffer out;
  out.append( T::vexTypeName() );
  out.append( '[' );
  out.append( key );
  out.append( ']' );
  if constexpr ( Shareable< T > ) {
    const T record{};
    Detail::appendFields( out, reinterpret_cast< const std::byte * >( &record ), record );
  }
  return out.str();
}

} // namespace Rook
