// Files that a process writes, and others read, under names that its host gives.
#pragma once

#include "Vex/Descriptor.h"

#include <sys/types.h>

namespace Vex {

// The mode of files that are made from now on, whatever the umask: 0644 at first. It belongs to the
// process.
mode_t fileMode();
void fileModeIs( mode_t mode );

// Each is opened to be read and written, without waiting for what a pipe's other end does; whether
// it is a regular file is for the caller to ask. Each raises std::runtime_error when that fails,
// and the last two where the last part of the path is a link, or the file is another user's.

// A file that is not there yet, or none if there is something of that name.
Descriptor makeFile( const String & path );
// One that is there, or none if there is nothing of that name.
Descriptor openOwnFile( const String & path );
Descriptor openOrMakeOwnFile( const String & path );

} // namespace Vex
