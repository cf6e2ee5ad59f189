#include "Vex/WholeFile.h"

#include "Vex/OwnFile.h"

#include <cerrno>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace Vex {

namespace {

void expectReplaceable( const String & path ) {
  const auto file = openOwnFile( path );
  struct stat status {};
  if ( file.number() >= 0 && fstat( file.number(), &status ) == 0 && !S_ISREG( status.st_mode ) ) {
    throw std::runtime_error( "cannot write " + path + ": it is there and is no file" );
  }
}

} // namespace

WholeFile::WholeFile( const String & path ) : path_( path ) {
  expectReplaceable( path_ );
  const auto own = path_ + "." + std::to_string( getpid() ) + ".";
  for ( unsigned number = 0; file_.number() < 0; ++number ) {
    auto name = own + std::to_string( number );
    file_ = makeFile( name );
    temporary_ = std::move( name );
  }
}

WholeFile::~WholeFile() {
  if ( !temporary_.empty() ) {
    unlink( temporary_.c_str() );
  }
}

void WholeFile::write( std::string_view text ) {
  while ( !text.empty() ) {
    const auto written = ::write( file_.number(), text.data(), text.size() );
    if ( written >= 0 ) {
      text.remove_prefix( static_cast< size_t >( written ) );
    } else if ( errno != EINTR ) {
      fail();
    }
  }
}

void WholeFile::commit() {
  expectReplaceable( path_ );
  if ( rename( temporary_.c_str(), path_.c_str() ) != 0 ) {
    fail();
  }
  temporary_.clear();
}

void WholeFile::fail() const {
  throwSystemError( "cannot write " + path_ );
}

} // namespace Vex
