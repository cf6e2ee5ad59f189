// The commands of a host, and whoever gives them. A line is a command and what it applies to; blank
// lines and lines that begin with # are for readers. Everything is found by path, through
// reflection.
//
//   class Daemon : public KezShell::Host { ... };
//   KezShell::Shell shell( daemon );       // set, del, show, expect, explain, check, metrics,
//   call, trace KezShell::addAudit( shell );           // what else the host has shell.commandIs( {
//   "reload", ... } );
//
// A line that begins with --json is answered in JSON, a value a line, of which the last says how it
// went; so are all of a session after `json on`.
//
// A bad line changes nothing. A failed expectation is reported and counted, and the session goes
// on.
#pragma once

#include "shell/Line.h"
#include "shell/Metrics.h"
#include "shell/Roots.h"
#include "shell/Session.h"

#include <functional>

namespace KezShell {

// What a command does to the host: nothing, something, something that it alone decides the end of,
// during which the host does nothing else.
VEX_ENUM( Effect, "KezShell::Effect", none, changes, waits )

// A command, and what the shell knows of it before it runs.
struct Command {
  Vex::String name;
  Vex::String arguments;
  Vex::String summary; // none: the command is for programs, and not listed
  Vex::String detail;
  Effect effect = Effect::none;
  // Reads the rest of the line. Raises ParseError or BadLine, having changed nothing.
  std::function< void( Vex::TextCursor & in, Session & session ) > run;
  // Whether it is about the session itself, and says and does nothing that another would repeat.
  bool ofSession = false;
  // Reads the rest of "expect <name>", and has the session judge it; null when nothing can be
  // expected of it.
  std::function< void( Vex::TextCursor & in, Session & session ) > expect = {};
};

// What a shell is to know of whoever embeds it.
class Host {
public:
  virtual ~Host() = default;

  // What paths begin with, and by their roles and accesses what may be written.
  virtual const Roots & roots() const = 0;
  // Whether time passes by lines alone.
  virtual bool isVirtual() const;
  // A line, without blanks around it, that has been read as far as its command, which is to be run
  // on the rest.
  virtual void execute( const Command & command, Vex::TextCursor & in, Session & session,
                        std::string_view line );
  // A line that is for readers.
  virtual void remarkIs( std::string_view ) {}
  // Something was changed by a line. What follows from it at once is to be done before the line is
  // answered, unless the host's own loop is to do it afterwards.
  virtual void runTasks( Session & ) {}
  // Whether a console's answer is to end, since its reader wants it so.
  virtual bool isInterrupted() { return false; }
  // Figures that are not those of every host.
  virtual void addMetrics( Metrics & ) const {}
};

class Shell {
public:
  // With the commands that each host has.
  explicit Shell( Host & host );
  Shell( const Shell & ) = delete;
  Shell & operator=( const Shell & ) = delete;

  Host & host() const { return host_; }
  const Roots & roots() const { return host_.roots(); }

  // Listed before another command, or last.
  void commandIs( Command command, std::string_view before = {} );
  // Null when there is none of this name.
  const Command * command( std::string_view name ) const;
  const std::vector< Command > & commands() const { return commands_; }
  // Of those that are listed.
  Vex::String commandNames() const;

  // Answers that are being said hold entities. A host that must be rid of those ends them all.
  void answersDel( const Vex::String & why );

private:
  friend class Session;

  Host & host_;
  std::vector< Command > commands_;
  std::vector< Session * > sessions_;
};

// The groups of commands. Every shell has these,
void addEntityCommands( Shell & shell );
void addWatch( Shell & shell );
void addHistory( Shell & shell );
void addMachineCommands( Shell & shell );
void addMetrics( Shell & shell );
void addTrace( Shell & shell );
void addHelp( Shell & shell );
void addQuit( Shell & shell );
void addJson( Shell & shell );
// and what completes a line for a client.
void addCompletion( Shell & shell );
// For a host with a KezHelper::Audit among its roots, as `audit`.
void addAudit( Shell & shell );

} // namespace KezShell
