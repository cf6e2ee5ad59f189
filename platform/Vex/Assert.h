// Assertions stay on in every build. A failed one writes the condition's source text and its
// place to standard error and aborts; there is no recovery.
#pragma once

namespace Vex {

// Writes "<file without extension>:<line>: assertion failed: <condition>" and aborts.
[[noreturn]] void assertionFailed( const char * condition, const char * file, int line );

} // namespace Vex

#define VEX_ASSERT( cond )                                                                         \
  ( static_cast< bool >( cond ) ? void() : Vex::assertionFailed( #cond, __FILE__, __LINE__ ) )
