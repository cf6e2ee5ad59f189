#include "agent/EndingSignal.h"

namespace Agent {

namespace {

volatile std::sig_atomic_t hasCome = 0;

// What whoever started the process has it ignore stays so.
void take( int signal, struct sigaction & before ) {
  struct sigaction action {};
  action.sa_handler = []( int number ) { hasCome = number; };
  action.sa_flags = static_cast< int >( SA_RESETHAND );
  sigaction( signal, nullptr, &before );
  if ( before.sa_handler != SIG_IGN ) {
    sigaction( signal, &action, nullptr );
  }
}

} // namespace

EndingSignal::EndingSignal() {
  hasCome = 0;
  take( SIGINT, interrupted_ );
  take( SIGTERM, terminated_ );
}

EndingSignal::~EndingSignal() {
  sigaction( SIGINT, &interrupted_, nullptr );
  sigaction( SIGTERM, &terminated_, nullptr );
  hasCome = 0;
}

int EndingSignal::come() {
  return hasCome;
}

} // namespace Agent
