// What an operator sees of entities, through reflection alone.
#pragma once

#include "shell/Answer.h"
#include "shell/Path.h"
#include "shell/Selection.h"

#include <memory>

namespace KezShell {

// The time, of which kind it is, and all roots, a line or two each: class and sizes of collections.
void showOverview( std::ostream & out, const Roots & roots, bool isVirtual );

// What stands at the path: an entity or a collection as an indented tree down to the last member,
// of which all but the first line is returned, to be said member by member; anything else on a
// line. References are named and not followed. Of a collection that the path names what is selected
// alone is shown.
std::unique_ptr< Answer > showPath( std::ostream & out, const Path & path,
                                    const Selection & selection = {} );
// How many members of the collection that the path names are selected.
std::unique_ptr< Answer > countMembers( const Path & path, const Selection & selection );

// The attributes of the class that the path leads to: kind, types of keys and values, access.
void showClass( std::ostream & out, const Path & path );

// What is said there of one of them: its name with the type of its keys, its kind, the type of its
// values, and whether it may be written where the path leads.
std::vector< Vex::String > attributeColumns( const Path & path,
                                             const Vex::AttributeType & attribute );

// Behind what has a value.
void showValue( std::ostream & out, const Vex::String & value );

// Rows of columns with as much space as each column needs; the last one is not padded.
void showTable( std::ostream & out, const std::vector< std::vector< Vex::String > > & rows );

} // namespace KezShell
