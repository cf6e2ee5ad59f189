// Open files of the operating system, and its errors.
#pragma once

#include "Vex/Text.h"

namespace Vex {

// A file descriptor, closed at the end.
class Descriptor {
public:
  explicit Descriptor( int number = -1 ) : number_( number ) {}
  ~Descriptor();
  Descriptor( Descriptor && other ) noexcept;
  Descriptor & operator=( Descriptor && other ) noexcept;

  int number() const { return number_; }

private:
  int number_;
};

// Raises std::runtime_error: `what` and the reason that errno tells.
[[noreturn]] void throwSystemError( const String & what );

} // namespace Vex
