#include "client/LineEditor.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <histedit.h>
#include <poll.h>
#include <unistd.h>

namespace Agent {

using Vex::String;

namespace {

constexpr int historyLines = 1000;

// By the rule for a user's state; empty when there is no place for it.
std::filesystem::path historyFile() {
  const auto * const state = std::getenv( "XDG_STATE_HOME" );
  const auto * const home = std::getenv( "HOME" );
  std::filesystem::path directory;
  if ( state && state[ 0 ] == '/' ) {
    directory = state;
  } else if ( home && home[ 0 ] == '/' ) {
    directory = std::filesystem::path( home ) / ".local/state";
  } else {
    return {};
  }
  directory /= "kez-agent";
  std::error_code error;
  std::filesystem::create_directories( directory, error );
  return error ? std::filesystem::path() : directory / "history";
}

// What all candidates go on with.
String commonStart( const std::vector< LineEditor::Candidate > & candidates ) {
  auto start = candidates.front().missing;
  for ( const auto & each : candidates ) {
    size_t same = 0;
    while ( same < start.size() && same < each.missing.size() &&
            start[ same ] == each.missing[ same ] ) {
      ++same;
    }
    start.resize( same );
  }
  return start;
}

} // namespace

class LineEditor::Library {
public:
  Library( const String & prompt, Complete complete, Idle idle )
      : prompt_( prompt ), complete_( std::move( complete ) ), idle_( std::move( idle ) ),
        file_( historyFile() ), history_( history_init() ),
        editor_( el_init( "kez-agent", stdin, stdout, stderr ) ) {
    HistEvent event;
    history( history_, &event, H_SETSIZE, historyLines );
    history( history_, &event, H_SETUNIQUE, 1 );
    if ( !file_.empty() ) {
      history( history_, &event, H_LOAD, file_.c_str() );
    }
    el_set( editor_, EL_CLIENTDATA, this );
    el_set( editor_, EL_PROMPT, &Library::promptOf );
    el_set( editor_, EL_GETCFN, &Library::characterOf );
    el_set( editor_, EL_EDITOR, "emacs" );
    el_set( editor_, EL_HIST, &::history, history_ );
    el_set( editor_, EL_ADDFN, "complete", "completes a line", &Library::completeOf );
    el_set( editor_, EL_BIND, "^I", "complete", nullptr );
    el_source( editor_, nullptr ); // what the user has set
  }
  ~Library() {
    HistEvent event;
    if ( !file_.empty() ) {
      history( history_, &event, H_SAVE, file_.c_str() );
    }
    el_end( editor_ );
    history_end( history_ );
  }
  Library( const Library & ) = delete;
  Library & operator=( const Library & ) = delete;

  std::optional< String > nextLine() {
    int size = 0;
    const char * const typed = el_gets( editor_, &size );
    if ( !typed || size <= 0 ) {
      const bool interrupted = size < 0 && errno == EINTR;
      el_reset( editor_ );
      std::puts( "" );
      return interrupted ? std::optional( String() ) : std::nullopt;
    }
    HistEvent event;
    String line( typed, static_cast< size_t >( size ) );
    if ( line.find_first_not_of( " \t\n" ) != String::npos ) {
      history( history_, &event, H_ENTER, line.c_str() );
    }
    if ( line.ends_with( '\n' ) ) {
      line.pop_back();
    }
    return line;
  }

private:
  static Library & of( EditLine * editor ) {
    void * library = nullptr;
    el_get( editor, EL_CLIENTDATA, &library );
    return *static_cast< Library * >( library );
  }
  static const char * promptOf( EditLine * editor ) { return of( editor ).prompt_.c_str(); }
  static unsigned char completeOf( EditLine * editor, int ) { return of( editor ).complete(); }

  static int characterOf( EditLine * editor, wchar_t * to ) { return of( editor ).next( *to ); }

  // 1, or 0 at the end of input, or -1 with an error's number.
  int next( wchar_t & to ) {
    pollfd input{ STDIN_FILENO, POLLIN, 0 };
    for ( int ready = 0; ready == 0; ) {
      ready = poll( &input, 1, idle_() );
      if ( ready < 0 ) {
        return -1;
      }
    }
    std::mbstate_t state{};
    for ( char byte = 0;; ) {
      const auto got = read( STDIN_FILENO, &byte, 1 );
      if ( got <= 0 ) {
        return static_cast< int >( got );
      }
      const auto size = std::mbrtowc( &to, &byte, 1, &state );
      if ( size == static_cast< size_t >( -1 ) ) {
        to = static_cast< unsigned char >( byte );
      }
      if ( size != static_cast< size_t >( -2 ) ) {
        return 1;
      }
    }
  }

  unsigned char complete() {
    const auto * const line = el_line( editor_ );
    const auto candidates = complete_(
        std::string_view( line->buffer, static_cast< size_t >( line->cursor - line->buffer ) ) );
    if ( candidates.empty() ) {
      return CC_ERROR;
    }
    const auto start = commonStart( candidates );
    if ( !start.empty() ) {
      return el_insertstr( editor_, start.c_str() ) == 0 ? CC_REFRESH : CC_ERROR;
    }
    std::puts( "" );
    for ( const auto & each : candidates ) {
      std::puts( each.shown.c_str() );
    }
    return CC_REDISPLAY;
  }

  const String prompt_;
  const Complete complete_;
  const Idle idle_;
  const std::filesystem::path file_;
  History * const history_;
  EditLine * const editor_;
};

LineEditor::LineEditor( const String & prompt, Complete complete, Idle idle )
    : library_( std::make_unique< Library >( prompt, std::move( complete ), std::move( idle ) ) ) {}

LineEditor::~LineEditor() = default;

LineEditor::Candidate LineEditor::candidate( std::string_view line ) {
  const auto first = std::min( line.find( '\t' ), line.size() );
  const auto second = std::min( line.find( '\t', first + 1 ), line.size() );
  const auto name = line.substr( std::min( first + 1, second ), second - first - 1 );
  return { String( line.substr( 0, first ) ),
           "  " + String( name ) + "  " +
               String( line.substr( std::min( second + 1, line.size() ) ) ) };
}

std::optional< String > LineEditor::nextLine() {
  return library_->nextLine();
}

} // namespace Agent
