#include "Rook/Mapping.h"

#include <cerrno>
#include <sys/mman.h>
#include <system_error>
#include <utility>

namespace Rook {

static std::byte * checked( void * memory ) {
  if ( memory == MAP_FAILED ) {
    throw std::system_error( errno, std::generic_category() );
  }
  return static_cast< std::byte * >( memory );
}

Mapping::Mapping( int file, int protection, std::span< const Part > parts ) {
  // Addresses for all parts first, which `all` gives back if one of them cannot be shown.
  Mapping all;
  for ( const auto & part : parts ) {
    all.size_ += part.size;
  }
  all.memory_ = checked(
      mmap( nullptr, all.size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0 ) );
  std::byte * at = all.memory_;
  for ( const auto & part : parts ) {
    checked( mmap( at, part.size, protection, MAP_SHARED | MAP_NORESERVE | MAP_FIXED, file,
                   static_cast< off_t >( part.offset ) ) );
    at += part.size;
  }
  *this = std::move( all );
}

Mapping::~Mapping() {
  if ( memory_ ) {
    munmap( memory_, size_ );
  }
}

Mapping::Mapping( Mapping && other ) noexcept
    : memory_( std::exchange( other.memory_, nullptr ) ), size_( std::exchange( other.size_, 0 ) ) {
}

Mapping & Mapping::operator=( Mapping && other ) noexcept {
  std::swap( memory_, other.memory_ );
  std::swap( size_, other.size_ );
  return *this;
}

} // namespace Rook
