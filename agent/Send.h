// What lines say of frames: how one comes into the agent's switch, and which copies are expected of
// it. Frames change nothing.
#pragma once

#include "shell/Roots.h"
#include "switch/Frame.h"

#include <ostream>

namespace Agent {

// Reads "PORT [tag N] [from MAC] to MAC" or "tunnel T labels A[,B] [from MAC] to MAC" and the
// blanks behind it, and has the switch forward that frame. Raises ParseError, and BadLine when
// there is no agent.
Switch::Forwarded send( const Roots & roots, Vex::TextCursor & in );

void showForwarded( std::ostream & out, const Switch::Forwarded & forwarded );

// What a line expects of a frame's copies, and what there is; both are in order.
struct CopiesExpectation {
  Vex::String frame;
  Vex::String expected;
  Vex::String found;
};

// Reads a frame as `send` does, "copies", and these, separated by a comma and a blank, or "none".
CopiesExpectation expectCopies( const Roots & roots, Vex::TextCursor & in );

} // namespace Agent
