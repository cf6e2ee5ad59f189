// The file of a ring that is being written: made beside the file that it then takes the place of,
// so that readers of that one, and threads that still write to it, keep it whole.
#pragma once

#include "Ringlog/RingFormat.h"
#include "Vex/Descriptor.h"

namespace Ringlog {

using Vex::Descriptor;

// Raises std::runtime_error unless a ring may take the place of `path`: no file, an empty one, or
// a ring that no living process writes to, except for `own`.
void checkReplaceable( const Vex::String & path, const Descriptor & own );

class RingFile {
public:
  // Raises std::runtime_error.
  RingFile( const Vex::String & path, size_t bytes );
  ~RingFile();
  RingFile( const RingFile & ) = delete;
  RingFile & operator=( const RingFile & ) = delete;

  const RingFormat::Header & header() const { return header_; }
  RingFormat::Progress & progress() const;
  uint64_t * table() const;
  RingFormat::Block & block( size_t index ) const;

  // Open, it keeps other processes from taking the file's place.
  Descriptor takeLock() { return std::move( lock_ ); }

private:
  void makeHeader( size_t bytes );
  void writeHeader();

  Descriptor lock_;
  RingFormat::Header header_{};
  std::byte * memory_ = nullptr;
};

} // namespace Ringlog
