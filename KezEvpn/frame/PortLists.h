// Lists of ports in the order in which they joined, each kept once however many refer to it: nearly
// all VLANs of an interface are programmed on the same ports.
//
// A list is an id, and counts those who hold it. It is the list that it begins with, which it
// holds, and one port more; 0 is the empty one. `Port` is an interface, or a value that names one
// by its field `intfId`.
#pragma once

#include "Vex/Interned.h"
#include "Vex/Value.h"
#include "Wire/IntfId.h"

#include <vector>

namespace Kez {

template< class Port > class PortLists {
public:
  using Id = uint32_t;
  static constexpr Id empty = 0;

  static Wire::IntfId intfIdOf( const Port & port ) {
    if constexpr ( std::is_same_v< Port, Wire::IntfId > ) {
      return port;
    } else {
      return port.intfId;
    }
  }

  size_t size( Id list ) const { return list == empty ? 0 : steps_[ list ].size; }
  // Null for a port that is not there; good until a list changes.
  const Port * find( Id list, Wire::IntfId intfId ) const {
    for ( ; list != empty; list = steps_[ list ].before ) {
      if ( const Port & port = steps_[ list ].port; intfIdOf( port ) == intfId ) {
        return &port;
      }
    }
    return nullptr;
  }
  std::vector< Port > ports( Id list ) const {
    std::vector< Port > all( size( list ) );
    for ( ; list != empty; list = steps_[ list ].before ) {
      all[ steps_[ list ].size - 1 ] = steps_[ list ].port;
    }
    return all;
  }

  // `list` becomes the one that has the port too, or in the place of what it had of that interface.
  void portIs( Id & list, const Port & port ) {
    const Port * const standing = find( list, intfIdOf( port ) );
    if ( !standing ) {
      append( list, port );
    } else if ( *standing != port ) {
      auto all = ports( list );
      for ( auto & each : all ) {
        each = intfIdOf( each ) == intfIdOf( port ) ? port : each;
      }
      become( list, all );
    }
  }
  void portDel( Id & list, Wire::IntfId intfId ) {
    auto all = ports( list );
    if ( std::erase_if( all, [ & ]( const Port & each ) { return intfIdOf( each ) == intfId; } ) ) {
      become( list, all );
    }
  }
  // Who has held it does no more.
  void release( Id list ) {
    while ( list != empty ) {
      const Id before = steps_[ list ].before;
      if ( !steps_.drop( list ) ) {
        return;
      }
      list = before;
    }
  }

private:
  struct Step {
    Id before = empty;
    uint32_t size = 0; // of the list that the step leads to
    Port port;
    friend bool operator==( const Step &, const Step & ) = default;
    static constexpr auto vexFields() {
      return std::tuple( Vex::field( "before", &Step::before ), Vex::field( "size", &Step::size ),
                         Vex::field( "port", &Step::port ) );
    }
  };

  // A new list holds the former one in its caller's place.
  void append( Id & list, const Port & port ) {
    const Id longer = steps_.take( { list, static_cast< uint32_t >( size( list ) + 1 ), port } );
    if ( steps_.uses( longer ) > 1 ) {
      release( list );
    }
    list = longer;
  }
  void become( Id & list, const std::vector< Port > & all ) {
    const Id former = std::exchange( list, empty );
    for ( const Port & port : all ) {
      append( list, port );
    }
    release( former );
  }

  Vex::Interned< Step > steps_; // by the number of the list that each leads to
};

} // namespace Kez
