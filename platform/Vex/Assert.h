// Assertions stay on in every build. A failed one writes the condition's source text and its
// place to standard error and aborts; there is no recovery. Code that several owners share names
// the owner's source too.
#pragma once

namespace Vex {

// Writes "<file without extension>:<line>: assertion failed: <condition>" and aborts.
[[noreturn]] void assertionFailed( const char * condition, const char * file, int line );

// Writes "<source without extension>: assertion failed: <condition> (<file without
// extension>:<line>)" and aborts.
[[noreturn]] void assertionFailed( const char * condition, const char * source, const char * file,
                                   int line );

} // namespace Vex

#define VEX_ASSERT( cond )                                                                         \
  ( static_cast< bool >( cond ) ? void() : Vex::assertionFailed( #cond, __FILE__, __LINE__ ) )

#define VEX_ASSERT_IN( source, cond )                                                              \
  ( static_cast< bool >( cond ) ? void()                                                           \
                                : Vex::assertionFailed( #cond, source, __FILE__, __LINE__ ) )
