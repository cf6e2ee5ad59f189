#include "Vex/Assert.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace Vex {

void assertionFailed( const char * condition, const char * file, int line ) {
  std::string_view source( file );
  const auto dot = source.rfind( '.' );
  const auto slash = source.rfind( '/' );
  if ( dot != source.npos && ( slash == source.npos || dot > slash ) ) {
    source = source.substr( 0, dot );
  }
  std::fprintf( stderr, "%.*s:%d: assertion failed: %s\n", static_cast< int >( source.size() ),
                source.data(), line, condition );
  std::fflush( stderr );
  std::abort();
}

} // namespace Vex
