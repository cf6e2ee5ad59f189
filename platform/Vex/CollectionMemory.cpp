#include "Vex/detail/CollectionMemory.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include <sys/mman.h>
#include <unistd.h>

namespace Vex::Detail {

namespace {

constexpr size_t hugePage = size_t( 2 ) << 20;

void * checked( void * memory ) {
  if ( !memory ) {
    throw std::bad_alloc();
  }
  return memory;
}

size_t mappedBytes( size_t bytes ) {
  const auto page = static_cast< size_t >( getpagesize() );
  return ( bytes + page - 1 ) / page * page;
}

bool isLarge( size_t bytes ) {
  return mappedBytes( bytes ) >= 2 * hugePage;
}

// Zeroes, in a mapping of their own that begins with a huge page.
char * aligned( size_t bytes, int protection ) {
  const size_t wanted = mappedBytes( bytes );
  void * const memory =
      mmap( nullptr, wanted + hugePage, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0 );
  if ( memory == MAP_FAILED ) {
    throw std::bad_alloc();
  }
  char * const begin = static_cast< char * >( memory );
  const size_t before = hugePage - reinterpret_cast< uintptr_t >( begin ) % hugePage;
  munmap( begin, before );
  if ( before < hugePage ) {
    munmap( begin + before + wanted, hugePage - before );
  }
  return begin + before;
}

// What the allocator hands out anew may be in small pages already, and then it stays in them.
char * mapped( size_t bytes ) {
  char * const memory = aligned( bytes, PROT_READ | PROT_WRITE );
  madvise( memory, mappedBytes( bytes ), MADV_HUGEPAGE ); // else it does with small ones
  return memory;
}

void unmap( void * memory, size_t bytes ) {
  munmap( memory, mappedBytes( bytes ) );
}

// The pages themselves move, not what is in them.
char * grownMapping( char * old, size_t oldBytes, size_t bytes ) {
  char * const to = aligned( bytes, PROT_NONE );
  if ( mremap( old, mappedBytes( oldBytes ), mappedBytes( bytes ), MREMAP_MAYMOVE | MREMAP_FIXED,
               to ) == MAP_FAILED ) {
    throw std::bad_alloc(); // `to` may be another's by now: it is let go before all else
  }
  return to;
}

constexpr size_t beforeHead = cacheLine - memoryHead;

} // namespace

void * grownMemory( void * old, size_t used, size_t bytes ) {
  if ( !isLarge( beforeHead + bytes ) ) {
    return checked( std::realloc( old, bytes ) );
  }
  if ( old && isLarge( beforeHead + used ) ) {
    return grownMapping( static_cast< char * >( old ) - beforeHead, beforeHead + used,
                         beforeHead + bytes ) +
           beforeHead;
  }
  void * const memory = mapped( beforeHead + bytes ) + beforeHead;
  if ( old ) {
    std::memcpy( memory, old, used );
    freeMemory( old, used );
  }
  return memory;
}

void freeMemory( void * memory, size_t bytes ) {
  if ( isLarge( beforeHead + bytes ) ) {
    unmap( static_cast< char * >( memory ) - beforeHead, beforeHead + bytes );
  } else {
    std::free( memory );
  }
}

size_t wholePages( size_t bytes ) {
  const size_t mapping = beforeHead + bytes;
  return isLarge( mapping ) ? ( mapping + hugePage / 2 ) / hugePage * hugePage - beforeHead : bytes;
}

void * zeroedLines( size_t bytes ) {
  if ( isLarge( bytes ) ) {
    return mapped( bytes );
  }
  return std::memset( checked( std::aligned_alloc( cacheLine, bytes ) ), 0, bytes );
}

void freeLines( void * lines, size_t bytes ) {
  if ( isLarge( bytes ) ) {
    unmap( lines, bytes );
  } else {
    std::free( lines );
  }
}

} // namespace Vex::Detail
