// What a kez-agent has taken when the first line of its first answer is there: processor time, and
// memory at the most.
#include "Ratio.h"

#include "Vex/Descriptor.h"

#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Pipe {
  Pipe() {
    int ends[ 2 ];
    if ( pipe2( ends, O_CLOEXEC ) != 0 ) {
      Vex::throwSystemError( "a pipe" );
    }
    out = Vex::Descriptor( ends[ 0 ] );
    in = Vex::Descriptor( ends[ 1 ] );
  }
  Vex::Descriptor out, in;
};

// An agent of its own, which executes what it is told.
class Agent {
public:
  Agent() {
    char * arguments[] = { name_, run_, standardInput_, nullptr };
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init( &files );
    posix_spawn_file_actions_adddup2( &files, lines_.out.number(), STDIN_FILENO );
    posix_spawn_file_actions_adddup2( &files, answers_.in.number(), STDOUT_FILENO );
    errno = posix_spawn( &process_, KEZ_AGENT, &files, nullptr, arguments, environ );
    posix_spawn_file_actions_destroy( &files );
    if ( errno != 0 ) {
      Vex::throwSystemError( KEZ_AGENT );
    }
    answers_.in = Vex::Descriptor(); // so that they end with it
  }
  ~Agent() {
    kill( process_, SIGKILL );
    waitpid( process_, nullptr, 0 );
  }
  Agent( const Agent & ) = delete;
  Agent & operator=( const Agent & ) = delete;

  // The first line of its answer to `line`, or what there was of it when it ended.
  std::string answer( const std::string & line ) {
    std::string text;
    if ( write( lines_.in.number(), line.data(), line.size() ) ==
         static_cast< ssize_t >( line.size() ) ) {
      for ( char each = 0; read( answers_.out.number(), &each, 1 ) == 1 && each != '\n'; ) {
        text += each;
      }
    }
    return text;
  }
  double processorSeconds() const {
    clockid_t clock = 0;
    timespec spent{};
    clock_getcpuclockid( process_, &clock );
    clock_gettime( clock, &spent );
    return double( spent.tv_sec ) + double( spent.tv_nsec ) / 1e9;
  }
  double mostResidentKiB() const {
    std::ifstream status( "/proc/" + std::to_string( process_ ) + "/status" );
    double most = 0;
    for ( std::string word; status >> word; ) {
      if ( word == "VmHWM:" ) {
        status >> most;
      }
    }
    return most;
  }

private:
  char name_[ 10 ] = "kez-agent";
  char run_[ 4 ] = "run";
  char standardInput_[ 2 ] = "-";
  Pipe lines_, answers_;
  pid_t process_ = 0;
};

void start( benchmark::State & state ) {
  std::vector< double > milliseconds, mebibytes;
  for ( auto _ : state ) {
    Agent agent;
    const auto line = agent.answer( "show switch\n" );
    if ( !line.starts_with( "switch " ) ) {
      state.SkipWithError( ( "expected an answer, found '" + line + "'" ).c_str() );
      return;
    }
    const double spent = agent.processorSeconds();
    state.SetIterationTime( spent );
    milliseconds.push_back( spent * 1e3 );
    mebibytes.push_back( agent.mostResidentKiB() / 1024 );
  }
  state.counters[ "cpu_ms" ] = Bench::median( milliseconds );
  state.counters[ "resident_mib" ] = Bench::median( mebibytes );
}
BENCHMARK( start )->UseManualTime()->Unit( benchmark::kMillisecond );

} // namespace
