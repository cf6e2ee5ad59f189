#include "KezEvpn/HostSet.h"

#include <algorithm>
#include <bit>
#include <iterator>

namespace Kez {

static constexpr unsigned vlanBits = 16;

static uint64_t wordOf( const Bridging::MacVlanPair & host ) {
  return host.macAddr.value() << vlanBits | host.vlanId.value();
}
static Bridging::MacVlanPair hostOf( uint64_t word ) {
  return { word >> vlanBits, static_cast< uint16_t >( word ) };
}

static size_t roomIn( size_t places ) {
  return places * 7 / 8; // a place at least stays free, where a search ends
}

size_t HostSet::homeOf( uint64_t word ) const {
  return Vex::foldWord( 0, word ) & mask();
}

// Where the index has it, or would.
size_t HostSet::find( uint64_t word ) const {
  size_t at = homeOf( word );
  while ( places_[ at ] != noPlace && order_[ places_[ at ] ] != word ) {
    at = ( at + 1 ) & mask();
  }
  return at;
}

bool HostSet::has( const Host & host ) const {
  return size_ > 0 && places_[ find( wordOf( host ) ) ] != noPlace;
}

void HostSet::add( const Host & host ) {
  if ( has( host ) ) {
    return;
  }
  if ( order_.size() == roomIn( places_.size() ) ) {
    makeAnew();
  }
  places_[ find( wordOf( host ) ) ] = static_cast< uint32_t >( order_.size() );
  order_.push_back( wordOf( host ) );
  ++size_;
}

void HostSet::remove( const Host & host ) {
  if ( !has( host ) ) {
    return;
  }
  size_t gap = find( wordOf( host ) );
  order_[ places_[ gap ] ] = hole;
  for ( size_t at = ( gap + 1 ) & mask(); places_[ at ] != noPlace; at = ( at + 1 ) & mask() ) {
    const size_t home = homeOf( order_[ places_[ at ] ] );
    if ( ( ( at - home ) & mask() ) >= ( ( at - gap ) & mask() ) ) {
      places_[ gap ] = places_[ at ];
      gap = at;
    }
  }
  places_[ gap ] = noPlace;
  if ( --size_ == 0 ) {
    *this = HostSet();
  }
}

std::vector< Bridging::MacVlanPair > HostSet::all() const {
  std::vector< Host > hosts;
  hosts.reserve( size_ );
  for ( const auto word : order_ ) {
    if ( word != hole ) {
      hosts.push_back( hostOf( word ) );
    }
  }
  return hosts;
}

void HostSet::makeAnew() {
  const size_t places = std::bit_ceil( size_ + size_ / 4 + 4u );
  std::vector< uint64_t > order;
  order.reserve( roomIn( places ) );
  std::ranges::copy_if( order_, std::back_inserter( order ),
                        []( uint64_t word ) { return word != hole; } );
  order_ = std::move( order );
  places_ = std::vector< uint32_t >( places, noPlace );
  for ( uint32_t place = 0; place < size_; ++place ) {
    places_[ find( order_[ place ] ) ] = place;
  }
}

} // namespace Kez
