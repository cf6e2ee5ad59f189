// While one lives, a signal that would end the program, SIGINT or SIGTERM, has it end in order:
// what waits for input or for time returns. The same signal once more ends it at once.
#pragma once

#include <csignal>

namespace Agent {

class EndingSignal {
public:
  EndingSignal();
  ~EndingSignal();
  EndingSignal( const EndingSignal & ) = delete;
  EndingSignal & operator=( const EndingSignal & ) = delete;

  // The number of the one that has come; 0 for none.
  static int come();

private:
  struct sigaction interrupted_ {};
  struct sigaction terminated_ {};
};

} // namespace Agent
