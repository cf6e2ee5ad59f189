// Counts what is allocated. For one source of a program: it replaces the operators.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <new>

namespace Bench {

inline size_t allocations = 0;

// Adds what `work` allocates to `sum`.
template< class Work > void counting( size_t & sum, Work && work ) {
  const size_t before = allocations;
  work();
  sum += allocations - before;
}

} // namespace Bench

// Out of line: g++ 12 mistakes an inlined pair for a mismatch.
[[gnu::noinline]] void * operator new( size_t size ) {
  ++Bench::allocations;
  if ( void * memory = std::malloc( size ) ) {
    return memory;
  }
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete( void * memory ) noexcept {
  std::free( memory );
}
[[gnu::noinline]] void operator delete( void * memory, size_t ) noexcept {
  std::free( memory );
}
