#include "Mpls/Lfib.h"

#include <algorithm>

namespace Mpls {

void appendText( Vex::TextBuffer & out, LfibViaKey key ) {
  appendText( out, key.viaType() );
  out.append( ':' );
  appendText( out, key.number() );
}

void parseText( Vex::TextCursor & in, LfibViaKey & key ) {
  constexpr auto types = vexNames( LfibViaType() );
  Vex::TextCursor word( in.peekWord() );
  const auto typeText = word.rest().substr( 0, word.rest().find( ':' ) );
  const auto type = std::find( types.begin(), types.end(), typeText );
  uint32_t number = 0;
  if ( type != types.end() && word.skip( typeText ) && word.skip( ":" ) &&
       Vex::readNumber( word, number ) && word.done() && number <= LfibViaKey::highestNumber ) {
    in.word();
    key = LfibViaKey( static_cast< LfibViaType >( type - types.begin() ), number );
    return;
  }
  Vex::String expected = "a via's key, <type>:<0 to 16777215>, of the type";
  for ( const auto name : types ) {
    expected += ' ';
    expected += name;
  }
  in.fail( expected );
}

LfibViaKeys::LfibViaKeys( std::initializer_list< LfibViaKey > keys ) {
  for ( const auto key : keys ) {
    append( key );
  }
}

void LfibViaKeys::append( LfibViaKey key ) {
  if ( size_ == keys_.size() ) {
    throw Vex::RangeError( "LfibViaKeys::size > 8 not allowed" );
  }
  keys_[ size_++ ] = key;
}

uint32_t LfibViaKeys::hash( uint32_t seed ) const {
  for ( const auto key : *this ) {
    seed = key.hash( seed );
  }
  return seed;
}

void appendText( Vex::TextBuffer & out, const LfibViaKeys & keys ) {
  std::string_view separator;
  for ( const auto key : keys ) {
    out.append( separator );
    appendText( out, key );
    separator = ",";
  }
}

void parseText( Vex::TextCursor & in, LfibViaKeys & keys ) {
  keys = LfibViaKeys();
  if ( in.peekWord().empty() ) {
    return;
  }
  do {
    const auto at = in;
    LfibViaKey key;
    parseText( in, key );
    if ( !key ) {
      at.fail( "a via's key that is not empty" );
    }
    keys.append( key );
  } while ( in.skip( "," ) );
}

} // namespace Mpls
