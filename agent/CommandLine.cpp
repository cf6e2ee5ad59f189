#include "agent/CommandLine.h"

#include "Kez/Toggles.h"
#include "Ringlog/Ring.h"
#include "Rook/TableWriter.h"
#include "Vex/Clock.h"
#include "Vex/FatalEnd.h"
#include "Vex/OwnFile.h"
#include "Vex/WholeFile.h"
#include "agent/EndingSignal.h"
#include "agent/MetricsFile.h"
#include "agent/Options.h"
#include "agent/Serve.h"
#include "agent/Session.h"
#include "client/Attach.h"
#include "client/Terminal.h"
#include "program/FileKind.h"
#include "record/SteppedPace.h"
#include "switch/SwitchJournal.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <unistd.h>

namespace Agent {

namespace {

// Keeps the ring of the options mounted, if they have one.
class MountedRing {
public:
  explicit MountedRing( const std::string & file ) {
    constexpr size_t bytes = 16 << 20;
    if ( !file.empty() ) {
      Ringlog::ringIs( file, bytes );
    }
  }
  ~MountedRing() { Ringlog::ringDel(); }
  MountedRing( const MountedRing & ) = delete;
  MountedRing & operator=( const MountedRing & ) = delete;
};

// While it lives, tables are mounted below the directory.
class MountDirectory {
public:
  explicit MountDirectory( const std::string & directory ) { Rook::mountDirectoryIs( directory ); }
  ~MountDirectory() { Rook::mountDirectoryIs( before_ ); }
  MountDirectory( const MountDirectory & ) = delete;
  MountDirectory & operator=( const MountDirectory & ) = delete;

private:
  const Vex::String before_ = Rook::mountDirectory();
};

// The journal that the options ask for, if they do.
class JournalOption {
public:
  JournalOption( const std::string & directory, Wiring & ground ) {
    if ( directory.empty() ) {
      return;
    }
    const MountDirectory mounted( directory );
    journal_.emplace( *ground.hardware );
    if ( !journal_->empty() ) {
      takeoverIs( ground );
    }
  }

private:
  std::optional< Switch::SwitchJournal > journal_;
};

std::string contents( const std::string & name ) {
  std::ifstream file( name );
  std::stringstream text;
  if ( file && file.peek() != std::ifstream::traits_type::eof() ) {
    text << file.rdbuf();
  }
  if ( !file.is_open() || file.bad() ) {
    throw std::runtime_error( "cannot read " + name + ": " + std::strerror( errno ) );
  }
  return std::move( text ).str();
}

// Files are read before the first line is executed, so that one that cannot be read is no
// surprise halfway.
std::vector< Source > readFiles( const std::vector< std::string > & names ) {
  std::vector< Source > sources;
  for ( const auto & name : names ) {
    if ( name == "-" ) {
      sources.push_back( { "stdin", nullptr } );
    } else {
      Program::expectKind( name, { Program::FileKind::lines, Program::FileKind::record } );
      sources.push_back( { name, std::make_unique< std::istringstream >( contents( name ) ) } );
    }
  }
  return sources;
}

// The report that the options ask for, if they do: it hears the session, and is written to its file
// when that is over.
class ReportFile {
public:
  ReportFile( const Options & options, const std::string & title, Wiring & wiring, Shell & shell )
      : name_( options.report ), wiring_( wiring ), shell_( shell ) {
    if ( name_.empty() ) {
      return;
    }
    const Vex::WholeFile possible( name_ ); // or it is told before anything is done
    auto & report = report_.emplace( title, wiring.roots );
    wiring.hardware->listenerIs( report );
    shell.traceListenerIs( [ &report ]( const auto & record ) { report.traceIs( record ); } );
  }
  ~ReportFile() {
    if ( report_ ) {
      wiring_.hardware->listenerDel( *report_ );
      shell_.traceListenerIs( {} );
    }
  }
  ReportFile( const ReportFile & ) = delete;
  ReportFile & operator=( const ReportFile & ) = delete;

