// One life of the whole agent on virtual time, a line at a time. Lines are the agent's own, so that
// what the simulation did can be replayed in the agent, but for some that are comments there.
#pragma once

#include "agent/Shell.h"
#include "sim/Expectations.h"

#include <sstream>

namespace Sim {

using Lines = std::vector< Vex::String >;

// The machines are let come to rest, and everything is compared with what the inputs say.
inline constexpr std::string_view compareLine = "# compare";

// The machines that are named behind it bear a zombie mark from here on; have their notifications
// off from here on; make up for what they did not hear, all when none is named, and at a
// comparison. Where notifications were off a mark is put and taken away for that. In the order of
// the names.
inline constexpr std::string_view unheardLine = "# unheard";
inline constexpr std::string_view silentLine = "# silent";
inline constexpr std::string_view heardLine = "# heard";

// From the next restart on tables stand in files, as they do with the agent's option --tables.
inline constexpr std::string_view tablesLine = "# tables";

// The machines are let come to rest, and started anew over hardware that stays, which costs no more
// calls than hardware differs by afterwards.
inline constexpr std::string_view hitlessLine = "# hitless";

// Hardware is changed behind the machines' back by the line that is named behind it, which an audit
// mends: nothing, if hardware is being taken over or may lack room for FECs.
inline constexpr std::string_view tamperLine = "# tamper ";

// What ends all faults and lets all that is due be done.
inline const Lines settleLines{ "del switch.fault", "set scheduler.workBudget 1000",
                                "set switchAnswers.answerDelay 0", "advance 60" };

// What makes hardware follow where it lags behind its inputs by rule.
inline const Lines followLines{ "set evpnFloodingEsiSm.reprogramChangedEsi true",
                                "set evpnFloodingEsiSm.unprogramUnusableLabel true",
                                "set evpnHwTunnelIdSm.retryLackingTunnel true",
                                "set esiFilteringDecapSm.unprogramOtherViaType true" };

class Simulation {
public:
  Simulation();
  ~Simulation();
  Simulation( const Simulation & ) = delete;
  Simulation & operator=( const Simulation & ) = delete;

  // What is wrong after the line; empty when nothing is.
  Vex::String execute( const Vex::String & line );
  const System & system() const { return *system_; }

private:
  Vex::String executeOne( const Vex::String & line );
  void executeInAgent( const Vex::String & line );
  Vex::String restart( const Vex::String & line );
  Vex::String settle();
  Vex::String restartHitless();
  Vex::String tamper( const Vex::String & line );
  // What an audit finds, but for what lags by rule unless nothing may.
  Vex::String audited( bool nothingLags );
  void remember( const Vex::String & line );
  Vex::String brokenPromises() const;
  Vex::String brokenInvariants() const;
  Vex::String compare();
  Vex::String reviewEverything();
  void tellMachines( std::string_view names, std::string_view kind );
  void hear( Kez::StateMachine & machine );
  bool isDeaf( const Kez::StateMachine & machine ) const;
  uint64_t hardwareCalls() const;
  uint64_t hardwareChanges() const;

  Agent::Wiring wiring_;
  std::ostream nowhere_{ nullptr };
  std::ostringstream errors_;
  Agent::Shell shell_;
  std::optional< System > system_;
  std::vector< Kez::StateMachine * > deaf_; // in the order in which they came to be
  Vex::String tables_;                      // the directory of tables; empty for private memory
  History history_;
  // To ask all machines costs as much as so many lines.
  static constexpr size_t linesACheck = 8;
  size_t lines_ = 0;
};

// Below which a process has its tables.
Vex::String tablesOf( pid_t process );

struct Outcome {
  size_t line = 0; // the index of the one that showed it
  Vex::String text;
  bool endedProcess = false; // whether it was the process that came to an end there
};

// What went wrong first, if anything. `line` follows the index of the line that is executed.
std::optional< Outcome > run( const Lines & lines, volatile size_t * line = nullptr );

// The machines that the agent hosts.
const std::vector< Vex::String > & machineNames();

// The inputs as they stand, as lines that set them, and lines that tell of every route.
Lines inputLines( const System & system );

} // namespace Sim
