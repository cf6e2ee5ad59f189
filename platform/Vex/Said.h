// Assertions that say what they are about, in a line before: the pieces' brief forms, one after the
// other.
#pragma once

#include "Vex/Assert.h"
#include "Vex/Text.h"

namespace Vex {

template< class... Pieces > String said( const Pieces &... pieces ) {
  TextBuffer text;
  ( appendBriefText( text, pieces ), ... );
  return text.str();
}

[[noreturn]] void assertionFailed( const char * condition, const char * source, const char * file,
                                   int line, std::string_view said ) noexcept;

} // namespace Vex

#define VEX_ASSERT_SAYING( cond, ... )                                                             \
  ( static_cast< bool >( cond )                                                                    \
        ? void()                                                                                   \
        : Vex::assertionFailed( #cond, __FILE__, __LINE__, Vex::said( __VA_ARGS__ ) ) )

#define VEX_ASSERT_IN_SAYING( source, cond, ... )                                                  \
  ( static_cast< bool >( cond )                                                                    \
        ? void()                                                                                   \
        : Vex::assertionFailed( #cond, source, __FILE__, __LINE__, Vex::said( __VA_ARGS__ ) ) )
