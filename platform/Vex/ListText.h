// The text form of lists of values: "[a,b]", "[]".
#pragma once

#include "Vex/Text.h"

namespace Vex {

// `appendOne( value )` appends one of them.
template< class List, class AppendOne >
void appendList( TextBuffer & out, const List & list, AppendOne && appendOne ) {
  std::string_view opening = "[";
  for ( const auto & value : list ) {
    out.append( opening );
    appendOne( value );
    opening = ",";
  }
  out.append( opening == "[" ? "[]" : "]" );
}

// `parseOne()` reads one and adds it.
template< class ParseOne > void parseList( TextCursor & in, ParseOne && parseOne ) {
  in.expect( "[" );
  for ( bool first = true; !in.skip( "]" ); first = false ) {
    if ( !first ) {
      in.expect( "," );
      in.skip( " " );
    }
    parseOne();
  }
}

} // namespace Vex
