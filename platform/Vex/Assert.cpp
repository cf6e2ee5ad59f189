#include "Vex/Assert.h"

#include "Vex/FatalEnd.h"
#include "Vex/Said.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <iterator>
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

// As much of a text as fits, for there may be no memory.
class LastText {
public:
  void append( std::string_view text ) {
    text = text.substr( 0, sizeof( text_ ) - 1 - size_ ); // a line end is left room for
    std::copy( text.begin(), text.end(), text_ + size_ );
    size_ += text.size();
  }
  void append( int number ) {
    char digits[ 12 ];
    append( { digits, std::to_chars( digits, std::end( digits ), number ).ptr } );
  }
  void appendPlace( std::string_view file ) {
    const auto dot = file.rfind( '.' );
    const auto slash = file.rfind( '/' );
    const bool extension = dot != file.npos && ( slash == file.npos || dot > slash );
    append( extension ? file.substr( 0, dot ) : file );
  }
  std::string_view text() const { return { text_, size_ }; }
  std::string_view line() {
    text_[ size_ ] = '\n';
    return { text_, size_ + 1 };
  }

private:
  char text_[ 4096 ];
  size_t size_ = 0;
};

// After all that was said before.
void sayLast( std::string_view message ) {
  static thread_local std::string_view unsaid; // while a flush that may fail is under way
  const auto before = std::exchange( unsaid, message );
  attempt( toFlush, []( FatalEnd & end ) { end.flush(); } );
  unsaid = {};
  write( before );
  write( message );
  std::fflush( stderr );
}

[[noreturn]] void fail( LastText & message ) {
  sayLast( message.line() );
  attempt( toConclude, [ & ]( FatalEnd & end ) { end.conclude( message.text() ); } );
  std::abort();
}

} // namespace

void fatalEndIs( FatalEnd * end ) {
  toFlush = end;
  toConclude = end;
}

void assertionFailed( const char * condition, const char * file, int line,
                      std::string_view said ) noexcept {
  LastText message;
  message.append( said );
  message.append( said.empty() ? "" : "\n" );
  message.appendPlace( file );
  message.append( ":" );
  message.append( line );
  message.append( ": assertion failed: " );
  message.append( condition );
  fail( message );
}

void assertionFailed( const char * condition, const char * source, const char * file,
                      int line ) noexcept {
  assertionFailed( condition, source, file, line, {} );
}

void assertionFailed( const char * condition, const char * source, const char * file, int line,
                      std::string_view said ) noexcept {
  LastText message;
  message.append( said );
  message.append( said.empty() ? "" : "\n" );
  message.appendPlace( source );
  message.append( ": assertion failed: " );
  message.append( condition );
  message.append( " (" );
  message.appendPlace( file );
  message.append( ":" );
  message.append( line );
  message.append( ")" );
  fail( message );
}

} // namespace Vex
