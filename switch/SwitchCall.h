// One call that a helper makes of the simulated switch, what the switch answers, and whoever
// listens to them. Every call of every helper passes SimulatedSwitch::creation() or deletion(), and
// so do the answers for FECs and flood-set destinations; with nobody listening neither makes a
// text.
#pragma once

#include "switch/FaultPlan.h"

namespace Switch {

// What became of a call: carried out, failed by the operation's plan, without room, or left undone
// because it is wrong.
VEX_ENUM( Outcome, "Switch::Outcome", done, planned, full, refused )

// Printed as "done", "done 0:7", "tableFull as planned", "no room" or "refused"; ", wrong: " and
// what is wrong follow.
struct SwitchAnswer {
  Outcome outcome = Outcome::done;
  Failure failure = Failure::notProgrammed; // unless it is done
  Vex::String given; // with what is done, by an operation that gives something
  Vex::String wrong; // with the call; empty for a right one

  bool isPlainlyDone() const { return outcome == Outcome::done && given.empty() && wrong.empty(); }
  bool operator==( const SwitchAnswer & ) const = default;
};
void appendText( Vex::TextBuffer & out, const SwitchAnswer & answer );
// All that is left. The text of a refusal does not tell its failure.
void parseText( Vex::TextCursor & in, SwitchAnswer & answer );

struct SwitchCall {
  Operation operation;
  std::string_view arguments;
  SwitchAnswer answer;
};

// Printed as "createVlan 10 dot1q 110 -> notProgrammed as planned"; " -> done" is left out.
void appendText( Vex::TextBuffer & out, const SwitchCall & call );

// Who hears of the calls of a simulated switch.
class SwitchListener {
public:
  virtual ~SwitchListener() = default;
  // Before the call is carried out, and before its answer leads to further calls. A listener may
  // put another answer in the place of the switch's own.
  virtual void hear( SwitchCall & call ) = 0;
};

} // namespace Switch
