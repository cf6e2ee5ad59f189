// Which levels of which handles are traced, as operators write it: entries PATTERN[/LEVELS]
// separated by commas. In PATTERN, * stands for any characters and ? for one. LEVELS is 5, 0-5
// or 1+5+8-9; without it all levels are meant. A handle gets the levels of every entry that its
// name matches. The empty setting traces nothing.
#pragma once

#include "Vex/Text.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace Ringlog {

class Setting {
public:
  // Raises Vex::ParseError.
  explicit Setting( std::string_view text );

  const Vex::String & text() const { return text_; }
  // The levels of a handle, a bit each.
  uint32_t levels( std::string_view handleName ) const;

private:
  struct Entry {
    Vex::String pattern;
    uint32_t levels;
  };

  Vex::String text_;
  std::vector< Entry > entries_;
};

} // namespace Ringlog
