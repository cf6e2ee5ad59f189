// A text file that grows at its end. What has been appended is in the file whatever becomes of the
// process, without a system call each: it is written to a window of the file that is mapped to
// memory, ahead of which the file is filled with line ends. So a process that is killed leaves
// blank lines behind at the end, and nothing else. Each window is made ready by a thread of its own
// while the one before is in use: fresh pages cost more than what is written to them.
#pragma once

#include "Vex/Descriptor.h"

#include <future>
#include <memory>

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
  // Raises std::runtime_error when it cannot be read.
  Vex::String text() const;
  // Raises std::runtime_error when the file cannot grow; it keeps what it has.
  void append( std::string_view text );
  // Takes back what follows the first `size` characters.
  void cut( size_t size );

private:
  static constexpr size_t windowSize = 256 << 10;
  struct Unmap {
    void operator()( char * window ) const;
  };
  using Window = std::unique_ptr< char[], Unmap >;

  [[noreturn]] void fail( std::string_view what ) const;
  Window windowAt( size_t begin );
  void windowIs( size_t begin, Window window );

  const Vex::String name_;
  const Vex::Descriptor file_;
  size_t begin_ = 0;  // of the window, in the file
  size_t used_ = 0;   // of the window
  size_t filled_ = 0; // of the file; windowAt's, which is never under way twice
  Window window_;
  std::future< Window > next_;
};

} // namespace Agent
