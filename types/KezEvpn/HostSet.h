// Hosts in the order in which they were added: those of a chain, of which there are many small sets
// and some of up to millions, so that each host is to take little memory.
//
// A host is a word in `order_`, in which one that has left leaves a hole. `places_` finds it: an
// index by hash of places in that, a power of two of them, of which at most seven in eight are
// taken; a host that has left is taken out, and those behind it move up. When the room is used up,
// holes included, both are made anew without the holes, with room for more.
#pragma once

#include "Bridging/MacVlanPair.h"

#include <cstdint>
#include <vector>

namespace Kez {

class HostSet {
public:
  using Host = Bridging::MacVlanPair;

  bool has( const Host & host ) const;
  void add( const Host & host );
  void remove( const Host & host );
  size_t size() const { return size_; }
  // A copy: a walk over it minds no change.
  std::vector< Host > all() const;

private:
  static constexpr uint64_t hole = UINT64_MAX; // of no host, for no VLAN has that number
  static constexpr uint32_t noPlace = UINT32_MAX;

  size_t mask() const { return places_.size() - 1; }
  size_t homeOf( uint64_t word ) const;
  size_t find( uint64_t word ) const;
  void makeAnew();

  std::vector< uint64_t > order_;
  std::vector< uint32_t > places_;
  uint32_t size_ = 0;
};

} // namespace Kez
