#include "shell/ListeningSocket.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace KezShell {

using Vex::String;

namespace {

[[noreturn]] void fail( const String & path, const String & why ) {
  throw std::runtime_error( "cannot listen at " + path + ": " + why );
}

[[noreturn]] void failBySystem( const String & path ) {
  fail( path, std::strerror( errno ) );
}

sockaddr_un addressOf( const String & path ) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if ( path.empty() || path.size() >= sizeof( address.sun_path ) ) {
    fail( path, "expected a path of 1 to " + std::to_string( sizeof( address.sun_path ) - 1 ) +
                    " bytes" );
  }
  path.copy( address.sun_path, path.size() );
  return address;
}

Vex::Descriptor newSocket( const String & path ) {
  Vex::Descriptor made( socket( AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0 ) );
  if ( made.number() < 0 ) {
    failBySystem( path );
  }
  return made;
}

// Removes a socket's name that nobody serves.
void clear( const String & path, const sockaddr_un & address ) {
  struct stat there {};
  if ( lstat( path.c_str(), &there ) != 0 ) {
    return;
  }
  if ( !S_ISSOCK( there.st_mode ) ) {
    fail( path, "there is a file of this name, which is no socket" );
  }
  if ( there.st_uid != geteuid() ) {
    fail( path, "there is a socket of another user" );
  }
  const auto probe = newSocket( path );
  if ( connect( probe.number(), reinterpret_cast< const sockaddr * >( &address ),
                sizeof( address ) ) == 0 ||
       errno != ECONNREFUSED ) {
    fail( path, "another process serves it" );
  }
  if ( unlink( path.c_str() ) != 0 ) {
    failBySystem( path );
  }
}

} // namespace

ListeningSocket::ListeningSocket( const String & path, mode_t mode )
    : path_( path ), socket_( newSocket( path ) ) {
  const auto address = addressOf( path );
  // Two that find a dead name at once would each remove the other's.
  const auto slash = path.rfind( '/' );
  const auto directory = slash == String::npos ? "." : path.substr( 0, slash + 1 );
  const Vex::Descriptor lock( open( directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC ) );
  if ( lock.number() < 0 ) {
    failBySystem( path );
  }
  if ( flock( lock.number(), LOCK_EX | LOCK_NB ) != 0 ) {
    fail( path, "another process is opening a socket in " + directory );
  }
  clear( path, address );
  // Made with no more than this mode, whatever the umask takes of it until it is set.
  fchmod( socket_.number(), mode );
  if ( bind( socket_.number(), reinterpret_cast< const sockaddr * >( &address ),
             sizeof( address ) ) != 0 ||
       chmod( path.c_str(), mode ) != 0 || lstat( path.c_str(), &name_ ) != 0 ||
       listen( socket_.number(), SOMAXCONN ) != 0 ) {
    failBySystem( path );
  }
}

ListeningSocket::~ListeningSocket() {
  struct stat there {};
  if ( lstat( path_.c_str(), &there ) == 0 && there.st_dev == name_.st_dev &&
       there.st_ino == name_.st_ino ) {
    unlink( path_.c_str() );
  }
}

} // namespace KezShell
