#include "inspect/Inspect.h"

#include "Ringlog/RingReader.h"
#include "Ringlog/Setting.h"
#include "Ringlog/TextTrace.h"
#include "inspect/Table.h"
#include "program/CommandLine.h"
#include "program/FileKind.h"

#include <chrono>
#include <cmath>
#include <ctime>
#include <limits>
#include <memory>
#include <set>
#include <thread>

namespace Inspect {

namespace {

constexpr auto usage = R"(kez-inspect shows what a process leaves in files.

  kez-inspect ring FILE [OPTION]...  show the records of a ring in order of time
  kez-inspect table FILE [KEY] [--follow]
                                     show the records of a shared table, or the one with this key;
                                     --follow goes on with what is written (set) and removed (del)
  kez-inspect help                   this text
  kez-inspect --version              its version

Both take --json, and show a JSON value a line then.

Options of a ring:
  --handle PATTERN  only of handles like KezEvpn*; * and ? stand for any characters and for one
  --level LEVELS    only of levels like 5, 0-5 or 1+5+8-9
  --from SECONDS    only since this time, as the records show it
  --to SECONDS      only until this time
  --source          end each line with the file and line of its statement
  --follow          go on with what is written, also after another ring takes the file's place

A ring's line has time, handle, level and text. Exit status: 0; 1 the file is damaged, and what is
left of it was shown, or it has nothing with the key or handle; 2 a bad option, or a file that cannot be read
or is no such file.
)";

struct Options {
  std::string file;
  std::string handle = "*";
  std::string level = "0-9";
  double from = -std::numeric_limits< double >::infinity();
  double to = std::numeric_limits< double >::infinity();
  bool source = false;
  bool follow = false;
  bool json = false;
};

Program::Option seconds( std::string_view name, double & to ) {
  return { name, true, [ &to, name ]( const Vex::String & value ) {
            const auto expected = Vex::String( name ) + ": expected a number of seconds, found '";
            try {
              to = Vex::parse< double >( value );
            } catch ( const Vex::ParseError & ) {
              to = std::numeric_limits< double >::infinity();
            }
            if ( !std::isfinite( to ) ) {
              throw Program::UsageError( expected + value + "'" );
            }
          } };
}

// Of what follows the command.
Options ringOptions( const Program::Arguments & arguments ) {
  using Program::flag;
  using Program::text;
  Options options;
  const auto files = Program::takeOptions(
      arguments, { text( "--handle", options.handle ), text( "--level", options.level ),
                   seconds( "--from", options.from ), seconds( "--to", options.to ),
                   flag( "--source", options.source ), flag( "--follow", options.follow ),
                   flag( "--json", options.json ) } );
  if ( files.size() != 1 ) {
    throw Program::UsageError( "ring: expected a file, and one alone" );
  }
  options.file = files[ 0 ];
  return options;
}

Ringlog::Setting parseSetting( const std::string & option, const std::string & value,
                               const std::string & before ) {
  try {
    // One pattern or one set of levels, where a setting could have more entries.
    Vex::TextCursor in( value );
    in.atIs( value.data() + std::min( value.size(), value.find_first_of( "/," ) ) );
    Vex::expectEnd( in );
    return Ringlog::Setting( before + value );
  } catch ( const Vex::ParseError & error ) {
    throw Program::UsageError( option + ": " + error.what() );
  }
}

// Shows one ring, or what follows it.
class RingView {
public:
  RingView( const Options & options, std::ostream & out, std::ostream & err )
      : options_( options ), handles_( parseSetting( "--handle", options.handle, "" ) ),
        levels_( parseSetting( "--level", options.level, "*/" ) ), out_( out ), err_( err ),
        reader_( open() ) {}

  // Whether all was in order, and there was a handle like those that are asked for.
  bool show() {
    reader_->read( [ this ]( const Ringlog::RingRecord & record ) { showRecord( record ); } );
    out_.flush();
    showProblems();
    return reader_->problems().empty() && hasHandle();
  }

  [[noreturn]] void follow() {
    while ( true ) {
      std::this_thread::sleep_for( std::chrono::milliseconds( 100 ) );
      // Asked before, so that the old one's last records are shown.
      const bool replaced = reader_->isReplaced();
      show();
      if ( !out_ ) {
        throw std::runtime_error( "cannot write" );
      }
      if ( replaced ) {
        reader_ = open();
      }
    }
  }

private:
  std::unique_ptr< Ringlog::RingReader > open() {
    auto reader = std::make_unique< Ringlog::RingReader >( options_.file );
    const auto & header = reader->header();
    const auto mounted = static_cast< std::time_t >( header.wallSeconds );
    std::tm utc{};
    gmtime_r( &mounted, &utc );
    char date[ 32 ];
    std::strftime( date, sizeof( date ), "%Y-%m-%dT%H:%M:%SZ", &utc );
    if ( options_.json ) {
      json_.line( [ & ] {
        json_.member( "process", header.process );
        json_.member( "mounted", date );
        json_.member( "mountedSteady", header.seconds );
      } );
    } else {
      out_ << "# process " << header.process << ", mounted " << date << " at "
           << Vex::text( header.seconds ) << " s of the steady clock\n";
    }
    shownProblems_ = 0;
    shownLost_ = 0;
    return reader;
  }

