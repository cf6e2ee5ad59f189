// Names and keys as operators type them.
#pragma once

#include <cstddef>
#include <string_view>

namespace Vex {

// In a pattern * stands for any characters, also none, and ? for one.
bool isPattern( std::string_view text );
bool matches( std::string_view pattern, std::string_view text );

// How many characters must be added, left out or replaced to come from one text to the other, by
// the algorithm of Wagner and Fischer; letter case counts for nothing.
size_t distance( std::string_view a, std::string_view b );

} // namespace Vex
