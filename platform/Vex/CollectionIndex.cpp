#include "Vex/detail/CollectionIndex.h"

#include "Vex/detail/CollectionMemory.h"

namespace Vex::Detail {

static_assert( alignof( IndexChunk ) == cacheLine );

void CollectionIndex::makeFor( uint32_t members ) {
  const uint32_t count = std::bit_ceil( ( members - 1 ) / IndexChunk::maxLoad + 1 );
  const size_t bytes = count * sizeof( IndexChunk );
  clear();
  chunks_ = static_cast< IndexChunk * >( zeroedLines( bytes ) );
  constexpr size_t neighbours = ContainerHash::neighbourMask * sizeof( IndexChunk );
  const uint32_t shift = shiftOfOne - static_cast< uint32_t >( std::countr_zero( count ) );
  geometry_ = shift | ( ( bytes - sizeof( IndexChunk ) ) & neighbours );
}

void CollectionIndex::enterFurther( Probe next, uint32_t slot ) {
  do {
    advance( next );
  } while ( !enterChunk( next, slot ) );
}

void CollectionIndex::clear() {
  if ( stands() ) {
    freeLines( std::exchange( chunks_, nullptr ), chunkCount() * sizeof( IndexChunk ) );
  }
}

} // namespace Vex::Detail
