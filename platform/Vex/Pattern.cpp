#include "Vex/Pattern.h"

#include <algorithm>
#include <numeric>
#include <utility>
#include <vector>

namespace Vex {

namespace {

char lower( char c ) {
  return c >= 'A' && c <= 'Z' ? static_cast< char >( c - 'A' + 'a' ) : c;
}

} // namespace

bool isPattern( std::string_view text ) {
  return text.find_first_of( "*?" ) != text.npos;
}

bool matches( std::string_view pattern, std::string_view text ) {
  size_t at = 0;
  size_t afterStar = pattern.npos;
  size_t starEnd = 0;
  for ( size_t i = 0; i < text.size(); ) {
    if ( at < pattern.size() && pattern[ at ] == '*' ) {
      afterStar = ++at;
      starEnd = i;
    } else if ( at < pattern.size() && ( pattern[ at ] == '?' || pattern[ at ] == text[ i ] ) ) {
      ++at;
      ++i;
    } else if ( afterStar != pattern.npos ) {
      // The last star takes one more character; the ones before it need never change.
      at = afterStar;
      i = ++starEnd;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of( '*', at ) == pattern.npos;
}

size_t distance( std::string_view a, std::string_view b ) {
  std::vector< size_t > row( b.size() + 1 );
  std::iota( row.begin(), row.end(), size_t( 0 ) );
  for ( size_t i = 0; i < a.size(); ++i ) {
    size_t diagonal = std::exchange( row[ 0 ], i + 1 );
    for ( size_t j = 0; j < b.size(); ++j ) {
      const size_t replaced = diagonal + ( lower( a[ i ] ) == lower( b[ j ] ) ? 0 : 1 );
      diagonal = row[ j + 1 ];
      row[ j + 1 ] = std::min( { replaced, row[ j ] + 1, diagonal + 1 } );
    }
  }
  return row.back();
}

} // namespace Vex
