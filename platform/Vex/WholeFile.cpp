#include "Vex/WholeFile.h"

#include <cerrno>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace Vex {

namespace {

void expectReplaceable( const String & path ) {
  struct stat status {};
  if ( lstat( path.c_str(), &status ) == 0 && !S_ISREG( status.st_mode ) ) {
    throw std::runtime_error( "cannot write " + path + ": it is there and is no file of its own" );
  }
}

} // namespace

WholeFile::WholeFile( const String & path ) : path_( path ) {
  expectReplaceable( path_ );
  const auto own = path_ + "." + std::to_string( getpid() ) + ".";
  for ( unsigned number = 0; file_.number() < 0; ++number ) {
    temporary_ = own + std::to_string( number );
    file_ = Descriptor(
        open( temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666 ) );
    if ( file_.number() < 0 && errno != EEXIST ) {
      temporary_.clear();
      fail();
    }
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

void WholeFile::commit( mode_t mode ) {
  if ( fchmod( file_.number(), mode ) != 0 ) {
    fail();
  }
  commit();
}

void WholeFile::fail() const {
  throwSystemError( "cannot write " + path_ );
}

} // namespace Vex
