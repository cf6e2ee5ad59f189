#include "Vex/CollectionIndex.h"

#include <cstring>
#include <new>

#include <sys/mman.h>

namespace Vex::Detail {

namespace {

constexpr size_t hugePage = size_t( 2 ) << 20;

bool isLarge( size_t bytes ) {
  return bytes >= 2 * hugePage;
}

void * checked( void * memory ) {
  if ( !memory ) {
    throw std::bad_alloc();
  }
  return memory;
}

void * largeMemory( size_t bytes ) {
  void * memory = nullptr;
  if ( posix_memalign( &memory, hugePage, bytes ) != 0 ) {
    throw std::bad_alloc();
  }
  madvise( memory, bytes / hugePage * hugePage, MADV_HUGEPAGE ); // else it does with small ones
  return memory;
}

} // namespace

void * grownMemory( void * old, size_t used, size_t bytes ) {
  if ( !isLarge( bytes ) ) {
    return checked( std::realloc( old, bytes ) );
  }
  void * const memory = largeMemory( bytes );
  if ( old ) {
    std::memcpy( memory, old, used );
    std::free( old );
  }
  return memory;
}

void CollectionIndex::makeFor( uint32_t members ) {
  const uint32_t count = std::bit_ceil( ( members - 1 ) / IndexChunk::maxLoad + 1 );
  const size_t bytes = count * sizeof( IndexChunk );
  clear();
  chunks_ = static_cast< IndexChunk * >(
      isLarge( bytes ) ? largeMemory( bytes )
                       : checked( std::aligned_alloc( alignof( IndexChunk ), bytes ) ) );
  std::memset( static_cast< void * >( chunks_ ), 0, bytes );
  shift_ = 32 - static_cast< uint32_t >( std::countr_zero( count ) );
}

} // namespace Vex::Detail
