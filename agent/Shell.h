// The agent's command line: the commands that every host has, its own, and a console for whoever
// started it.
//
// After a line that changes something the tasks run until none is ready. While a shell lives, what
// is traced goes to the console's output, in order with everything else, and to one who listens.
#pragma once

#include "Ringlog/TextTrace.h"
#include "agent/Wiring.h"
#include "record/Pace.h"
#include "record/Recorder.h"
#include "shell/Shell.h"

namespace Agent {

using KezShell::BadLine;

class Shell : private KezShell::Host {
public:
  Shell( Wiring & wiring, std::ostream & out, std::ostream & err );
  ~Shell() override;
  Shell( const Shell & ) = delete;
  Shell & operator=( const Shell & ) = delete;

  // A line of the console. Raises BadLine, and std::runtime_error for what the line is not to blame
  // for: a table is damaged, has no room or cannot be mounted. Neither is in the record.
  void execute( std::string_view line, const KezShell::Place & place ) {
    console_.execute( line, place );
  }
  // By which whoever gives its lines tells how they went.
  KezShell::Session & console() { return console_; }
  // Runs the tasks that are due.
  void catchUp() { runTasks( console_, 0 ); }

  // For sessions beside the console.
  KezShell::Shell & commands() { return commands_; }
  KezShell::Metrics metrics() const { return metricsOf( *this ); }
  // Executes them as lines of the console, now and after each restart.
  void standingLinesAre( std::vector< Vex::String > lines );
  // Runs one turn of the scheduler if one is due; whether one was.
  bool turn() { return pace_->turn( *wiring_.scheduler ); }
  // Seconds until the next turn is due, on the steady clock; none when none will be.
  std::optional< double > timeToTurn() const;
  // Whether time passes by lines alone.
  bool isVirtual() const override { return pace_->isVirtual(); }
  // Of the lines that are executed from now on.
  void paceIs( Pace & pace );
  Recorder & recorder() { return recorder_; }
  // Who hears what is traced before the console; none when it is empty.
  void traceListenerIs( Ringlog::Sink listener ) { traceListener_ = std::move( listener ); }

  size_t expectations() const { return console_.expectations(); }
  size_t failures() const { return console_.failures(); }
  const Vex::String & lastFailure() const { return console_.lastFailure(); }

private:
  using Session = KezShell::Session;

  const KezShell::Roots & roots() const override { return wiring_.roots; }
  void execute( const KezShell::Command & command, Vex::TextCursor & in, Session & session,
                std::string_view line ) override;
  void remarkIs( std::string_view text ) override;
  void runTasks( Session & session ) override { runTasks( session, 0 ); }
  bool isInterrupted() override;
  void addMetrics( KezShell::Metrics & metrics ) const override;

  void addCommands();
  void advance( Vex::TextCursor & in, Session & session );
  void restart( Vex::TextCursor & in, Session & session );
  void inputs( Vex::TextCursor & in, Session & session );
  void record( Vex::TextCursor & in, Session & session );

  void lineIs( std::string_view text );
  void runTasks( Session & session, double seconds );
  void inputsAreComplete( Session & session );
  void executeStandingLines();

  Wiring & wiring_;
  Recorder recorder_;
  Pace ordinaryPace_;
  Pace * pace_ = &ordinaryPace_;
  KezShell::Shell commands_{ *this };
  Session console_;
  std::vector< Vex::String > standingLines_;
  Ringlog::Sink traceListener_;
};

// As poll takes how long it is to wait: milliseconds, or -1 for ever.
int millisecondsOf( std::optional< double > seconds );

} // namespace Agent
