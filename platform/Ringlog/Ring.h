// The process's binary trace: while a ring is mounted, every trace statement of every handle and
// level writes a record of its time, call site and values to a file that is mapped and used in
// the round. Nothing is formatted until somebody reads it (Ringlog/RingReader.h), at any time and
// from any process; all that was written outlives the process, however that ends.
//
// Threads write without waiting for each other. A child of fork has no ring mounted.
#pragma once

#include "Vex/Text.h"

#include <cstddef>

namespace Ringlog {

constexpr size_t smallestRing = size_t( 128 ) * 1024; // in bytes

// Mounts a new ring of about `bytes` in place of the one that is mounted and of the file `path`.
// Raises std::runtime_error, and then changes nothing: when the file is there and is no ring,
// when a living process writes to it, when it cannot be made, or when `bytes` are too few.
void ringIs( const Vex::String & path, size_t bytes );

// Unmounts the ring, if one is mounted; its file stays.
void ringDel();

// Of the file; empty when no ring is mounted.
Vex::String ringPath();

} // namespace Ringlog
