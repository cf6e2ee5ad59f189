// A client's side of an agent's door (docs/door.md).
#pragma once

#include "Vex/Descriptor.h"

#include <functional>
#include <stdexcept>

namespace Agent {

// How a line went, which is what a program that gave it ends with.
enum class Status { ok = 0, failed = 1, bad = 2 };

// A signal came while an answer was awaited. The rest of the answer is not to be had.
class Interrupted : public std::runtime_error {
public:
  Interrupted() : std::runtime_error( "interrupted" ) {}
};

class Connection {
public:
  // What an answer's lines are handed to, and whether each is an error's.
  using Hear = std::function< void( std::string_view line, bool isError ) >;

  // To the socket at this path. Raises std::runtime_error, as does everything when the agent does
  // not answer as one.
  explicit Connection( const Vex::String & path );

  // Sends a line, which has no line end, and awaits its answer.
  Status ask( std::string_view line, const Hear & hear );
  bool isReadOnly() const { return readOnly_; }
  // What is called before it waits for more of an answer.
  void pauseIs( std::function< void() > pause ) { pause_ = std::move( pause ); }

private:
  // Hands out the lines before the next status, which is returned.
  Vex::String awaitStatus( const Hear & hear );
  Vex::String nextLine();

  Vex::String path_;
  Vex::Descriptor socket_;
  Vex::String received_;
  size_t at_ = 0; // of what was received, what comes next
  bool readOnly_ = false;
  std::function< void() > pause_ = [] {};
};

} // namespace Agent
