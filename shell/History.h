// What was traced of something, read from the ring that the host writes.
#pragma once

#include "Vex/Text.h"
#include "shell/Answer.h"

#include <memory>
#include <vector>

namespace KezShell {

// The words of a key, by which it is looked for in what was traced.
std::vector< Vex::String > wordsOfKey( std::string_view key );

// The latest that names all of the words; nothing at all is said where there is nothing. Null
// without a ring.
std::unique_ptr< Answer > lastTraced( std::vector< Vex::String > words );

} // namespace KezShell
