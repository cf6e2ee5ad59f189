// A text file that grows at its end. What has been appended is in the file whatever becomes of the
// process, without a system call each: it is written to a window of the file that is mapped to
// memory, ahead of which the file is filled with line ends. So a process that is killed leaves
// blank lines behind at the end, and nothing else.
#pragma once

#include "Vex/Text.h"

namespace Agent {

class RecordFile {
public:
  // Raises std::runtime_error when there is a file of this name, or none can be made.
  explicit RecordFile( const Vex::String & name );
  // Cuts the file to its size.
  ~RecordFile();
  RecordFile( const RecordFile & ) = delete;
  RecordFile & operator=( const RecordFile & ) = delete;

  size_t size() const { return begin_ + used_; }
  // Raises std::runtime_error when the file cannot grow; it keeps what it has.
  void append( std::string_view text );
  // Takes back what follows the first `size` characters.
  void cut( size_t size );

private:
  static constexpr size_t windowSize = 64 << 10;

  void windowIs( size_t begin );
  void unmap();

  const Vex::String name_;
  int file_ = -1;
  char * window_ = nullptr;
  size_t begin_ = 0;  // of the window, in the file
  size_t used_ = 0;   // of the window
  size_t filled_ = 0; // of the file
};

} // namespace Agent
