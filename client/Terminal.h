// What is said at a terminal: lines that are longer than it is wide go on below the column that
// they are in.
#pragma once

#include "Vex/Text.h"

#include <ostream>
#include <streambuf>

namespace Agent {

// A line in lines of at most `width` characters, cut at blanks, each but the first below the
// beginning of the line's last column: what follows two blanks or more. A word that is longer stays
// whole, and so does a value of JSON, and all lines where `width` is 0.
Vex::String wrapped( std::string_view line, size_t width );

// Writes to `out` what is written to it, wrapped by the width that the terminal has then.
class TerminalStream final : public std::ostream {
public:
  // `terminal` is a file descriptor; of what is no terminal nothing is wrapped.
  TerminalStream( std::ostream & out, int terminal );

private:
  class Buffer final : public std::streambuf {
  public:
    Buffer( std::ostream & out, int terminal ) : out_( out ), terminal_( terminal ) {}
    ~Buffer() override { sync(); }
    Buffer( const Buffer & ) = delete;
    Buffer & operator=( const Buffer & ) = delete;

  private:
    int_type overflow( int_type character ) override;
    int sync() override;

    std::ostream & out_;
    const int terminal_;
    Vex::String line_;
  };

  Buffer buffer_;
};

} // namespace Agent
