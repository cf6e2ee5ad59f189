// What an operator sees of entities, through reflection alone.
#pragma once

#include "shell/Path.h"

#include <ostream>

namespace Agent {

// The time, of which kind it is, and all roots, a line or two each: class and sizes of collections.
void showOverview( std::ostream & out, const Roots & roots, bool isVirtual );

// What stands at the path: an entity or a collection as an indented tree down to the last
// member, anything else on a line. References are named and not followed.
void showPath( std::ostream & out, const Path & path );

// The attributes of the class that the path leads to: kind, types of keys and values, access.
void showClass( std::ostream & out, const Path & path );

// Rows of columns with as much space as each column needs; the last one is not padded.
void showTable( std::ostream & out, const std::vector< std::vector< Vex::String > > & rows );

} // namespace Agent
