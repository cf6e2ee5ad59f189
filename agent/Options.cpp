#include "agent/Options.h"

#include "Vex/Domain.h"

namespace Agent {

const char * const usage = R"(kez-agent hosts the KezEvpn machines over simulated inputs.

  kez-agent run [OPTION]... FILE...   execute the lines of the files; - is standard input
  kez-agent shell [OPTION]...         execute lines as they are typed
  kez-agent replay [OPTION]... FILE   execute a record again, with the answers that hardware gave
  kez-agent serve [OPTION]... [FILE]...
                                      execute the lines of the files, then serve those who attach
  kez-agent attach [--socket PATH] [LINE]...
                                      give lines to an agent that serves, or type them
  kez-agent help                      this text; the command help tells about lines
  kez-agent --version                 its version

  --trace SETTING         trace from the start, like KezEvpn*/5
  --ring FILE             write every trace statement in binary form to FILE, 16 MiB used in
                          the round, which kez-inspect ring FILE reads; an older ring is replaced
  --tables DIR            keep shared tables below DIR, where kez-inspect table FILE reads them;
                          without it they are private
  --journal DIR           keep what the switch has below DIR, as hardware does by itself; when it
                          has anything the agent starts hitless over it, until inputs complete
  --record FILE           write the session's lines and what hardware answered to FILE, which
                          must not be there yet
  --report FILE           write a page to FILE in the end, for a browser: machines, time line,
                          events, tables
  --file-mode MODE        the mode of all files that it makes, octal, 0644 without it
  --toggles FILE          set the feature toggles of FILE, which is by custom Kez.json
  --until N               replay stops before line N of the record, such as the one that was its last
  --echo                  print each line before it is executed
  --json                  answer in JSON, a value a line, on standard output, errors too
  --clock virtual|steady  time passes by advance alone, which is the default, or by itself
  --socket PATH           where serve is attached to, and attach attaches;
                          /run/kez-agent/control
  --read-only-socket PATH where serve is attached to by sessions that can change nothing
  --metrics PATH          write figures of the process to PATH while serve serves, for a collector
                          that reads files; it is replaced whole
  --metrics-interval SECONDS
                          after so many seconds each time; 15

A replay goes by the record's clock, is not recorded itself and keeps its tables private. serve is
on the steady clock, and hardware follows where it lags behind by rule.

Exit status: 0; 1 an expectation failed or a replay differs; 2 a bad line of a run, a bad option or
file; 130 or 143 after SIGINT or SIGTERM, which end a session in order.
)";

namespace {

mode_t modeOf( const Vex::String & text ) {
  mode_t mode = 0;
  for ( const char digit : text ) {
    if ( digit < '0' || digit > '7' ) {
      mode = 01000;
    }
    mode = mode * 8 + static_cast< mode_t >( digit - '0' );
  }
  if ( text.empty() || mode > 0777 ) {
    throw Program::UsageError( "--file-mode: expected up to 0777, octal, found '" + text + "'" );
  }
  return mode;
}

std::vector< Program::Option > optionsOf( Options & to ) {
  using Program::flag;
  using Program::text;
  if ( to.command == "attach" ) {
    return { text( "--socket", to.socket ), flag( "--json", to.json ) };
  }
  std::vector< Program::Option > options{
    text( "--trace", to.trace ),
    text( "--ring", to.ring ),
    text( "--tables", to.tables ),
    text( "--journal", to.journal ),
    text( "--record", to.record ),
    text( "--report", to.report ),
    text( "--toggles", to.toggles ),
    flag( "--echo", to.echo ),
    flag( "--json", to.json ),
    text( "--clock", to.clock ),
    { "--file-mode", true, [ &to ]( const Vex::String & value ) { to.fileMode = modeOf( value ); } }
  };
  if ( to.command == "replay" ) {
    options.push_back( { "--until", true, [ &to ]( const Vex::String & value ) {
                          to.until = Vex::parseBriefly< size_t >( value );
                        } } );
  }
  if ( to.command == "serve" ) {
    options.push_back( text( "--socket", to.socket ) );
    options.push_back( text( "--read-only-socket", to.readOnlySocket ) );
    options.push_back( text( "--metrics", to.metrics ) );
    options.push_back( { "--metrics-interval", true, [ &to ]( const Vex::String & value ) {
                          to.metricsInterval = Vex::parseHeld< Vex::Interval >( value );
                        } } );
  }
  return options;
}

void check( const Options & options ) {
  const auto & command = options.command;
  if ( !options.clock.empty() && options.clock != "virtual" && options.clock != "steady" ) {
    throw Program::UsageError( "--clock: expected virtual or steady, found '" + options.clock +
                               "'" );
  }
  const auto expect = [ & ]( bool holds, const char * what ) {
    if ( !holds ) {
      throw Program::UsageError( command + ": expected " + what );
    }
  };
  if ( command == "run" ) {
    expect( !options.files.empty(), "a file, or - for standard input" );
  } else if ( command == "shell" ) {
    expect( options.files.empty(), "no file; lines come from standard input" );
  } else if ( command == "serve" ) {
    expect( options.clock != "virtual", "the steady clock" );
  } else if ( command == "replay" ) {
    expect( options.files.size() == 1 && options.files[ 0 ] != "-", "a record, and one alone" );
    expect( options.record.empty() && options.clock.empty() && options.tables.empty() &&
                options.journal.empty() && options.toggles.empty(),
            "none of --record, --clock, --tables, --journal and --toggles" );
  }
}

} // namespace

Options parseOptions( const Program::Arguments & arguments ) {
  Options options;
  options.command = arguments[ 0 ];
  options.files =
      Program::takeOptions( { arguments.begin() + 1, arguments.end() }, optionsOf( options ) );
  check( options );
  if ( options.command == "serve" ) {
    options.clock = "steady";
  }
  return options;
}

} // namespace Agent
