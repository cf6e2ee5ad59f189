// What an operator sees of entities, through reflection alone, in JSON: a value for each entity,
// attribute and member, each with the path by which a line names it.
#pragma once

#include "Vex/Json.h"
#include "shell/Answer.h"
#include "shell/Path.h"
#include "shell/Selection.h"

#include <memory>

namespace KezShell {

// All roots: class, role, sizes of collections.
void showOverviewInJson( Vex::JsonWriter & out, const Roots & roots );

// What stands at the path, as showPath tells it.
std::unique_ptr< Answer > showPathInJson( Vex::JsonWriter & out, const Path & path,
                                          const Selection & selection = {} );

// The attributes and operations of the class that the path leads to.
void showClassInJson( Vex::JsonWriter & out, const Path & path );

} // namespace KezShell