  Report * report() { return report_ ? &*report_ : nullptr; }
  void write( const Vex::String & verdict, bool isVirtual ) {
    if ( report_ ) {
      std::ostringstream page;
      report_->write( page, verdict, isVirtual );
      Vex::WholeFile file( name_ );
      file.write( page.view() );
      file.commit();
    }
  }

private:
  const std::string name_;
  Wiring & wiring_;
  Shell & shell_;
  std::optional< Report > report_;
};

// While it lives, an assertion that fails takes neither what was said with it nor the report.
class LastWords final : public Vex::FatalEnd {
public:
  LastWords( std::ostream & out, ReportFile & page, bool isVirtual )
      : out_( out ), page_( page ), isVirtual_( isVirtual ) {
    Vex::fatalEndIs( this );
  }
  ~LastWords() override { Vex::fatalEndIs( nullptr ); }
  LastWords( const LastWords & ) = delete;
  LastWords & operator=( const LastWords & ) = delete;

private:
  void flush() override { out_.flush(); }
  void conclude( std::string_view message ) override {
    if ( page_.report() ) {
      page_.report()->failureIs( Vex::String( message ) );
      page_.write( "ended by a failed assertion", isVirtual_ );
    }
  }

  std::ostream & out_;
  ReportFile & page_;
  const bool isVirtual_;
};

std::string titleOf( const std::vector< Source > & sources ) {
  std::string title;
  for ( const auto & source : sources ) {
    title += ( title.empty() ? "" : ", " ) + source.name;
  }
  return title.empty() ? "a session" : title;
}

void executeOption( Shell & shell, const std::string & command, const std::string & value ) {
  if ( value.empty() ) {
    return;
  }
  const auto option = "--" + command;
  try {
    shell.execute( command + " " + value, option );
  } catch ( const BadLine & error ) {
    throw Program::UsageError( option + ": " + error.what() );
  }
}

// As lines of the session, so that its record has them.
void setToggles( Shell & shell, const std::string & file ) {
  if ( file.empty() ) {
    return;
  }
  for ( const auto & [ name, on ] : Kez::readToggles( file ) ) {
    try {
      shell.execute( "set toggles.toggle[" + name + "] " + Vex::text( on ), "--toggles" );
    } catch ( const BadLine & error ) {
      throw Program::UsageError( file + ": " + error.what() );
    }
  }
}

// What a session ends with that would end with `status`, as shells have it of a signal.
int statusOf( int status ) {
  const int signal = EndingSignal::come();
  return signal ? 128 + signal : status;
}

int replay( const Options & options, std::ostream & out, std::ostream & err ) {
  const auto & name = options.files[ 0 ];
  Program::expectKind( name, { Program::FileKind::lines, Program::FileKind::record } );
  Replay replay( name, std::make_unique< std::string >( contents( name ) ) );
  Vex::Clock::virtualIs( replay.startTime() );
  auto wiring = wire();
  wiring.hardware->listenerIs( replay );
  Shell shell( wiring, out, err );
  shell.console().jsonIs( options.json );
  shell.paceIs( replay );
  executeOption( shell, "trace", options.trace );
  ReportFile page( options, "replay of " + name, wiring, shell );
  const LastWords lastWords( out, page, replay.isVirtual() );
  Session session( shell, options.echo, page.report(), out, err );
  const EndingSignal ending;
  const int status = session.replay( replay, name, options.until );
  page.write( session.verdict(), replay.isVirtual() );
  return statusOf( status );
}

// Where hardware lags behind by rule, one that runs on its own follows.
constexpr const char * followingLines[] = { "set evpnFloodingEsiSm.reprogramChangedEsi true",
                                            "set evpnFloodingEsiSm.unprogramUnusableLabel true",
                                            "set evpnHwTunnelIdSm.retryLackingTunnel true",
                                            "set esiFilteringDecapSm.unprogramOtherViaType true" };

void openDoor( KezShell::Door & door, const Options & options ) {
  door.socketIs( options.socket, KezShell::Rights::change, 0600 );
  if ( !options.readOnlySocket.empty() ) {
    door.socketIs( options.readOnlySocket, KezShell::Rights::look, 0660 );
  }
}

int host( const Options & options, const Input & input, std::ostream & out, std::ostream & err ) {
  const auto sources = readFiles( options.files );
  const bool stepped = options.clock == "steady" && !options.record.empty();
  if ( options.clock == "steady" && !stepped ) {
    Vex::Clock::steadyIs();
  } else {
    Vex::Clock::virtualIs( stepped ? SteppedPace::start() : 0 );
  }
  auto ground = unwired();
  const JournalOption journal( options.journal, ground );
  auto wiring = wire( ground );
  Shell shell( wiring, out, err );
  shell.console().jsonIs( options.json );
  std::optional< SteppedPace > pace;
  if ( stepped ) {
    shell.paceIs( pace.emplace( shell.recorder() ) );
  }
  executeOption( shell, "record", options.record );
  executeOption( shell, "trace", options.trace );
  setToggles( shell, options.toggles );
  const bool isDaemon = options.command == "serve";
  std::optional< KezShell::Door > door;
  if ( isDaemon ) {
    openDoor( door.emplace( shell.commands() ), options );
    shell.standingLinesAre( { std::begin( followingLines ), std::end( followingLines ) } );
  }
  ReportFile page( options, titleOf( sources ), wiring, shell );
  const bool isVirtual = options.clock != "steady";
  const LastWords lastWords( out, page, isVirtual );
  std::optional< MetricsFile > metrics;
  if ( !options.metrics.empty() ) {
    metrics.emplace( shell, options.metrics, options.metricsInterval, err );
  }
  Session session( shell, options.echo, page.report(), out, err );
  const EndingSignal ending;
  int status = 0;
  if ( !sources.empty() ) {
    status = session.run( sources, input );
  } else if ( !isDaemon ) {
    session.converse( input );
  }
  const bool serves = isDaemon && status < 2;
  if ( serves && !EndingSignal::come() ) {
    serve( shell, *door, metrics ? &*metrics : nullptr, out );
  }
  page.write( session.verdict(), isVirtual );
  return serves ? 0 : statusOf( status );
}

int dispatch( const Program::Arguments & arguments, const Input & input, std::ostream & plainOut,
              std::ostream & err ) {
  const std::string command = arguments.empty() ? "" : arguments[ 0 ];
  if ( command != "run" && command != "shell" && command != "replay" && command != "serve" &&
       command != "attach" ) {
    throw Program::UsageError(
        "expected run, shell, replay, serve, attach, help or --version, found " +
        ( command.empty() ? "nothing" : "'" + command + "'" ) );
  }
  const auto options = parseOptions( arguments );
  const bool converses =
      input.terminal && ( command == "shell" || ( command == "attach" && options.files.empty() ) );
  TerminalStream terminalOut( plainOut, STDOUT_FILENO );
  auto & out = converses ? terminalOut : plainOut;
  if ( command == "attach" ) {
    return attach( { options.socket, options.files, options.json }, input.stream, input.terminal,
                   out, err );
  }
  Vex::fileModeIs( options.fileMode );
  const MountedRing ring( options.ring );
  const MountDirectory tables( options.tables );
  return command == "replay" ? replay( options, out, err ) : host( options, input, out, err );
}

} // namespace

int kezAgent( const std::vector< std::string > & arguments, const Input & input, std::ostream & out,
              std::ostream & err ) {
  return Program::run(
      { "kez-agent", usage }, arguments, out, err,
      [ & ]( const Program::Arguments & given ) { return dispatch( given, input, out, err ); } );
}

} // namespace Agent
