// The client of a serving agent: sends lines, from arguments, a file or whoever types them, and
// prints what they are answered.
#pragma once

#include "Vex/Text.h"

#include <iosfwd>
#include <string>
#include <vector>

namespace Agent {

struct AttachOptions {
  Vex::String socket;
  std::vector< std::string > lines; // without any they come from standard input
  bool json = false;                // answers are in JSON
};

// The exit status: 0; 1 when an expectation failed; 2 after a bad line, which ends it unless it was
// typed. `input` is standard input. Raises std::runtime_error when the agent cannot be reached.
int attach( const AttachOptions & options, std::istream & input, bool isTerminal,
            std::ostream & out, std::ostream & err );

} // namespace Agent
