// Words of a line that name something of a topology. What does not raises Vex::ParseError with its
// place in the line, or KezShell::BadLine.
#pragma once

#include "fabric/Topology.h"
#include "shell/Line.h"

#include <functional>

namespace Fabric {

template< class T > T takeValue( Vex::TextCursor & in ) {
  const size_t offset = in.offset();
  const auto word = KezShell::takeWord( in );
  return KezShell::inTextAt( offset + 1, [ & ] { return Vex::parseBriefly< T >( word ); } );
}

// One or more, separated by commas.
template< class T > std::vector< T > takeValues( Vex::TextCursor & in ) {
  const size_t offset = in.offset();
  const auto word = KezShell::takeWord( in );
  std::vector< T > values;
  for ( size_t from = 0; from <= word.size(); ) {
    const auto to = std::min( word.find( ',', from ), word.size() );
    values.push_back( KezShell::inTextAt( offset + from + 1, [ & ] {
      return Vex::parseBriefly< T >( word.substr( from, to - from ) );
    } ) );
    from = to + 1;
  }
  return values;
}

// Whether the word comes next, and takes it if so.
inline bool skipWord( Vex::TextCursor & in, std::string_view word ) {
  auto ahead = in;
  if ( KezShell::takeWord( ahead ) != word ) {
    return false;
  }
  in = ahead;
  return true;
}

inline void expectWord( Vex::TextCursor & in, std::string_view word ) {
  const size_t offset = in.offset();
  if ( !skipWord( in, word ) ) {
    KezShell::failAt( offset, String( word ), KezShell::takeWord( in ) );
  }
}

template< class All, class NameOf >
Index takeNamed( Vex::TextCursor & in, const char * what, const All & all, NameOf && nameOf ) {
  const size_t offset = in.offset();
  const auto word = KezShell::takeWord( in );
  const auto index = indexOf( all, word, nameOf );
  if ( !index ) {
    KezShell::failAt( offset, what, word );
  }
  return *index;
}

inline Index takeNode( Vex::TextCursor & in, const Topology & topology ) {
  return takeNamed( in, "a switch", topology.nodes,
                    []( const String & name ) -> const String & { return name; } );
}

inline Index takeSegment( Vex::TextCursor & in, const Topology & topology ) {
  return takeNamed( in, "a segment", topology.segments, std::mem_fn( &Segment::name ) );
}

inline Index takeHost( Vex::TextCursor & in, const Topology & topology ) {
  return takeNamed( in, "a host", topology.hosts, std::mem_fn( &Host::name ) );
}

} // namespace Fabric
