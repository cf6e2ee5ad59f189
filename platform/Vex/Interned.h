// Values that many share: each is kept once, under a number, while anyone uses it.
#pragma once

#include "Vex/Assert.h"
#include "Vex/Collection.h"

namespace Vex {

template< class T > class Interned {
public:
  // The number of a value that is used once more: at least 1, and the value's own until its last
  // use is dropped.
  uint32_t take( const T & value ) {
    ++*uses_.findOrAdd( value, [] { return 0u; } ).first;
    return uses_.slotOf( value ) + 1;
  }
  // One use less; whether it was the last. Asserts that there is one.
  bool drop( uint32_t number ) {
    uint32_t & uses = uses_.valueAt( number - 1 );
    VEX_ASSERT( uses > 0 );
    if ( --uses > 0 ) {
      return false;
    }
    const T value = ( *this )[ number ];
    uses_.erase( value );
    return true;
  }
  uint32_t uses( uint32_t number ) const { return uses_.valueAt( number - 1 ); }
  // Good until a value comes or goes.
  const T & operator[]( uint32_t number ) const { return uses_.keyAt( number - 1 ); }

private:
  Collection< T, uint32_t > uses_;
};

} // namespace Vex
