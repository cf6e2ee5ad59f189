// Assertions stay on in every build. A failed one writes the condition's source text and its
// place to standard error and aborts; there is no recovery. Code that several owners share names
// the owner's source too. None needs memory; what is beyond 4 KiB of a message is not said.
#pragma once

#include <string_view>

namespace Vex {

// Writes `said`, if anything, as a line before, "<file without extension>:<line>: assertion failed:
// <condition>", and aborts.
[[noreturn]] void assertionFailed( const char * condition, const char * file, int line,
                                   std::string_view said = {} ) noexcept;

// Writes "<source without extension>: assertion failed: <condition> (<file without
// extension>:<line>)" and aborts.
[[noreturn]] void assertionFailed( const char * condition, const char * source, const char * file,
                                   int line ) noexcept;

} // namespace Vex

#define VEX_ASSERT( cond )                                                                         \
  ( static_cast< bool >( cond ) ? void() : Vex::assertionFailed( #cond, __FILE__, __LINE__ ) )

#define VEX_ASSERT_IN( source, cond )                                                              \
  ( static_cast< bool >( cond ) ? void()                                                           \
                                : Vex::assertionFailed( #cond, source, __FILE__, __LINE__ ) )
