#include "Vex/Descriptor.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <unistd.h>
#include <utility>

namespace Vex {

Descriptor::~Descriptor() {
  if ( number_ >= 0 ) {
    close( number_ );
  }
}

Descriptor::Descriptor( Descriptor && other ) noexcept
    : number_( std::exchange( other.number_, -1 ) ) {}

Descriptor & Descriptor::operator=( Descriptor && other ) noexcept {
  std::swap( number_, other.number_ );
  return *this;
}

void throwSystemError( const String & what ) {
  throw std::runtime_error( what + ": " + std::strerror( errno ) );
}

} // namespace Vex
