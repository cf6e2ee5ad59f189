// What kez-agent does, called with its arguments. The exit status: 0; 1 when an expectation
// failed; 2 for a bad line of a run, an unknown command or option, or a file that cannot be read
// or written.
#pragma once

#include <istream>
#include <ostream>
#include <string>
#include <vector>

namespace Agent {

// Standard input and whether somebody types at it.
struct Input {
  std::istream & stream;
  bool terminal;
};

int kezAgent( const std::vector< std::string > & arguments, const Input & input, std::ostream & out,
              std::ostream & err );

} // namespace Agent
