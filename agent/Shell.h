// The agent's commands. A line is a command and what it applies to; blank lines and lines that
// begin with # are for readers. Everything is found by path, through reflection.
//
// A bad line changes nothing. A failed expectation is reported and counted, and the session goes
// on. After a line that changes something the tasks run until none is ready. While a shell
// lives, what is traced goes to its output, in order with everything else.
#pragma once

#include "agent/Wiring.h"
#include "record/Pace.h"
#include "record/Recorder.h"
#include "shell/Path.h"

#include <ostream>

namespace Agent {

class Shell {
public:
  Shell( Wiring & wiring, std::ostream & out, std::ostream & err );
  ~Shell();
  Shell( const Shell & ) = delete;
  Shell & operator=( const Shell & ) = delete;

  // `place` is where the line stands, for reports: "<file>:<line>". Raises BadLine, and
  // std::runtime_error for what the line is not to blame for: a table is damaged, has no room or
  // cannot be mounted. Neither is in the record.
  void execute( std::string_view line, const Vex::String & place );
  // Runs the tasks that are due.
  void catchUp() { runTasks( 0 ); }

  // Of the lines that are executed from now on.
  void paceIs( Pace & pace );
  Recorder & recorder() { return recorder_; }

  size_t expectations() const { return expectations_; }
  size_t failures() const { return failures_; }
  const Vex::String & lastFailure() const { return lastFailure_; }

private:
  struct Command;
  static const std::vector< Command > & commands();
  static const Command * command( std::string_view name );
  static Vex::String commandNames();

  void lineIs( std::string_view text );
  void set( Vex::TextCursor & in );
  void del( Vex::TextCursor & in );
  void show( Vex::TextCursor & in );
  void expect( Vex::TextCursor & in );
  void send( Vex::TextCursor & in );
  void explain( Vex::TextCursor & in );
  void check( Vex::TextCursor & in );
  void audit( Vex::TextCursor & in );
  void advance( Vex::TextCursor & in );
  void call( Vex::TextCursor & in );
  void restart( Vex::TextCursor & in );
  void inputs( Vex::TextCursor & in );
  void trace( Vex::TextCursor & in );
  void record( Vex::TextCursor & in );
  void help( Vex::TextCursor & in );

  void runTasks( double seconds );
  void inputsAreComplete();
  // Counts an expectation, and reports it unless it holds.
  void judge( bool holds, const Path & path, const Vex::String & expected,
              const Reading & reading );
  void judge( bool holds, const Vex::String & subject, const Vex::String & expected,
              const Vex::String & found );
  void reportFailure( const Vex::String & text );

  Wiring & wiring_;
  std::ostream & out_;
  std::ostream & err_;
  Recorder recorder_;
  Pace ordinaryPace_;
  Pace * pace_ = &ordinaryPace_;
  Vex::String place_; // of the line that is executed
  size_t expectations_ = 0;
  size_t failures_ = 0;
  Vex::String lastFailure_;
};

} // namespace Agent