  bool hasHandle() {
    const bool any = std::any_of( seen_.begin(), seen_.end(), [ & ]( const auto & handle ) {
      return handles_.levels( handle ) != 0;
    } );
    if ( any || seen_.empty() || options_.follow ) {
      return true;
    }
    err_ << options_.file << ": no handle is like " << options_.handle << "; it has records of";
    for ( const auto & handle : seen_ ) {
      err_ << ' ' << handle;
    }
    err_ << std::endl;
    return false;
  }

  void showRecord( const Ringlog::RingRecord & record ) {
    if ( seen_.find( record.handle ) == seen_.end() ) {
      seen_.emplace( record.handle );
    }
    if ( record.time < options_.from || record.time > options_.to ||
         handles_.levels( record.handle ) == 0 ||
         ( levels_.levels( record.handle ) >> record.level & 1 ) == 0 ) {
      return;
    }
    if ( options_.json ) {
      json_.line( [ & ] {
        json_.member( "trace", record.text );
        json_.member( "time", record.time );
        json_.member( "handle", record.handle );
        json_.member( "level", record.level );
        json_.member( "file", record.file );
        json_.member( "line", record.line );
      } );
      return;
    }
    Vex::TextBuffer line;
    Ringlog::appendLine( line, { record.time, record.handle, record.level, record.text } );
    out_ << line.view();
    if ( options_.source ) {
      out_ << "  [" << record.file << ':' << record.line << ']';
    }
    out_ << '\n';
  }

  void showProblems() {
    for ( ; shownProblems_ < reader_->problems().size(); ++shownProblems_ ) {
      err_ << options_.file << ": " << reader_->problems()[ shownProblems_ ] << std::endl;
    }
    const auto lost = reader_->lostRecords();
    if ( lost != shownLost_ ) {
      err_ << options_.file << ": " << lost
           << " records found no room, more threads tracing than the ring has blocks" << std::endl;
      shownLost_ = lost;
    }
  }

  const Options & options_;
  const Ringlog::Setting handles_;
  const Ringlog::Setting levels_;
  std::ostream & out_;
  std::ostream & err_;
  Vex::JsonWriter json_{ out_ };
  std::set< Vex::String, std::less<> > seen_; // handles
  size_t shownProblems_ = 0;
  uint64_t shownLost_ = 0;
  std::unique_ptr< Ringlog::RingReader > reader_;
};

int showTable( const Program::Arguments & arguments, std::ostream & out, std::ostream & err ) {
  bool follow = false;
  bool json = false;
  const auto names = Program::takeOptions(
      arguments, { Program::flag( "--follow", follow ), Program::flag( "--json", json ) } );
  if ( names.empty() || names.size() > 2 ) {
    throw Program::UsageError( "table: expected a file, and perhaps a key" );
  }
  Program::expectKind( names[ 0 ], { Program::FileKind::lines, Program::FileKind::table } );
  TableView view( names[ 0 ], names.size() > 1 ? std::optional( names[ 1 ] ) : std::nullopt, json,
                  out, err );
  const bool whole = view.show();
  if ( follow ) {
    view.follow();
  }
  return whole ? 0 : 1;
}

int showRing( const Program::Arguments & arguments, std::ostream & out, std::ostream & err ) {
  const auto options = ringOptions( arguments );
  Program::expectKind( options.file, { Program::FileKind::lines, Program::FileKind::ring } );
  RingView view( options, out, err );
  const bool whole = view.show();
  if ( options.follow ) {
    view.follow();
  }
  return whole ? 0 : 1;
}

int dispatch( const Program::Arguments & arguments, std::ostream & out, std::ostream & err ) {
  const std::string command = arguments.empty() ? "" : arguments[ 0 ];
  if ( command != "ring" && command != "table" ) {
    throw Program::UsageError( "expected ring, table, help or --version, found " +
                               ( command.empty() ? "nothing" : "'" + command + "'" ) );
  }
  const Program::Arguments rest( arguments.begin() + 1, arguments.end() );
  return command == "ring" ? showRing( rest, out, err ) : showTable( rest, out, err );
}

} // namespace

int kezInspect( const std::vector< std::string > & arguments, std::ostream & out,
                std::ostream & err ) {
  return Program::run(
      { "kez-inspect", usage }, arguments, out, err,
      [ & ]( const Program::Arguments & given ) { return dispatch( given, out, err ); } );
}

} // namespace Inspect
