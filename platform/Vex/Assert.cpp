#include "Vex/Assert.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace Vex {

namespace {

std::string_view withoutExtension( std::string_view file ) {
  const auto dot = file.rfind( '.' );
  const auto slash = file.rfind( '/' );
  const bool extension = dot != file.npos && ( slash == file.npos || dot > slash );
  return extension ? file.substr( 0, dot ) : file;
}

} // namespace

void assertionFailed( const char * condition, const char * file, int line ) {
  const auto source = withoutExtension( file );
  std::fprintf( stderr, "%.*s:%d: assertion failed: %s\n", static_cast< int >( source.size() ),
                source.data(), line, condition );
  std::fflush( stderr );
  std::abort();
}

void assertionFailed( const char * condition, const char * source, const char * file, int line ) {
  const auto owner = withoutExtension( source );
  const auto shared = withoutExtension( file );
  std::fprintf( stderr, "%.*s: assertion failed: %s (%.*s:%d)\n",
                static_cast< int >( owner.size() ), owner.data(), condition,
                static_cast< int >( shared.size() ), shared.data(), line );
  std::fflush( stderr );
  std::abort();
}

} // namespace Vex
