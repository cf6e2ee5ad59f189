#include "FailingNew.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

std::atomic< uint64_t > piecesLeft = UINT64_MAX;

} // namespace

FailingNew::FailingNew( size_t left ) {
  piecesLeft = left;
}

FailingNew::~FailingNew() {
  piecesLeft = UINT64_MAX;
}

void * operator new( size_t size ) {
  if ( piecesLeft != UINT64_MAX && piecesLeft-- == 0 ) {
    piecesLeft = 0;
    throw std::bad_alloc();
  }
  if ( void * const memory = std::malloc( size ) ) {
    return memory;
  }
  throw std::bad_alloc();
}
void * operator new( size_t size, const std::nothrow_t & ) noexcept {
  try {
    return operator new( size );
  } catch ( const std::bad_alloc & ) {
    return nullptr;
  }
}
void operator delete( void * memory ) noexcept {
  std::free( memory );
}
void operator delete( void * memory, size_t ) noexcept {
  std::free( memory );
}
void operator delete( void * memory, const std::nothrow_t & ) noexcept {
  std::free( memory );
}
