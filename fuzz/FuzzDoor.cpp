// Whoever is at the door, and however it writes, reads and leaves: each line is answered once, a
// session that may look alone leaves the inputs as they were, and none stays when it has gone.
#include "Lines.h"
#include "Vex/Clock.h"
#include "agent/Shell.h"
#include "shell/Door.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iostream>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>

namespace {

using KezShell::Rights;

[[noreturn]] void wrong( const std::string & what ) {
  std::cerr << what << "\n";
  std::abort();
}

// A peer whose pace the first bytes of the input say.
class Visitor {
public:
  Visitor( KezShell::Door & door, Rights rights, size_t portion )
      : door_( door ), portion_( portion ) {
    int ends[ 2 ];
    if ( socketpair( AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends ) != 0 ) {
      wrong( "no pair of sockets" );
    }
    own_ = Vex::Descriptor( ends[ 0 ] );
    door_.peerIs( Vex::Descriptor( ends[ 1 ] ), rights );
  }
  // Writes all of it and reads what it is answered, a portion at a time, unless it leaves after so
  // many turns.
  void live( std::string_view text, size_t turns ) {
    for ( size_t turn = 0; turn < turns && !left_; ++turn ) {
      if ( !text.empty() ) {
        const auto size = std::min( portion_, text.size() );
        const auto sent = send( own_.number(), text.data(), size, MSG_NOSIGNAL );
        text.remove_prefix( sent > 0 ? static_cast< size_t >( sent ) : 0 );
      } else {
        shutdown( own_.number(), SHUT_WR );
      }
      serve();
      read();
    }
    own_ = Vex::Descriptor();
    for ( size_t turn = 0; door_.peers() > 0; ++turn ) {
      serve();
      if ( turn == 1'000'000 ) {
        wrong( "a session stays when its peer has gone" );
      }
    }
  }
  // Whether the door ended the session, having answered all there was.
  bool wasLeft() const { return left_; }
  size_t answered() const { return answered_; }

private:
  void serve() {
    pollfd watched{ door_.descriptor(), POLLIN, 0 };
    if ( poll( &watched, 1, 0 ) > 0 ) {
      door_.serve();
    }
  }
  void read() {
    std::array< char, 4096 > some;
    const auto got = recv( own_.number(), some.data(), std::min( portion_, some.size() ), 0 );
    left_ = got == 0;
    for ( ssize_t i = 0; i < got; ++i ) {
      line_ += some[ static_cast< size_t >( i ) ];
      if ( line_.back() == '\n' ) {
        answered_ += line_ == ". ok\n" || line_ == ". failed\n" || line_ == ". bad\n";
        line_.clear();
      }
    }
  }

  KezShell::Door & door_;
  const size_t portion_;
  Vex::Descriptor own_;
  std::string line_;
  size_t answered_ = 0;
  bool left_ = false;
};

// As a console is shown them.
std::string inputsOf( Agent::Shell & shell, const Agent::Wiring & wiring,
                      std::ostringstream & out ) {
  out.str( {} );
  for ( const auto & root : wiring.roots.ofRole( KezShell::Role::input ) ) {
    shell.execute( "show " + root.entity->name(), "fuzz:1" );
  }
  return out.str();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t * data, size_t size ) {
  if ( size < 3 ) {
    return 0;
  }
  Vex::Clock::virtualIs( 0 );
  const auto rights = data[ 0 ] & 1 ? Rights::look : Rights::change;
  const size_t portion = data[ 0 ] & 2 ? 4096 : 1 + data[ 1 ];
  const size_t turns = data[ 2 ] ? data[ 2 ] : 1'000'000;

  std::istringstream given( std::string( reinterpret_cast< const char * >( data + 3 ), size - 3 ) );
  std::string lines;
  size_t count = 0;
  bool quits = false;
  for ( std::string line; std::getline( given, line ); ) {
    if ( !Fuzz::isLeftOut( line ) ) {
      lines += line + "\n";
      ++count;
      quits = quits || line.find( "quit" ) != line.npos || line.find( "exit" ) != line.npos;
    }
  }

  auto wiring = Agent::wire();
  std::ostringstream out;
  Agent::Shell shell( wiring, out, out );
  const auto before = inputsOf( shell, wiring, out );
  KezShell::Door door( shell.commands(), { 1, 1000, 30 } );
  Visitor visitor( door, rights, portion );
  visitor.live( lines, turns );
  if ( visitor.answered() > count ) {
    wrong( "more answers than lines" );
  }
  if ( turns == 1'000'000 && !visitor.wasLeft() ) {
    wrong( "the session does not end" );
  }
  if ( visitor.wasLeft() && !quits && visitor.answered() != count ) {
    wrong( std::to_string( count ) + " lines, " + std::to_string( visitor.answered() ) +
           " answers" );
  }
  if ( rights == Rights::look && inputsOf( shell, wiring, out ) != before ) {
    wrong( "a session that may look alone has changed an input" );
  }
  return 0;
}
