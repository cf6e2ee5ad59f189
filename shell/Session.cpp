#include "shell/Session.h"

#include "Vex/Clock.h"
#include "shell/Shell.h"

#include <utility>

namespace KezShell {

using Vex::String;

namespace {

void checkRights( const Command & command, Rights rights ) {
  if ( command.effect != Effect::none && rights == Rights::look ) {
    throw BadLine( 1, "expected a command that changes nothing, since this session is read-only; " +
                          command.name + " may change something" );
  }
  if ( command.effect == Effect::waits && rights != Rights::console ) {
    throw BadLine( 1, "expected a command that does not wait; " + command.name +
                          " is for the lines that the host starts with" );
  }
}

} // namespace

Session::Session( Shell & shell, Rights rights, std::ostream & out, std::ostream & err )
    : shell_( shell ), rights_( rights ), out_( out ), err_( err ) {
  shell_.sessions_.push_back( this );
}

Session::~Session() {
  std::erase( shell_.sessions_, this );
}

std::optional< bool > takeAnswerForm( Vex::TextCursor & in ) {
  auto ahead = in;
  const auto word = takeWord( ahead );
  if ( word != "--json" && word != "--text" ) {
    return std::nullopt;
  }
  in = ahead;
  return word == "--json";
}

void Session::execute( std::string_view line, const Place & place ) {
  place_ = place;
  lineIsJson_.reset();
  isBad_ = false;
  failuresBefore_ = failures_;
  const auto text = trimmed( line );
  isRemark_ = text.empty() || text.starts_with( '#' );
  if ( isRemark_ ) {
    shell_.host().remarkIs( text );
    return;
  }
  inTextAt( 1, [ & ] {
    Vex::TextCursor in( line.data(), text.data() + text.size() );
    in.atIs( text.data() );
    lineIsJson_ = takeAnswerForm( in );
    const auto rest = in.rest();
    const size_t offset = in.offset();
    const auto name = takeWord( in );
    const auto * const command = shell_.command( name );
    if ( !command ) {
      failAt( offset, "a command (" + shell_.commandNames() + ")", name );
    }
    checkRights( *command, rights_ );
    shell_.host().execute( *command, in, *this, rest );
  } );
}

void Session::answerIs( std::unique_ptr< Answer > answer ) {
  answer_ = std::move( answer );
  if ( answer_ ) {
    answer_->wakeIs( wake_ );
  }
  while ( answer_ && rights_ == Rights::console ) {
    if ( shell_.host().isInterrupted() ) {
      answerDel( "interrupted" );
    } else if ( answer_->isWaiting() ) {
      standing_ = { std::move( answer_ ), json() != nullptr };
    } else {
      say();
    }
  }
}

void Session::say() {
  // Off the session while it speaks, so that one that fails is gone.
  auto answer = std::move( answer_ );
  if ( answer->say( *this ) ) {
    answer_ = std::move( answer );
  }
}

void Session::sayStanding() {
  const auto before = std::exchange( lineIsJson_, standing_.isJson );
  while ( standing_.answer && !standing_.answer->isWaiting() ) {
    if ( !standing_.answer->say( *this ) ) {
      standing_.answer.reset();
    }
  }
  lineIsJson_ = before;
}

void Session::answerDel( const String & why ) {
  if ( !answer_ && !standing_.answer ) {
    return;
  }
  const bool waited = isWaiting();
  answer_.reset();
  standing_.answer.reset();
  failureIs( "the answer ends here: " + why );
  if ( waited ) {
    wake_();
  }
}

String Session::badLineIs( const BadLine & error ) {
  return sayError( error, &error );
}

String Session::badLineIs( const std::runtime_error & error ) {
  return sayError( error, nullptr );
}

String Session::sayError( const std::runtime_error & error, const BadLine * badLine ) {
  isBad_ = true;
  const auto column = badLine ? ":" + std::to_string( badLine->column ) : "";
  auto text = place_.text + column + ": " + error.what();
  auto * const to = json();
  if ( !to ) {
    out_.flush();
    err_ << text << std::endl;
    return text;
  }
  to->line( [ & ] {
    to->member( "error", error.what() );
    putPlace();
    if ( badLine ) {
      to->member( "column", badLine->column );
    }
    if ( badLine && badLine->mismatch ) {
      to->member( "expected", badLine->mismatch->expected );
      to->member( "found", badLine->mismatch->found );
    }
  } );
  return text;
}

void Session::putPlace() {
  json_.member( "place", place_.text );
  if ( place_.number > 0 ) {
    json_.member( "line", place_.number );
  }
}

LineStatus Session::conclude() {
  sayStanding();
  const auto status = isBad_                        ? LineStatus::bad
                      : failures_ > failuresBefore_ ? LineStatus::failed
                                                    : LineStatus::ok;
  if ( auto * const to = isRemark_ && !isBad_ ? nullptr : json() ) {
    wordLines_.endLine();
    to->line( [ & ] {
      to->member( "status", stringValue( status ) );
      putPlace();
      to->member( "time", Vex::Clock::now() );
    } );
  }
  return status;
}

LineStatus Session::refuse( const Place & place, const String & why ) {
  place_ = place;
  lineIsJson_.reset();
  isRemark_ = false;
  badLineIs( std::runtime_error( why ) );
  return conclude();
}

void Session::expectationIs( const String & failure ) {
  ++expectations_;
  if ( !failure.empty() ) {
    failureIs( failure );
  }
}

void Session::judge( bool holds, const String & subject, const String & expected,
                     const String & found ) {
  const auto failure =
      "expectation failed: " + subject + "\n  expected  " + expected + "\n  found     " + found;
  auto * const to = json();
  if ( !to ) {
    expectationIs( holds ? "" : failure );
    return;
  }
  ++expectations_;
  if ( !holds ) {
    ++failures_;
    lastFailure_ = failure;
  }
  to->line( [ & ] {
    to->member( "expectation", subject );
    to->member( "holds", holds );
    to->member( "expected", expected );
    to->member( "found", found );
  } );
}

void Session::failureIs( const String & text ) {
  ++failures_;
  lastFailure_ = text;
  if ( auto * const to = json() ) {
    to->line( [ & ] { to->member( "failure", text ); } );
    return;
  }
  out_.flush();
  err_ << place_.text << ": " << text << std::endl;
}

} // namespace KezShell
