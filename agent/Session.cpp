#include "agent/Session.h"

#include "agent/EndingSignal.h"
#include "client/Interrupts.h"
#include "client/LineEditor.h"

#include <sstream>

namespace Agent {

using KezShell::trimmed;

int Session::run( const std::vector< Source > & sources, const Input & input ) {
  for ( const auto & source : sources ) {
    out_ << ( echo_ && !isJson() && &source != &sources.front() ? "\n" : "" );
    std::istream & stream = source.file ? *source.file : input.stream;
    size_t number = 0;
    for ( std::string line; !isOver() && std::getline( stream, line ); ) {
      if ( !execute( line, source.name, ++number ) ) {
        return 2;
      }
    }
  }
  return tellVerdict();
}

int Session::replay( Replay & replay, const std::string & name, size_t until ) {
  for ( const RecordEntry * line;
        !isOver() && ( line = replay.nextLine() ) && !replay.difference(); ) {
    if ( line->number >= until ) {
      end_ = "stopped before line " + std::to_string( line->number );
      say( end_ );
      return shell_.failures() ? 1 : 0;
    }
    if ( !execute( std::string( line->text ), name, line->number ) ) {
      return 2;
    }
  }
  if ( EndingSignal::come() ) {
    return tellVerdict();
  }
  shell_.catchUp();
  if ( !replay.finished() ) {
    out_.flush();
    sayError( *replay.difference() );
    end_ = "the replay differs from the record";
    if ( report_ ) {
      report_->failureIs( *replay.difference() );
    }
    return 1;
  }
  const int result = tellVerdict();
  say( "replayed as recorded: " + std::to_string( replay.lines() ) + " lines, " +
       std::to_string( replay.calls() ) + " calls of hardware" );
  return result;
}

void Session::converse( const Input & input ) {
  if ( input.terminal ) {
    converseAtTerminal();
  } else {
    size_t number = 0;
    for ( std::string line; !isOver() && std::getline( input.stream, line ); ) {
      execute( line, "stdin", ++number );
      out_.flush();
    }
  }
  end_.clear(); // a bad line ends no conversation
}

void Session::converseAtTerminal() {
  const Interrupts interrupts;
  std::ostringstream completions;
  KezShell::Session helper( shell_.commands(), KezShell::Rights::look, completions, completions );
  const auto complete = [ & ]( std::string_view typed ) {
    completions.str( "" );
    helper.execute( "complete " + std::string( typed ), "terminal" );
    std::vector< LineEditor::Candidate > candidates;
    std::istringstream answers( completions.str() );
    for ( std::string line; std::getline( answers, line ); ) {
      candidates.push_back( LineEditor::candidate( line ) );
    }
    return candidates;
  };
  LineEditor editor( "kez> ", complete, [ this ] { return idle(); } );
  out_ << "help lists the commands; quit, or the end of input, ends the session" << std::endl;
  size_t number = 0;
  while ( !isOver() ) {
    const auto line = editor.nextLine();
    if ( !line ) {
      return;
    }
    Interrupts::come(); // of what was typed
    execute( *line, "stdin", ++number );
    out_.flush();
  }
}

bool Session::isOver() const {
  return shell_.console().isOver() || EndingSignal::come();
}

int Session::idle() {
  if ( shell_.isVirtual() ) {
    return -1;
  }
  if ( shell_.turn() ) {
    out_.flush();
    return 0;
  }
  return millisecondsOf( shell_.timeToTurn() );
}

std::string Session::verdict() const {
  const auto failures = std::to_string( shell_.failures() );
  const auto expectations = std::to_string( shell_.expectations() );
  return !end_.empty()               ? end_
         : EndingSignal::come()      ? "ended by a signal"
         : shell_.failures() > 0     ? failures + " failed, " + expectations + " expectations"
         : shell_.expectations() > 0 ? "all " + expectations + " expectations hold"
                                     : "no expectations";
}

int Session::tellVerdict() {
  if ( shell_.failures() + shell_.expectations() > 0 || EndingSignal::come() ) {
    say( verdict() );
  }
  return shell_.failures() ? 1 : 0;
}

void Session::say( const std::string & text ) {
  if ( isJson() ) {
    Vex::JsonWriter json( out_ );
    json.line( [ & ] { json.member( "verdict", text ); } );
  } else {
    out_ << text << '\n';
  }
}

void Session::sayError( const std::string & text ) {
  if ( isJson() ) {
    Vex::JsonWriter json( out_ );
    json.line( [ & ] { json.member( "error", text ); } );
  } else {
    err_ << text << std::endl;
  }
}

void Session::echo( bool isComment, std::string_view text ) {
  if ( isJson() ) {
    Vex::JsonWriter json( out_ );
    json.line( [ & ] { json.member( "echo", text ); } );
  } else {
    out_ << ( isComment ? "" : "> " ) << text << '\n';
  }
}

bool Session::execute( const std::string & line, const std::string & file, size_t number ) {
  const auto text = trimmed( line );
  const bool isComment = text.empty() || text.starts_with( '#' );
  if ( echo_ ) {
    echo( isComment, text );
  }
  const KezShell::Place place( file + ":" + std::to_string( number ), number );
  auto & console = shell_.console();
  const auto failed = [ & ]( const std::string & what ) {
    end_ = "ended by a bad line, " + place.text;
    if ( report_ ) {
      report_->failureIs( what );
    }
  };
  if ( report_ ) {
    report_->lineIs( text, file, number );
  }
  try {
    if ( report_ && !isComment ) {
      executeReported( line, place );
    } else {
      shell_.execute( line, place );
    }
  } catch ( const BadLine & error ) {
    failed( console.badLineIs( error ) );
  } catch ( const std::runtime_error & error ) {
    failed( console.badLineIs( error ) );
  }
  return console.conclude() != KezShell::LineStatus::bad;
}

void Session::executeReported( const std::string & line, const KezShell::Place & place ) {
  const auto failures = shell_.failures();
  shell_.execute( line, place );
  if ( shell_.failures() > failures ) {
    report_->failureIs( place.text + ": " + shell_.lastFailure() );
  }
  report_->lineEnds();
}

} // namespace Agent
