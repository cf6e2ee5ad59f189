#include "agent/Session.h"

namespace Agent {

using KezShell::trimmed;

int Session::run( const std::vector< Source > & sources, const Input & input ) {
  for ( const auto & source : sources ) {
    out_ << ( echo_ && !isJson() && &source != &sources.front() ? "\n" : "" );
    std::istream & stream = source.file ? *source.file : input.stream;
    size_t number = 0;
    for ( std::string line; std::getline( stream, line ); ) {
      if ( !execute( line, source.name, ++number ) ) {
        return 2;
      }
    }
  }
  return tellVerdict();
}

int Session::replay( Replay & replay, const std::string & name ) {
  for ( const RecordEntry * line; ( line = replay.nextLine() ) && !replay.difference(); ) {
    if ( !execute( std::string( line->text ), name, line->number ) ) {
      return 2;
    }
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
  const auto prompt = input.terminal ? "kez> " : "";
  if ( input.terminal ) {
    out_ << "help lists the commands; quit, or the end of input, ends the session\n";
  }
  size_t number = 0;
  out_ << prompt << std::flush;
  for ( std::string line; std::getline( input.stream, line ); ) {
    if ( trimmed( line ) == "quit" || trimmed( line ) == "exit" ) {
      end_.clear();
      return;
    }
    execute( line, "stdin", ++number );
    out_ << prompt << std::flush;
  }
  end_.clear(); // a bad line ends no conversation
  out_ << ( input.terminal ? "\n" : "" );
}

std::string Session::verdict() const {
  const auto failures = std::to_string( shell_.failures() );
  const auto expectations = std::to_string( shell_.expectations() );
  return !end_.empty()               ? end_
         : shell_.failures() > 0     ? failures + " failed, " + expectations + " expectations"
         : shell_.expectations() > 0 ? "all " + expectations + " expectations hold"
                                     : "no expectations";
}

int Session::tellVerdict() {
  if ( shell_.failures() + shell_.expectations() > 0 ) {
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
  report_->lineIs( trimmed( line ) );
  shell_.execute( line, place );
  if ( shell_.failures() > failures ) {
    report_->failureIs( place.text + ": " + shell_.lastFailure() );
  }
  report_->lineEnds();
}

} // namespace Agent
