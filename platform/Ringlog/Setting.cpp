#include "Ringlog/Setting.h"

#include "Ringlog/Trace.h"
#include "Vex/Pattern.h"

namespace Ringlog {

namespace {

// The bits of levels `first` to `last`.
constexpr uint32_t levelRange( int first, int last ) {
  return ( 2u << last ) - ( 1u << first );
}

int parseLevel( Vex::TextCursor & in, int lowest ) {
  const auto digits = in.rest().substr( 0, in.rest().find_first_not_of( "0123456789" ) );
  if ( digits.size() != 1 || digits[ 0 ] < '0' + lowest ) {
    in.fail( "a level from " + std::to_string( lowest ) + " to " + std::to_string( highestLevel ) );
  }
  in.skip( digits );
  return digits[ 0 ] - '0';
}

uint32_t parseLevels( Vex::TextCursor & in ) {
  uint32_t levels = 0;
  do {
    const int first = parseLevel( in, 0 );
    levels |= levelRange( first, in.skip( "-" ) ? parseLevel( in, first ) : first );
  } while ( in.skip( "+" ) );
  return levels;
}

// Checks the characters, so that a setting with a misspelt separator is not a pattern that
// matches nothing.
std::string_view parsePattern( Vex::TextCursor & in ) {
  constexpr std::string_view characters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                          "0123456789_*?";
  const auto pattern = in.rest().substr( 0, in.rest().find_first_not_of( characters ) );
  if ( pattern.empty() ) {
    in.fail( "a handle name or pattern" );
  }
  in.skip( pattern );
  return pattern;
}

} // namespace

Setting::Setting( std::string_view text ) : text_( text ) {
  if ( text.empty() ) {
    return;
  }
  Vex::TextCursor in( text );
  do {
    const auto pattern = parsePattern( in );
    const bool hasLevels = in.skip( "/" );
    const auto levels = hasLevels ? parseLevels( in ) : levelRange( 0, highestLevel );
    if ( !in.done() && !in.startsWith( "," ) ) {
      in.fail( hasLevels ? "'+', ',' or the end" : "'/', ',' or the end" );
    }
    entries_.push_back( { Vex::String( pattern ), levels } );
  } while ( in.skip( "," ) );
}

uint32_t Setting::levels( std::string_view handleName ) const {
  uint32_t levels = 0;
  for ( const auto & entry : entries_ ) {
    if ( Vex::matches( entry.pattern, handleName ) ) {
      levels |= entry.levels;
    }
  }
  return levels;
}

} // namespace Ringlog
