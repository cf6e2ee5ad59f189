#include "Rook/Mapping.h"

#include <cerrno>
#include <sys/mman.h>
#include <system_error>
#include <utility>

namespace Rook {

Mapping::Mapping( int file, int protection, std::span< const Part > parts ) {
  // What has no mapping yet is private, so that it counts for nothing.
  const auto map = [ & ]( void * at, size_t size, int protection, int flags, int file,
                          uint64_t offset ) {
    void * const memory =
        mmap( at, size, protection, flags | MAP_NORESERVE, file, static_cast< off_t >( offset ) );
    if ( memory == MAP_FAILED ) {
      throw std::system_error( errno, std::generic_category() );
    }
    return static_cast< std::byte * >( memory );
  };
  size_t size = 0;
  for ( const auto & part : parts ) {
    size += part.size;
  }
  Mapping made;
  made.memory_ = map( nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0 );
  made.size_ = size;
  std::byte * at = made.memory_;
  for ( const auto & part : parts ) {
    map( at, part.size, protection, MAP_SHARED | MAP_FIXED, file, part.offset );
    at += part.size;
  }
  *this = std::move( made );
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
