#include "shell/Session.h"

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

void Session::execute( std::string_view line, const String & place ) {
  place_ = place;
  const auto text = trimmed( line );
  if ( text.empty() || text.starts_with( '#' ) ) {
    shell_.host().remarkIs( text );
    return;
  }
  inTextAt( 1, [ & ] {
    Vex::TextCursor in( line.data(), text.data() + text.size() );
    in.atIs( text.data() );
    const size_t offset = in.offset();
    const auto name = takeWord( in );
    const auto * const command = shell_.command( name );
    if ( !command ) {
      failAt( offset, "a command (" + shell_.commandNames() + ")", name );
    }
    checkRights( *command, rights_ );
    shell_.host().execute( *command, in, *this, text );
  } );
}

void Session::answerIs( std::unique_ptr< Answer > answer ) {
  answer_ = std::move( answer );
  while ( answer_ && rights_ == Rights::console ) {
    say();
  }
}

void Session::say() {
  // Off the session while it speaks, so that one that fails is gone.
  auto answer = std::move( answer_ );
  if ( answer->say( out_ ) ) {
    answer_ = std::move( answer );
  }
}

void Session::answerDel( const String & why ) {
  if ( answer_ ) {
    answer_.reset();
    failureIs( "the answer ends here: " + why );
  }
}

void Session::expectationIs( const String & failure ) {
  ++expectations_;
  if ( !failure.empty() ) {
    failureIs( failure );
  }
}

void Session::judge( bool holds, const String & subject, const String & expected,
                     const String & found ) {
  expectationIs( holds ? ""
                       : "expectation failed: " + subject + "\n  expected  " + expected +
                             "\n  found     " + found );
}

void Session::failureIs( const String & text ) {
  ++failures_;
  lastFailure_ = text;
  out_.flush();
  err_ << place_ << ": " << text << std::endl;
}

} // namespace KezShell
