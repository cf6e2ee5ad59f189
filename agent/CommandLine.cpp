#include "agent/CommandLine.h"

#include "Ringlog/Ring.h"
#include "Rook/TableWriter.h"
#include "Vex/Clock.h"
#include "agent/Shell.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>

namespace Agent {

namespace {

constexpr auto usage = R"(kez-agent hosts the KezEvpn machines over simulated inputs.

  kez-agent run [OPTION]... FILE...   execute the lines of the files; - is standard input
  kez-agent shell [OPTION]...         execute lines as they are typed
  kez-agent help                      this text; the command help tells about lines
  kez-agent --version

  --trace SETTING         trace from the start, like KezEvpn*/5
  --ring FILE             write every trace statement in binary form to FILE, 16 MiB used in
                          the round, which kez-inspect ring FILE reads; an older ring is replaced
  --tables DIR            keep shared tables below DIR, where kez-inspect table FILE reads them;
                          without it they are private
  --record FILE           write the session's lines to FILE, which must not be there yet
  --echo                  print each line before it is executed
  --clock virtual|steady  time passes by advance alone, which is the default, or by itself

Exit status: 0; 1 an expectation failed; 2 a bad line of a run, a bad option or file.
)";

struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Options {
  std::vector< std::string > files;
  std::vector< std::string > lines; // that options stand for
  std::string ring;
  std::string tables;
  bool echo = false;
  bool steady = false;
};

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

// Has the tables of the session mounted below the directory of the options.
class MountDirectory {
public:
  explicit MountDirectory( const std::string & directory ) { Rook::mountDirectoryIs( directory ); }
  ~MountDirectory() { Rook::mountDirectoryIs( {} ); }
  MountDirectory( const MountDirectory & ) = delete;
  MountDirectory & operator=( const MountDirectory & ) = delete;
};

// Of the arguments after the first.
Options parseOptions( const std::vector< std::string > & arguments ) {
  Options options;
  for ( size_t i = 1; i < arguments.size(); ++i ) {
    const auto & option = arguments[ i ];
    const auto value = [ & ] {
      if ( ++i == arguments.size() || arguments[ i ].empty() ) {
        throw UsageError( option + ": expected a value" );
      }
      return arguments[ i ];
    };
    if ( option == "--echo" ) {
      options.echo = true;
    } else if ( option == "--trace" || option == "--record" ) {
      options.lines.push_back( option.substr( 2 ) + " " + value() );
    } else if ( option == "--ring" ) {
      options.ring = value();
    } else if ( option == "--tables" ) {
      options.tables = value();
    } else if ( option == "--clock" ) {
      const auto clock = value();
      if ( clock != "virtual" && clock != "steady" ) {
        throw UsageError( "--clock: expected virtual or steady, found '" + clock + "'" );
      }
      options.steady = clock == "steady";
    } else if ( option != "-" && option.starts_with( "-" ) ) {
      throw UsageError( "expected --trace, --ring, --tables, --record, --echo or --clock, found '" +
                        option + "'" );
    } else {
      options.files.push_back( option );
    }
  }
  return options;
}

struct Source {
  std::string name;
  std::unique_ptr< std::istream > file; // null for standard input
};

// Files are read before the first line is executed, so that one that cannot be read is no
// surprise halfway.
std::vector< Source > readFiles( const std::vector< std::string > & names ) {
  std::vector< Source > sources;
  for ( const auto & name : names ) {
    if ( name == "-" ) {
      sources.push_back( { "stdin", nullptr } );
      continue;
    }
    std::ifstream file( name );
    auto text = std::make_unique< std::stringstream >();
    if ( file && file.peek() != std::ifstream::traits_type::eof() ) {
      *text << file.rdbuf();
    }
    if ( !file.is_open() || file.bad() ) {
      throw std::runtime_error( "cannot read " + name + ": " + std::strerror( errno ) );
    }
    sources.push_back( { name, std::move( text ) } );
  }
  return sources;
}

// Feeds lines to a shell and tells what came of them.
class Session {
public:
  Session( Shell & shell, bool echo, std::ostream & out, std::ostream & err )
      : shell_( shell ), echo_( echo ), out_( out ), err_( err ) {}

