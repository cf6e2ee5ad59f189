#include "client/Interrupts.h"

namespace Agent {

namespace {

volatile std::sig_atomic_t hasCome = 0;

} // namespace

Interrupts::Interrupts() {
  struct sigaction action {};
  action.sa_handler = []( int ) { hasCome = 1; };
  sigaction( SIGINT, &action, &before_ );
}

Interrupts::~Interrupts() {
  sigaction( SIGINT, &before_, nullptr );
}

bool Interrupts::come() {
  const bool came = hasCome != 0;
  hasCome = 0;
  return came;
}

} // namespace Agent
