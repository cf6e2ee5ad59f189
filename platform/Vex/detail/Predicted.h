// For chains of loads: what the next one starts from is guessed, and a processor that is shown
// the check as a branch goes on with the guess instead of waiting.
#pragma once

namespace Vex::Detail {

// `actual`, which mostly is `guess`. The compiler must see neither that the two are the same where
// they have been compared, nor that no branch is needed.
template< class T > T predicted( T guess, T actual ) {
  T unchecked = guess;
  asm( "" : "+r"( unchecked ) );
  if ( actual == guess ) [[likely]] {
    asm( "" : "+r"( unchecked ) );
    return unchecked;
  }
  return actual;
}

} // namespace Vex::Detail
