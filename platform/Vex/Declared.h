// What a class declares through the macros of Vex/Attributes.h, asked at compile time.
#pragma once

#include "Vex/Entity.h"

#include <tuple>
#include <utility>

namespace Vex {

template< AttrId id > struct AttrTag { static_assert( id < 64, "attribute ids are 0 to 63" ); };
struct NoAttr {};

// The base that VEX_ENTITY names, or Vex::Entity.
template< class Base = Entity > struct EntityBase { using type = Base; };

template< class C, AttrId id > constexpr bool declaresAttribute() {
  return requires {
    C::vexDeclared( AttrTag< id >() );
  };
}

template< class C, AttrId id > constexpr bool anyDeclaresAttribute() {
  if constexpr ( std::is_same_v< C, Entity > ) {
    return false;
  } else {
    return declaresAttribute< C, id >() || anyDeclaresAttribute< typename C::VexBase, id >();
  }
}

// How many attributes class C itself declares; none when one has an id of its bases.
template< class C > constexpr size_t declaredAttributes() {
  return []< size_t... id >( std::index_sequence< id... > )->size_t {
    if ( ( ( declaresAttribute< C, id >() && anyDeclaresAttribute< typename C::VexBase, id >() ) ||
           ... ) ) {
      return SIZE_MAX;
    }
    return ( size_t( declaresAttribute< C, id >() ) + ... );
  }
  ( std::make_index_sequence< 64 >() );
}

// Whether no base of C other than its VexBase and that one's bases declares attributes: each
// class marks its depth, and a class that leaves one out shares its own depth with it.
template< class C > constexpr bool namesItsBase() {
  return std::is_base_of_v< typename C::VexBase, C > && requires( const C * c ) {
    vexMark( c, std::integral_constant< int, C::vexDepth >() );
  };
}

// A collection that class C declares: where an entity keeps it, and its id.
template< class Pointer > struct CollectionOf {
  Pointer storage;
  AttrId id;
};

namespace Detail {

// The collection that class C or a base declares under an id, in a tuple; reactors are none.
template< class C, AttrId id > constexpr auto collectionUnder() {
  if constexpr ( std::is_same_v< C, Entity > ) {
    return std::tuple<>();
  } else if constexpr ( requires { C::vexStorage( AttrTag< id >() ); } ) {
    constexpr auto storage = C::vexStorage( AttrTag< id >() );
    using Storage = std::remove_reference_t< decltype( std::declval< C & >().*storage ) >;
    if constexpr (
        requires { typename Storage::Key; } && !requires { typename Storage::Notifier; } ) {
      return std::make_tuple(
          CollectionOf< decltype( C::vexStorage( AttrTag< id >() ) ) >{ storage, id } );
    } else {
      return std::tuple<>();
    }
  } else {
    return collectionUnder< typename C::VexBase, id >();
  }
}

} // namespace Detail

template< class C >
constexpr auto collectionsOf = []< size_t... id >( std::index_sequence< id... > ) {
  return std::tuple_cat( Detail::collectionUnder< C, id >()... );
}
( std::make_index_sequence< 64 >() );

template< class C > constexpr size_t collectionCount() {
  return std::tuple_size_v< std::remove_const_t< decltype( collectionsOf< C > ) > >;
}

template< class C >
  requires( collectionCount< C >() == 1 )
constexpr auto onlyCollectionOf = std::get< 0 >( collectionsOf< C > );

// The key type of the only collection of class C.
template< class C >
using OnlyKeyOf =
    typename std::remove_reference_t< decltype( std::declval< C & >().*
                                                onlyCollectionOf< C >.storage ) >::Key;

// Whether none of its collections has a member.
template< class C > bool isEmpty( const C & entity ) {
  return std::apply(
      [ & ]( const auto &... each ) { return ( ( ( entity.*each.storage ).size() == 0 ) && ... ); },
      collectionsOf< C > );
}

} // namespace Vex
