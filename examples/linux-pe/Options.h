// What linux-pe is told on its command line.
#pragma once

#include "SwitchThread.h"

#include <stdexcept>

namespace LinuxPe {

struct Options {
  SwitchOptions hardware;
  Vex::String socket;
  Vex::String trace;
  bool help = false;
};

// A command line that cannot be followed.
class UsageError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

// Raises UsageError.
Options parseOptions( const std::vector< Vex::String > & arguments );

extern const char * const usage;

} // namespace LinuxPe
