// The hosts of the L2 routing information base: for every MAC address in a VLAN the first object of
// a chain that leads to where its frames go. Objects come and go in any order, and are shared.
//
// An id stands for one object. Where it stands in two tables it names neither.
#pragma once

#include "Bridging/MacVlanPair.h"
#include "L2Rib/Dest.h"
#include "Vex/Attributes.h"

#include <vector>

namespace L2Rib {

// 0, the default, is none.
class ObjectId : public Vex::WordValue< ObjectId, uint64_t > {
public:
  constexpr ObjectId( uint64_t value = 0 ) : WordValue( value ) {}

  static constexpr std::string_view vexTypeName() { return "L2Rib::ObjectId"; }
  static constexpr uint64_t vexLowest = 1;
  static constexpr uint64_t vexHighest = UINT64_MAX;
  static constexpr std::string_view vexExpected = "an object id, a whole number from 1 to 2^64 - 1";
};

// A set, in ascending order. Text form: "[7,8]".
class ObjectIds {
public:
  using VexRelocatable = std::true_type; // a vector's elements stand elsewhere

  ObjectIds() = default;
  ObjectIds( std::initializer_list< ObjectId > ids );

  void add( ObjectId id );
  void remove( ObjectId id ) { std::erase( ids_, id ); }
  bool empty() const { return ids_.empty(); }
  size_t size() const { return ids_.size(); }
  auto begin() const { return ids_.begin(); }
  auto end() const { return ids_.end(); }

  static constexpr std::string_view vexTypeName() { return "L2Rib::ObjectIds"; }
  uint32_t hash( uint32_t seed ) const;
  friend bool operator==( const ObjectIds &, const ObjectIds & ) = default;
  friend auto operator<=>( const ObjectIds &, const ObjectIds & ) = default;

private:
  std::vector< ObjectId > ids_;
};

void appendText( Vex::TextBuffer & out, const ObjectIds & ids );
void parseText( Vex::TextCursor & in, ObjectIds & ids );

// What is sent on takes the label.
struct LabelObject {
  Wire::MplsLabel label;
  ObjectId next;
  VEX_VALUE( LabelObject, "L2Rib::LabelObject", label, next )
};

class HostOutput : public Vex::Entity {
  VEX_ENTITY( HostOutput, "L2Rib::HostOutput" )
  VEX_MAP( 1, host, Bridging::MacVlanPair, ObjectId ) // to the first object of its chain
  VEX_MAP( 2, label, ObjectId, LabelObject )
  VEX_MAP( 3, loadBalance, ObjectId, ObjectIds ) // what is sent on is shared out among these
  VEX_MAP( 4, dest, ObjectId, Dest )
  VEX_ATTRIBUTES( host, label, loadBalance, dest )
};

// --- Chains

// Why what begins at an object is no chain.
VEX_ENUM( ChainLack, "L2Rib::ChainLack", nothing, object, ambiguous, loop, tooLong, members,
          secondLabel )

// What is walked from an object to destinations.
struct Chain {
  // A way to its end.
  struct Path {
    Wire::MplsLabel label; // none if neither a label object nor an MPLS destination gives one
    Dest dest;
  };

  ChainLack lack = ChainLack::nothing;
  ObjectId lackAt;
  bool loadBalanced = false; // whether it leads over a load-balance object
  std::vector< Path > paths; // without a lack at least one
  // All on which the above depends, those that are missing among them, each once.
  std::vector< ObjectId > objects;
};

// Why a walk found no chain: "object 7 is missing".
Vex::String lackText( const Chain & chain );

// Walks at most `maxLength` tables on each way; a table that is walked twice counts twice.
Chain walkChain( const HostOutput & output, ObjectId first, uint32_t maxLength );

} // namespace L2Rib
