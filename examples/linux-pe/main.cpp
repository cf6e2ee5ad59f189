// A host of the machines over the soft switch: its loop waits for whoever asks at the door, for the
// switch, and for what is due, on one thread; the switch forwards on another.
//
// A real product's loop waits for its neighbours too: whoever gives it its inputs, its supervisor.
#include "Options.h"
#include "Ringlog/TextTrace.h"
#include "Vex/Clock.h"
#include "Wiring.h"
#include "shell/Door.h"
#include "shell/Line.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <iostream>
#include <poll.h>
#include <sys/signalfd.h>

namespace {

class Daemon : public KezShell::Host {
public:
  explicit Daemon( const LinuxPe::SwitchOptions & options )
      : options_( options ), wiring_( LinuxPe::wire( options_ ) ), shell_( *this ) {
    KezShell::addAudit( shell_ );
    shell_.commandIs(
        { "restart", "hitless", "end the machines and start them anew, over the switch as it is",
          "The switch forwards meanwhile, by what it has. What is asked for and stands is not\n"
          "programmed again, and once all machines have looked at their inputs the rest is removed;\n"
          "show takeover says how far that is.\n"
          "  restart hitless\n",
          KezShell::Effect::changes,
          [ this ]( Vex::TextCursor & in, KezShell::Session & ) { restart( in ); } } );
  }
  const KezShell::Roots & roots() const override { return wiring_.roots; }

  KezShell::Shell & shell() { return shell_; }
  LinuxPe::SoftSwitch & hardware() const { return *wiring_.softSwitch; }
  Loom::TaskScheduler & scheduler() const { return *wiring_.scheduler; }

private:
  void restart( Vex::TextCursor & in ) {
    const auto offset = in.offset();
    const auto how = KezShell::takeRest( in );
    if ( how != "hitless" ) {
      KezShell::failAt( offset, "hitless", how );
    }
    // What they hold is to end before it is made anew.
    shell_.answersDel( "the machines start anew" );
    wiring_ = LinuxPe::unwired( wiring_ );
    wiring_ = LinuxPe::wire( options_, wiring_ );
  }

  const LinuxPe::SwitchOptions & options_;
  LinuxPe::Wiring wiring_;
  KezShell::Shell shell_;
};

// Those that end the program are read like anything else.
Vex::Descriptor endingSignals() {
  sigset_t ending;
  sigemptyset( &ending );
  sigaddset( &ending, SIGTERM );
  sigaddset( &ending, SIGINT );
  sigprocmask( SIG_BLOCK, &ending, nullptr );
  std::signal( SIGPIPE, SIG_IGN );
  Vex::Descriptor signals( signalfd( -1, &ending, SFD_CLOEXEC ) );
  if ( signals.number() < 0 ) {
    Vex::throwSystemError( "cannot wait for signals" );
  }
  return signals;
}

int millisecondsTo( std::optional< double > deadline ) {
  constexpr double longest = 3600;
  return deadline ? static_cast< int >( std::ceil(
                        std::clamp( *deadline - Vex::Clock::now(), 0.0, longest ) * 1000 ) )
                  : -1;
}

void serve( const LinuxPe::Options & options ) {
  const auto signals = endingSignals();
  Daemon daemon( options.hardware );
  KezShell::Door door( daemon.shell() );
  door.socketIs( options.socket, KezShell::Rights::change, 0600 );
  auto & hardware = daemon.hardware();
  std::array< pollfd, 3 > watched{ { { signals.number(), POLLIN, 0 },
                                     { hardware.descriptor(), POLLIN, 0 },
                                     { door.descriptor(), POLLIN, 0 } } };
  std::cout << "serving at " << options.socket << std::endl;
  while ( !watched[ 0 ].revents ) {
    daemon.scheduler().runReady();
    poll( watched.data(), watched.size(), millisecondsTo( daemon.scheduler().nextDeadline() ) );
    if ( watched[ 1 ].revents ) {
      hardware.serve();
    }
    if ( watched[ 2 ].revents ) {
      door.serve();
    }
  }
}

} // namespace

int main( int count, char ** values ) {
  try {
    const auto options = LinuxPe::parseOptions( { values + 1, values + count } );
    if ( options.help ) {
      std::cout << LinuxPe::usage;
      return 0;
    }
    if ( !options.trace.empty() ) {
      Ringlog::traceIs( options.trace );
    }
    serve( options );
    return 0;
  } catch ( const LinuxPe::UsageError & error ) {
    std::cerr << "linux-pe: " << error.what() << '\n';
    return 2;
  } catch ( const std::exception & error ) {
    std::cerr << "linux-pe: " << error.what() << '\n';
    return 1;
  }
}
