// What inputs know: the keys in their collections, found by reflection.
#pragma once

#include "Vex/Entity.h"
#include "shell/Roots.h"

#include <vector>

namespace KezShell {

// Whether a collection below a root of the role has the key of the type. What cannot be told, as a
// table is damaged, counts as known.
bool isKnown( const Roots & roots, Role role, std::string_view type, const Vex::String & key );

// The keys of the type below roots of the role, each once, of so many members as take no time.
std::vector< Vex::String > knownNames( const Roots & roots, Role role, std::string_view type );

} // namespace KezShell
