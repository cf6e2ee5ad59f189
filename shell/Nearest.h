// What whoever mistyped a name may have meant.
#pragma once

#include "Vex/Text.h"

#include <vector>

namespace KezShell {

// Of many names those nearest to this one, the nearest first; of few, all. Letter case counts for
// nothing.
std::vector< Vex::String > nearest( std::vector< Vex::String > names, std::string_view to );

} // namespace KezShell
