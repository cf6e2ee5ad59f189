#include "agent/Shell.h"

#include "Vex/Clock.h"
#include "Vex/Domain.h"
#include "agent/EndingSignal.h"
#include "agent/HardwareMetrics.h"
#include "agent/Send.h"
#include "client/Interrupts.h"
#include "record/RecordEntry.h"

#include <algorithm>
#include <cmath>

namespace Agent {

using KezShell::Effect;
using KezShell::failAt;
using KezShell::takeRest;
using Vex::String;

Shell::Shell( Wiring & wiring, std::ostream & out, std::ostream & err )
    : wiring_( wiring ), console_( commands_, KezShell::Rights::console, out, err ) {
  addCommands();
  paceIs( ordinaryPace_ );
  Ringlog::sinkIs( [ this, &out ]( const Ringlog::TextRecord & record ) {
    if ( traceListener_ ) {
      traceListener_( record );
    }
    if ( console_.isJson() ) {
      Vex::JsonWriter json( out );
      json.line( [ & ] {
        json.member( "trace", record.text );
        json.member( "time", record.time );
        json.member( "handle", record.handle );
        json.member( "level", record.level );
      } );
      return;
    }
    Vex::TextBuffer line;
    Ringlog::appendLine( line, record );
    out << line.view() << '\n';
  } );
}

Shell::~Shell() {
  if ( wiring_.hardware ) {
    wiring_.hardware->listenerDel( recorder_ );
  }
  Ringlog::sinkIs( {} );
}

void Shell::paceIs( Pace & pace ) {
  pace_ = &pace;
  pace.schedulerIs( *wiring_.scheduler );
  // On virtual time it is the line, as it is recorded, that says how much passes.
  pace.interruptedIs(
      [ &pace ] { return !pace.isVirtual() && ( Interrupts::come() || EndingSignal::come() ); } );
}

void Shell::standingLinesAre( std::vector< String > lines ) {
  standingLines_ = std::move( lines );
  executeStandingLines();
}

std::optional< double > Shell::timeToTurn() const {
  const auto deadline = wiring_.scheduler->nextDeadline();
  return deadline ? std::optional( *deadline - Vex::Clock::steadyNow() ) : std::nullopt;
}

int millisecondsOf( std::optional< double > seconds ) {
  constexpr double longest = 3600;
  return seconds ? static_cast< int >( std::ceil( std::clamp( *seconds, 0.0, longest ) * 1000 ) )
                 : -1;
}

void Shell::executeStandingLines() {
  for ( const auto & line : standingLines_ ) {
    console_.execute( line, "standing" );
  }
}

void Shell::addCommands() {
  const auto own = [ & ]( void ( Shell::*run )( Vex::TextCursor &, Session & ) ) {
    return
        [ this, run ]( Vex::TextCursor & in, Session & session ) { ( this->*run )( in, session ); };
  };
  addAudit( commands_ );
  addSend( commands_ );
  commands_.commandIs( { "advance", "SECONDS", "let time pass, running the tasks that fall due",
                         "Tasks run at their time. On the steady clock the time is waited for.\n"
                         "  advance 5\n",
                         Effect::waits, own( &Shell::advance ) },
                       "call" );
  commands_.commandIs(
      { "restart", "[hitless]", "end the agent and start it anew",
        "Machines, outputs and hardware are made anew over the inputs as they stand. Hardware is\n"
        "empty then, and so is its journal, as large as before, and behaves as it does at first. "
        "With\n"
        "hitless it stays as it is: what is asked for and stands is not programmed again, and once "
        "all\n"
        "machines have looked at their inputs the rest is removed; show takeover says how far that "
        "is.\n"
        "When they cannot be made, as without the file of a table, inputs are all there is until\n"
        "another restart.\n"
        "  restart\n"
        "  restart hitless\n",
        Effect::changes, own( &Shell::restart ) },
      "trace" );
  commands_.commandIs(
      { "inputs", "complete", "let a takeover remove what nobody asks for",
        "Until then, or for 300 s (takeover.timeLimit), an agent that started over a switch with\n"
        "contents, by --journal, leaves what it finds. Without a takeover this does nothing.\n"
        "  inputs complete\n",
        Effect::changes, own( &Shell::inputs ) },
      "trace" );
  commands_.commandIs(
      { "record", "FILE | off", "write the lines of this session to a file",
        "FILE, which must not be there yet, gets every line that was accepted since the session\n"
        "began, and each that comes with what hardware answered. kez-agent replay FILE leads to\n"
        "the same state.\n"
        "  record session.kez\n",
        Effect::changes, own( &Shell::record ), true },
      "help" );
}

void Shell::execute( const KezShell::Command & command, Vex::TextCursor & in, Session & session,
                     std::string_view line ) {
  if ( command.ofSession ) {
    command.run( in, session );
    return;
  }
  runTasks( session, 0 );
  lineIs( line );
  try {
    command.run( in, session );
  } catch ( ... ) {
    recorder_.lineDel();
    throw;
  }
}

bool Shell::isInterrupted() {
  return Interrupts::come() || EndingSignal::come();
}

void Shell::addMetrics( KezShell::Metrics & metrics ) const {
  if ( wiring_.hardware ) {
    addHardwareMetrics( metrics, *wiring_.hardware );
  }
}

// The entries of a record that is run are none of this session's.
void Shell::remarkIs( std::string_view text ) {
  if ( !text.starts_with( entryMark ) ) {
    lineIs( text );
  }
}

void Shell::lineIs( std::string_view text ) {
  try {
    recorder_.lineIs( text );
  } catch ( const std::runtime_error & error ) {
    throw BadLine( 1, String( error.what() ) + "; the record ends before this line" );
  }
  pace_->lineIs( text );
}

void Shell::advance( Vex::TextCursor & in, Session & session ) {
  const size_t offset = in.offset();
  const auto text = takeRest( in );
  const auto seconds =
      KezShell::inTextAt( offset + 1, [ & ] { return Vex::parseHeld< Vex::Seconds >( text ); } );
  runTasks( session, seconds );
}

void Shell::runTasks( Session & session, double seconds ) {
  switch ( pace_->run( *wiring_.scheduler, seconds ) ) {
  case Pace::Run::done:
    break;
  case Pace::Run::interrupted:
    session.failureIs( "interrupted" );
    break;
  case Pace::Run::endless:
    session.failureIs( "tasks are still ready after " + std::to_string( turnLimit ) +
                       " turns of the scheduler" );
    break;
  }
}

void Shell::restart( Vex::TextCursor & in, Session & session ) {
  auto hardware = Hardware::empties;
  if ( !in.done() ) {
    const size_t offset = in.offset();
    const auto how = takeRest( in );
    if ( how != "hitless" ) {
      failAt( offset, "hitless or the end of the line", how );
    }
    hardware = Hardware::stays;
  }
  // What they hold is to end before it is made anew.
  commands_.answersDel( "the agent starts anew" );
  wiring_ = unwired( wiring_, hardware );
  pace_->schedulerIs( *wiring_.scheduler );
  wiring_ = wire( wiring_ );
  inputsAreComplete( session );
  executeStandingLines();
}

void Shell::inputs( Vex::TextCursor & in, Session & session ) {
  const size_t offset = in.offset();
  const auto how = takeRest( in );
  if ( how != "complete" ) {
    failAt( offset, "complete", how );
  }
  inputsAreComplete( session );
}

void Shell::inputsAreComplete( Session & session ) {
  if ( wiring_.takeover ) {
    wiring_.takeover->inputsAreComplete();
  }
  runTasks( session, 0 );
}

void Shell::record( Vex::TextCursor & in, Session & ) {
  const size_t offset = in.offset();
  const String name( takeRest( in ) );
  if ( name.empty() ) {
    failAt( offset, "a file or off", name );
  }
  if ( name != "off" && !Vex::Clock::isVirtual() ) {
    throw BadLine( offset + 1, "expected the option --record: a session on the steady clock is "
                               "recorded from its beginning" );
  }
  try {
    if ( name == "off" ) {
      recorder_.fileDel();
    } else {
      recorder_.fileIs( name );
    }
    if ( wiring_.hardware ) {
      wiring_.hardware->listenerDel( recorder_ );
      if ( name != "off" ) {
        wiring_.hardware->listenerIs( recorder_ );
      }
    }
  } catch ( const std::runtime_error & error ) {
    throw BadLine( offset + 1, error.what() );
  }
}

} // namespace Agent
