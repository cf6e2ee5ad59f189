#include "switch/SwitchCall.h"

namespace Switch {

namespace {

constexpr std::string_view wrongMark = ", wrong: ";

} // namespace

void appendText( Vex::TextBuffer & out, const SwitchAnswer & answer ) {
  switch ( answer.outcome ) {
  case Outcome::done:
    out.append( answer.given.empty() ? "done" : "done " );
    out.append( answer.given );
    break;
  case Outcome::planned:
    appendText( out, answer.failure );
    out.append( " as planned" );
    break;
  case Outcome::full:
    out.append( "no room" );
    break;
  case Outcome::refused:
    out.append( "refused" );
    break;
  }
  if ( !answer.wrong.empty() ) {
    out.append( wrongMark );
    out.append( answer.wrong );
  }
}

void parseText( Vex::TextCursor & in, SwitchAnswer & answer ) {
  answer = {};
  if ( in.skip( "refused" ) ) {
    answer.outcome = Outcome::refused;
  } else if ( in.skip( "no room" ) ) {
    answer.outcome = Outcome::full;
    answer.failure = Failure::tableFull;
  } else if ( in.skip( "done" ) ) {
    if ( in.skip( " " ) ) {
      answer.given = in.rest().substr( 0, in.rest().find( wrongMark ) );
      in.skip( answer.given );
    }
  } else {
    answer.outcome = Outcome::planned;
    if ( in.done() ) {
      in.fail( "an answer" );
    }
    parseText( in, answer.failure );
    in.expect( " as planned" );
  }
  if ( !in.done() ) {
    in.expect( wrongMark );
    answer.wrong = in.rest();
    in.atIs( in.end() );
  }
}

void appendText( Vex::TextBuffer & out, const SwitchCall & call ) {
  appendText( out, call.operation );
  out.append( ' ' );
  out.append( call.arguments );
  if ( !call.answer.isPlainlyDone() ) {
    out.append( " -> " );
    appendText( out, call.answer );
  }
}

} // namespace Switch
