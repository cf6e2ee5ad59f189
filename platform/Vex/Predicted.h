// For chains of loads: what the next one starts from is guessed, and a processor that is shown
// the check as a branch goes on with the guess instead of waiting.
#pragma once

namespace Vex::Detail {

// `actual`, which mostly is `guess`.
template< class T > T predicted( T guess, T actual ) {
  if ( actual == guess ) [[likely]] {
    asm( "" : "+r"( guess ) ); // else the compiler sees that the two are the same
    return guess;
  }
  return actual;
}

} // namespace Vex::Detail
