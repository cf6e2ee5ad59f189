#include "agent/Serve.h"

#include "Vex/Descriptor.h"
#include "agent/ServiceManager.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <poll.h>
#include <sys/signalfd.h>

namespace Agent {

namespace {

// While it lives, the signals that end the agent make its descriptor readable instead.
class EndingSignals {
public:
  EndingSignals() {
    sigset_t ending;
    sigemptyset( &ending );
    sigaddset( &ending, SIGTERM );
    sigaddset( &ending, SIGINT );
    sigprocmask( SIG_BLOCK, &ending, &before_ );
    descriptor_ = Vex::Descriptor( signalfd( -1, &ending, SFD_CLOEXEC ) );
    if ( descriptor_.number() < 0 ) {
      Vex::throwSystemError( "cannot wait for signals" );
    }
  }
  ~EndingSignals() {
    // What has come is dealt with.
    signalfd_siginfo come;
    while ( isThere() && read( descriptor_.number(), &come, sizeof( come ) ) > 0 ) {}
    sigprocmask( SIG_SETMASK, &before_, nullptr );
  }
  EndingSignals( const EndingSignals & ) = delete;
  EndingSignals & operator=( const EndingSignals & ) = delete;

  int descriptor() const { return descriptor_.number(); }

private:
  bool isThere() const {
    pollfd watched{ descriptor(), POLLIN, 0 };
    return poll( &watched, 1, 0 ) > 0;
  }

  sigset_t before_;
  Vex::Descriptor descriptor_;
};

// Milliseconds until the next turn is due, the service manager wants to hear something, or figures
// are to be written; -1 when there is no such time.
int timeToWait( const Shell & shell, const ServiceManager & manager, const MetricsFile * metrics ) {
  auto seconds = manager.timeLeft();
  const auto noLaterThan = [ & ]( std::optional< double > left ) {
    if ( left ) {
      seconds = std::min( seconds.value_or( *left ), *left );
    }
  };
  noLaterThan( shell.timeToTurn() );
  noLaterThan( metrics ? std::optional( metrics->timeLeft() ) : std::nullopt );
  return millisecondsOf( seconds );
}

} // namespace

void serve( Shell & shell, KezShell::Door & door, MetricsFile * metrics, std::ostream & out ) {
  const EndingSignals signals;
  std::signal( SIGPIPE, SIG_IGN ); // what is traced may lose its reader
  ServiceManager manager;
  manager.tell( "READY=1" );
  std::array< pollfd, 2 > watched{ { { door.descriptor(), POLLIN, 0 },
                                     { signals.descriptor(), POLLIN, 0 } } };
  while ( !watched[ 1 ].revents ) {
    // A turn, and then something at the door: neither holds up the other.
    const bool ran = shell.turn();
    out.flush();
    manager.alive();
    if ( metrics ) {
      metrics->refresh();
    }
    if ( poll( watched.data(), watched.size(), ran ? 0 : timeToWait( shell, manager, metrics ) ) >
             0 &&
         watched[ 0 ].revents ) {
      door.serve();
    }
  }
  if ( metrics ) {
    metrics->write();
  }
  manager.tell( "STOPPING=1" );
}

} // namespace Agent
