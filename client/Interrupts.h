// While one lives, the signal of Ctrl-C ends what is waited for or said, and not the program.
#pragma once

#include <csignal>

namespace Agent {

class Interrupts {
public:
  Interrupts();
  ~Interrupts();
  Interrupts( const Interrupts & ) = delete;
  Interrupts & operator=( const Interrupts & ) = delete;

  // Whether one came since this was asked last.
  static bool come();

private:
  struct sigaction before_ {};
};

} // namespace Agent
