#include "shell/Nearest.h"

#include "Vex/Pattern.h"

#include <algorithm>

namespace KezShell {

using Vex::String;

namespace {

constexpr size_t few = 8;
constexpr size_t shown = 3;

} // namespace

std::vector< String > nearest( std::vector< String > names, std::string_view to ) {
  if ( names.size() <= few ) {
    return names;
  }
  std::stable_sort( names.begin(), names.end(), [ & ]( const String & a, const String & b ) {
    return Vex::distance( to, a ) < Vex::distance( to, b );
  } );
  names.resize( shown );
  return names;
}

} // namespace KezShell
