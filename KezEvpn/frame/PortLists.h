// Lists of ports in the order in which they joined, each kept once however many refer to it: nearly
// all VLANs of an interface are programmed on the same ports.
//
// A list is an id, and counts those who hold it. It is the list that it begins with, which it
// holds, and one port more; 0 is the empty one. `Port` is an interface, or a value that names one
// by its field `intfId`.
#pragma once

#include "Vex/Collection.h"
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

  size_t size( Id list ) const { return nodes_[ list ].size; }
  // Null for a port that is not there; good until a list changes.
  const Port * find( Id list, Wire::IntfId intfId ) const {
    for ( ; list != empty; list = nodes_[ list ].step.before ) {
      if ( const Port & port = nodes_[ list ].step.port; intfIdOf( port ) == intfId ) {
        return &port;
      }
    }
    return nullptr;
  }
  std::vector< Port > ports( Id list ) const {
    std::vector< Port > all( size( list ) );
    for ( ; list != empty; list = nodes_[ list ].step.before ) {
      all[ nodes_[ list ].size - 1 ] = nodes_[ list ].step.port;
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
    while ( list != empty && --nodes_[ list ].uses == 0 ) {
      const Step step = nodes_[ list ].step;
      ids_.erase( step );
      free_.push_back( list );
      list = step.before;
    }
  }

private:
  struct Step {
    Id before = empty;
    Port port;
    friend bool operator==( const Step &, const Step & ) = default;
    static constexpr auto vexFields() {
      return std::tuple( Vex::field( "before", &Step::before ), Vex::field( "port", &Step::port ) );
    }
  };
  struct Node {
    Step step;
    uint32_t size = 0;
    uint32_t uses = 0;
  };

  // The new list holds the former one in its caller's place.
  void append( Id & list, const Port & port ) {
    const Step step{ list, port };
    const auto [ id, added ] = ids_.findOrAdd( step, [ & ] { return newNode( step ); } );
    const Id longer = *id;
    ++nodes_[ longer ].uses;
    if ( !added ) {
      release( list );
    }
    list = longer;
  }
  Id newNode( const Step & step ) {
    const Node node{ step, nodes_[ step.before ].size + 1, 0 };
    if ( free_.empty() ) {
      nodes_.push_back( node );
      return static_cast< Id >( nodes_.size() - 1 );
    }
    const Id id = free_.back();
    free_.pop_back();
    nodes_[ id ] = node;
    return id;
  }
  void become( Id & list, const std::vector< Port > & all ) {
    const Id former = std::exchange( list, empty );
    for ( const Port & port : all ) {
      append( list, port );
    }
    release( former );
  }

  std::vector< Node > nodes_ = std::vector< Node >( 1 ); // the empty list first
  std::vector< Id > free_;
  Vex::Collection< Step, Id > ids_; // of lists that are not empty
};

} // namespace Kez
