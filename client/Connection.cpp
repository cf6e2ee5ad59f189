#include "client/Connection.h"

#include "shell/Framing.h"

#include <cerrno>
#include <sys/socket.h>
#include <sys/un.h>

namespace Agent {

using Vex::String;

Connection::Connection( const String & path )
    : path_( path ), socket_( socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0 ) ) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if ( path.size() >= sizeof( address.sun_path ) ) {
    throw std::runtime_error( "cannot connect to " + path + ": the path is too long" );
  }
  path.copy( address.sun_path, path.size() );
  if ( connect( socket_.number(), reinterpret_cast< const sockaddr * >( &address ),
                sizeof( address ) ) != 0 ) {
    Vex::throwSystemError( "cannot connect to " + path );
  }
  String refusal;
  const auto greeting =
      awaitStatus( [ & ]( std::string_view line, bool ) { refusal = String( line ); } );
  if ( greeting.empty() ) {
    throw std::runtime_error( path + ": " + ( refusal.empty() ? "it serves nobody" : refusal ) );
  }
  readOnly_ = greeting == "read-only";
}

Status Connection::ask( std::string_view line, const Hear & hear ) {
  const auto text = String( line ) + "\n";
  for ( size_t sent = 0; sent < text.size(); ) {
    const auto more =
        send( socket_.number(), text.data() + sent, text.size() - sent, MSG_NOSIGNAL );
    if ( more < 0 ) {
      Vex::throwSystemError( "cannot write to " + path_ );
    }
    sent += static_cast< size_t >( more );
  }
  const auto status = awaitStatus( hear );
  if ( status.empty() ) {
    throw std::runtime_error( path_ + ": the agent has ended the session" );
  }
  return status == "ok" ? Status::ok : status == "failed" ? Status::failed : Status::bad;
}

// Empty at the end of the connection.
String Connection::awaitStatus( const Hear & hear ) {
  for ( auto line = nextLine(); !line.empty(); line = nextLine() ) {
    line.pop_back();
    if ( line.starts_with( KezShell::statusMark ) ) {
      return line.substr( KezShell::statusMark.size() );
    }
    if ( line.starts_with( KezShell::errorMark ) ) {
      hear( std::string_view( line ).substr( KezShell::errorMark.size() ), true );
    } else {
      // Its own sign at a line's beginning comes twice.
      const bool isTwice = line.starts_with( ".." ) || line.starts_with( "!!" );
      hear( std::string_view( line ).substr( isTwice ), false );
    }
  }
  return {};
}

// With its end; empty at the end of the connection.
String Connection::nextLine() {
  for ( auto end = received_.find( '\n', at_ );; end = received_.find( '\n', at_ ) ) {
    if ( end != String::npos ) {
      auto line = received_.substr( at_, end + 1 - at_ );
      at_ = end + 1;
      return line;
    }
    received_.erase( 0, at_ );
    at_ = 0;
    pause_();
    char more[ 32 * 1024 ];
    const auto got = recv( socket_.number(), more, sizeof( more ), 0 );
    if ( got < 0 && errno == EINTR ) {
      throw Interrupted();
    }
    if ( got <= 0 ) {
      return {};
    }
    received_.append( more, static_cast< size_t >( got ) );
  }
}

} // namespace Agent
