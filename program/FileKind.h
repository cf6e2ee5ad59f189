// Files that a program was given, and another is to read.
#pragma once

#include "Vex/Value.h"

#include <initializer_list>

namespace Program {

// What agents leave in files. Lines are whatever is nothing else.
VEX_ENUM( FileKind, "Program::FileKind", lines, record, ring, table )

// Raises std::runtime_error, which says what the file is and what reads it, when it is of none of
// these kinds. A file that cannot be read is for who reads it to tell.
void expectKind( const Vex::String & path, std::initializer_list< FileKind > kinds );

} // namespace Program