  // The exit status.
  int run( const std::vector< Source > & sources, const Input & input ) {
    for ( const auto & source : sources ) {
      out_ << ( echo_ && &source != &sources.front() ? "\n" : "" );
      std::istream & stream = source.file ? *source.file : input.stream;
      size_t number = 0;
      for ( std::string line; std::getline( stream, line ); ) {
        if ( !execute( line, source.name, ++number ) ) {
          return 2;
        }
      }
    }
    if ( shell_.failures() ) {
      out_ << shell_.failures() << " failed, " << shell_.expectations() << " expectations\n";
    } else if ( shell_.expectations() ) {
      out_ << "all " << shell_.expectations() << " expectations hold\n";
    }
    return shell_.failures() ? 1 : 0;
  }

  void converse( const Input & input ) {
    const auto prompt = input.terminal ? "kez> " : "";
    if ( input.terminal ) {
      out_ << "help lists the commands; quit, or the end of input, ends the session\n";
    }
    size_t number = 0;
    out_ << prompt << std::flush;
    for ( std::string line; std::getline( input.stream, line ); ) {
      if ( trimmed( line ) == "quit" || trimmed( line ) == "exit" ) {
        return;
      }
      execute( line, "stdin", ++number );
      out_ << prompt << std::flush;
    }
    out_ << ( input.terminal ? "\n" : "" );
  }

private:
  // Whether it was a good line.
  bool execute( const std::string & line, const std::string & file, size_t number ) {
    if ( echo_ ) {
      const auto text = trimmed( line );
      out_ << ( text.empty() || text.starts_with( '#' ) ? "" : "> " ) << text << '\n';
    }
    const auto place = file + ":" + std::to_string( number );
    try {
      shell_.execute( line, place );
      return true;
    } catch ( const BadLine & error ) {
      out_.flush();
      err_ << place << ':' << error.column << ": " << error.what() << std::endl;
      return false;
    }
  }

  Shell & shell_;
  const bool echo_;
  std::ostream & out_;
  std::ostream & err_;
};

void executeOptions( Shell & shell, const Options & options ) {
  for ( const auto & line : options.lines ) {
    const auto option = "--" + line.substr( 0, line.find( ' ' ) );
    try {
      shell.execute( line, option );
    } catch ( const BadLine & error ) {
      throw UsageError( option + ": " + error.what() );
    }
  }
}

int dispatch( const std::vector< std::string > & arguments, const Input & input, std::ostream & out,
              std::ostream & err ) {
  const std::string command = arguments.empty() ? "" : arguments[ 0 ];
  if ( command == "help" || command == "--help" ) {
    out << usage;
    return 0;
  }
  if ( command == "--version" ) {
    out << "kez-agent " KEZ_VERSION "\n";
    return 0;
  }
  if ( command != "run" && command != "shell" ) {
    throw UsageError( "expected run, shell, help or --version, found " +
                      ( command.empty() ? "nothing" : "'" + command + "'" ) );
  }
  const auto options = parseOptions( arguments );
  if ( ( command == "run" ) == options.files.empty() ) {
    throw UsageError( command == "run"
                          ? "run: expected a file, or - for standard input"
                          : "shell: expected no file; lines come from standard input" );
  }
  const auto sources = readFiles( options.files );
  if ( options.steady ) {
    Vex::Clock::steadyIs();
  } else {
    Vex::Clock::virtualIs( 0 );
  }
  const MountedRing ring( options.ring );
  const MountDirectory tables( options.tables );
  auto wiring = wire();
  Shell shell( wiring, out, err );
  executeOptions( shell, options );
  Session session( shell, options.echo, out, err );
  if ( command == "run" ) {
    return session.run( sources, input );
  }
  session.converse( input );
  return 0;
}

} // namespace

int kezAgent( const std::vector< std::string > & arguments, const Input & input, std::ostream & out,
              std::ostream & err ) {
  try {
    return dispatch( arguments, input, out, err );
  } catch ( const UsageError & error ) {
    err << "kez-agent: " << error.what() << "\ntry kez-agent help\n";
  } catch ( const std::exception & error ) {
    err << "kez-agent: " << error.what() << '\n';
  }
  return 2;
}

} // namespace Agent
