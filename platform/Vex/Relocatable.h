// Which objects may be moved to another address by copying their bytes: flat ones; values of such
// fields and nothing beside them; and classes that say so of themselves with a member type
// VexRelocatable, since nothing in them points to the object or counts on its address.
#pragma once

#include <cstddef>
#include <tuple>
#include <type_traits>

namespace Vex {

template< class T > constexpr bool relocatable();

namespace Detail {

// Whether the fields, which T lists in their order, are all that T has, and may be moved so.
template< class T, class... Fields > constexpr bool relocatableFields( std::tuple< Fields... > ) {
  size_t end = 0;
  const auto add = [ & ]< class F >( std::type_identity< F > ) {
    end = ( end + alignof( F ) - 1 ) / alignof( F ) * alignof( F ) + sizeof( F );
    return relocatable< F >();
  };
  const bool all = ( add( std::type_identity< typename Fields::Type >() ) && ... );
  return all && ( end + alignof( T ) - 1 ) / alignof( T ) * alignof( T ) == sizeof( T );
}

} // namespace Detail

template< class T > constexpr bool relocatable() {
  if constexpr ( std::is_trivially_copyable_v< T > || requires { typename T::VexRelocatable; } ) {
    return true;
  } else if constexpr ( requires { T::vexFields(); } ) {
    return Detail::relocatableFields< T >( T::vexFields() );
  } else {
    return false;
  }
}

} // namespace Vex
