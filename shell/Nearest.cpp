#include "shell/Nearest.h"

#include <algorithm>
#include <cctype>
#include <numeric>

namespace KezShell {

using Vex::String;

namespace {

constexpr size_t few = 8;
constexpr size_t shown = 3;

bool isSame( char a, char b ) {
  const auto lower = []( char c ) { return std::tolower( static_cast< unsigned char >( c ) ); };
  return lower( a ) == lower( b );
}

// How many characters are to be added, left out or replaced (the Wagner-Fischer algorithm, a row
// at a time). What follows what was typed is not counted: names are cut short more than misspelt.
size_t distance( std::string_view typed, std::string_view name ) {
  std::vector< size_t > row( typed.size() + 1 );
  std::iota( row.begin(), row.end(), 0 );
  size_t least = row.back();
  for ( size_t i = 0; i < name.size(); ++i ) {
    size_t diagonal = row[ 0 ]++;
    for ( size_t j = 0; j < typed.size(); ++j ) {
      const size_t replaced = diagonal + !isSame( name[ i ], typed[ j ] );
      diagonal = row[ j + 1 ];
      row[ j + 1 ] = std::min( { replaced, diagonal + 1, row[ j ] + 1 } );
    }
    least = std::min( least, row.back() );
  }
  return least;
}

} // namespace

std::vector< String > nearest( std::vector< String > names, std::string_view to ) {
  if ( names.size() <= few ) {
    return names;
  }
  std::stable_sort( names.begin(), names.end(), [ & ]( const String & a, const String & b ) {
    return distance( to, a ) < distance( to, b );
  } );
  names.resize( shown );
  return names;
}

} // namespace KezShell
