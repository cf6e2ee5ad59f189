// What a host still does when an assertion has failed, before the process ends: it writes out what
// has been said so far, and then what came of it all.
#pragma once

#include <string_view>

namespace Vex {

class FatalEnd {
public:
  virtual ~FatalEnd() = default;
  // Before the assertion's message, so that this is the last of all that is said.
  virtual void flush() = 0;
  // After it, with all of it, for what may fail in the state that the process is in.
  virtual void conclude( std::string_view message ) = 0;
};

// The host's, or null. Each of the two is called once, whatever fails in it.
void fatalEndIs( FatalEnd * end );

} // namespace Vex
