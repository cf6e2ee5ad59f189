#include "Vex/OwnFile.h"

#include <cerrno>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace Vex {

namespace {

constexpr int how = O_RDWR | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW;

mode_t & mode() {
  static mode_t mode = 0644;
  return mode;
}

void expectOwn( const String & path, const Descriptor & file ) {
  struct stat status {};
  if ( fstat( file.number(), &status ) != 0 ) {
    throwSystemError( "cannot read " + path );
  }
  if ( status.st_uid != geteuid() ) {
    throw std::runtime_error( path + " belongs to user " + std::to_string( status.st_uid ) +
                              ", expected " + std::to_string( geteuid() ) +
                              ", so it is left alone" );
  }
}

} // namespace

mode_t fileMode() {
  return mode();
}

void fileModeIs( mode_t newMode ) {
  mode() = newMode;
}

Descriptor makeFile( const String & path ) {
  Descriptor file( open( path.c_str(), how | O_CREAT | O_EXCL, fileMode() ) );
  const bool made = file.number() >= 0;
  if ( made ? fchmod( file.number(), fileMode() ) != 0 : errno != EEXIST ) {
    throwSystemError( "cannot make " + path );
  }
  return file;
}

Descriptor openOwnFile( const String & path ) {
  Descriptor file( open( path.c_str(), how ) );
  if ( file.number() >= 0 ) {
    expectOwn( path, file );
  } else if ( errno == ELOOP ) {
    throw std::runtime_error( path + " is a link, which is not followed" );
  } else if ( errno != ENOENT ) {
    throwSystemError( "cannot open " + path );
  }
  return file;
}

Descriptor openOrMakeOwnFile( const String & path ) {
  auto file = makeFile( path );
  if ( file.number() < 0 ) {
    file = openOwnFile( path );
  }
  if ( file.number() < 0 ) { // gone meanwhile
    throwSystemError( "cannot open " + path );
  }
  return file;
}

} // namespace Vex
