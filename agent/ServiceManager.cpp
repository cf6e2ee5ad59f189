#include "agent/ServiceManager.h"

#include "Vex/Clock.h"
#include "Vex/Descriptor.h"

#include <algorithm>
#include <cstdlib>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Agent {

ServiceManager::ServiceManager() : told_( Vex::Clock::steadyNow() ) {
  const auto * const microseconds = std::getenv( "WATCHDOG_USEC" );
  const auto * const process = std::getenv( "WATCHDOG_PID" );
  if ( microseconds && ( !process || std::atoi( process ) == getpid() ) ) {
    // Twice in time, as is usual.
    interval_ = std::max( std::atof( microseconds ), 1.0 ) / 2e6;
  }
}

void ServiceManager::tell( std::string_view state ) const {
  const auto * const name = std::getenv( "NOTIFY_SOCKET" );
  sockaddr_un address{};
  const std::string_view path( name ? name : "" );
  if ( path.empty() || path.size() >= sizeof( address.sun_path ) ) {
    return;
  }
  address.sun_family = AF_UNIX;
  path.copy( address.sun_path, path.size() );
  if ( path[ 0 ] == '@' ) { // a name that is in no file system
    address.sun_path[ 0 ] = '\0';
  }
  const Vex::Descriptor socket( ::socket( AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0 ) );
  // Nothing depends on whether somebody listens.
  sendto( socket.number(), state.data(), state.size(), MSG_NOSIGNAL,
          reinterpret_cast< const sockaddr * >( &address ),
          static_cast< socklen_t >( offsetof( sockaddr_un, sun_path ) + path.size() ) );
}

std::optional< double > ServiceManager::timeLeft() const {
  return interval_ ? std::optional( told_ + *interval_ - Vex::Clock::steadyNow() ) : std::nullopt;
}

void ServiceManager::alive() {
  if ( const auto left = timeLeft(); left && *left <= 0 ) {
    tell( "WATCHDOG=1" );
    told_ = Vex::Clock::steadyNow();
  }
}

} // namespace Agent
