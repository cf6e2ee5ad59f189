#include "agent/Session.h"

namespace Agent {

using KezShell::trimmed;

int Session::run( const std::vector< Source > & sources, const Input & input ) {
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
    err_ << *replay.difference() << std::endl;
    end_ = "the replay differs from the record";
    if ( report_ ) {
      report_->failureIs( *replay.difference() );
    }
    return 1;
  }
  const int result = tellVerdict();
  out_ << "replayed as recorded: " << replay.lines() << " lines, " << replay.calls()
       << " calls of hardware\n";
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
    out_ << verdict() << '\n';
  }
  return shell_.failures() ? 1 : 0;
}

bool Session::execute( const std::string & line, const std::string & file, size_t number ) {
  const auto text = trimmed( line );
  const bool isComment = text.empty() || text.starts_with( '#' );
  if ( echo_ ) {
    out_ << ( isComment ? "" : "> " ) << text << '\n';
  }
  const auto place = file + ":" + std::to_string( number );
  const auto failed = [ & ]( const std::string & what ) {
    out_.flush();
    err_ << what << std::endl;
    end_ = "ended by a bad line, " + place;
    if ( report_ ) {
      report_->failureIs( what );
    }
    return false;
  };
  try {
    if ( report_ && !isComment ) {
      executeReported( line, place );
    } else {
      shell_.execute( line, place );
    }
    return true;
  } catch ( const BadLine & error ) {
    return failed( place + ":" + std::to_string( error.column ) + ": " + error.what() );
  } catch ( const std::runtime_error & error ) {
    return failed( place + ": " + error.what() );
  }
}

void Session::executeReported( const std::string & line, const std::string & place ) {
  const auto failures = shell_.failures();
  report_->lineIs( trimmed( line ) );
  shell_.execute( line, place );
  if ( shell_.failures() > failures ) {
    report_->failureIs( place + ": " + shell_.lastFailure() );
  }
  report_->lineEnds();
}

} // namespace Agent
