// Feeds lines to a shell, and tells whoever started it what came of them: on standard output and
// standard error, by the exit status, and to a report if there is one.
#pragma once

#include "agent/CommandLine.h"
#include "agent/Shell.h"
#include "record/Replay.h"
#include "report/Report.h"

namespace Agent {

struct Source {
  std::string name;
  std::unique_ptr< std::istream > file; // null for standard input
};

class Session {
public:
  // `report` may be null.
  Session( Shell & shell, bool echo, Report * report, std::ostream & out, std::ostream & err )
      : shell_( shell ), echo_( echo ), report_( report ), out_( out ), err_( err ) {}

  // The exit status.
  int run( const std::vector< Source > & sources, const Input & input );
  // The same. `name` is the record's; the line that has the number `until` in it is not executed,
  // nor those behind.
  int replay( Replay & replay, const std::string & name, size_t until );
  void converse( const Input & input );

  // How it ended, in a few words; a signal ends it after the line that is being executed.
  std::string verdict() const;

private:
  void converseAtTerminal();
  // Whether no further line is to be executed.
  bool isOver() const;
  // What can be done while nothing is typed; see LineEditor.
  int idle();
  // Tells it when anything was expected. The exit status.
  int tellVerdict();
  // Whether it was a good line, which could be executed.
  bool execute( const std::string & line, const std::string & file, size_t number );
  void executeReported( const std::string & line, const KezShell::Place & place );
  // In words, or in JSON where the console is answered so.
  void say( const std::string & text );
  void sayError( const std::string & text );
  void echo( bool isComment, std::string_view text );
  bool isJson() const { return shell_.console().isJson(); }

  Shell & shell_;
  const bool echo_;
  Report * const report_;
  std::ostream & out_;
  std::ostream & err_;
  std::string end_; // of a session that something ended
};

} // namespace Agent
