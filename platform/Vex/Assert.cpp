#include "Vex/Assert.h"

#include "Vex/FatalEnd.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

namespace Vex {

namespace {

std::atomic< FatalEnd * > toFlush = nullptr;
std::atomic< FatalEnd * > toConclude = nullptr;

// With what is there for it, which is not there any more for what fails in it.
void attempt( std::atomic< FatalEnd * > & slot, const auto & step ) {
  if ( auto * const end = slot.exchange( nullptr ) ) {
    try {
      step( *end );
    } catch ( ... ) {}
  }
}

void write( std::string_view text ) {
  if ( text.empty() ) {
    return; // and perhaps nowhere
  }
  std::fwrite( text.data(), 1, text.size(), stderr );
}

std::string withoutExtension( std::string_view file ) {
  const auto dot = file.rfind( '.' );
  const auto slash = file.rfind( '/' );
  const bool extension = dot != file.npos && ( slash == file.npos || dot > slash );
  return std::string( extension ? file.substr( 0, dot ) : file );
}

} // namespace

void fatalEndIs( FatalEnd * end ) {
  toFlush = end;
  toConclude = end;
}

void sayLast( std::string_view message ) {
  static std::string_view unsaid; // while a flush that may fail is under way
  const auto before = std::exchange( unsaid, message );
  attempt( toFlush, []( FatalEnd & end ) { end.flush(); } );
  unsaid = {};
  write( before );
  write( message );
  std::fflush( stderr );
}

[[noreturn]] static void fail( const std::string & message ) {
  sayLast( message + "\n" );
  attempt( toConclude, [ & ]( FatalEnd & end ) { end.conclude( message ); } );
  std::abort();
}

void assertionFailed( const char * condition, const char * file, int line ) {
  fail( withoutExtension( file ) + ":" + std::to_string( line ) +
        ": assertion failed: " + condition );
}

void assertionFailed( const char * condition, const char * source, const char * file, int line ) {
  fail( withoutExtension( source ) + ": assertion failed: " + condition + " (" +
        withoutExtension( file ) + ":" + std::to_string( line ) + ")" );
}

} // namespace Vex
