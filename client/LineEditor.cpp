#include "client/LineEditor.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <histedit.h>
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
  Library( const String & prompt, Complete complete )
      : prompt_( prompt ), complete_( std::move( complete ) ), file_( historyFile() ),
        history_( history_init() ), editor_( el_init( "kez-agent", stdin, stdout, stderr ) ) {
    HistEvent event;
    history( history_, &event, H_SETSIZE, historyLines );
    history( history_, &event, H_SETUNIQUE, 1 );
    if ( !file_.empty() ) {
      history( history_, &event, H_LOAD, file_.c_str() );
    }
    el_set( editor_, EL_CLIENTDATA, this );
    el_set( editor_, EL_PROMPT, &Library::promptOf );
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
  const std::filesystem::path file_;
  History * const history_;
  EditLine * const editor_;
};

LineEditor::LineEditor( const String & prompt, Complete complete )
    : library_( std::make_unique< Library >( prompt, std::move( complete ) ) ) {}

LineEditor::~LineEditor() = default;

std::optional< String > LineEditor::nextLine() {
  return library_->nextLine();
}

} // namespace Agent
