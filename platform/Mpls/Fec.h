// Forwarding equivalence classes: what traffic that is treated alike is sent over, one via or,
// to share it out, several.
#pragma once

#include "Wire/IntfId.h"
#include "Wire/MplsLabel.h"

#include <vector>

namespace Rook::Fib {

// What a FEC is for, and whether it has one via or shares traffic out among several.
enum class FecKind : uint8_t { floodSetPath = 0x0B, macPath = 0x0C, macLoadBalance = 0x0D };

// The FEC's kind in the top byte, a number of that kind below.
class FecId : public Vex::WordValue< FecId, uint64_t > {
public:
  static constexpr unsigned kindShift = 56;

  constexpr FecId( uint64_t value = 0 ) : WordValue( value ) {}
  // `number` is below 2 to the power of kindShift.
  constexpr FecId( FecKind kind, uint64_t number )
      : WordValue( uint64_t( kind ) << kindShift | number ) {}

  constexpr FecKind kind() const { return static_cast< FecKind >( value() >> kindShift ); }
  constexpr uint64_t number() const { return value() & ( ( uint64_t( 1 ) << kindShift ) - 1 ); }

  static constexpr std::string_view vexTypeName() { return "Rook::Fib::FecId"; }
  static constexpr uint64_t vexLowest = 0;
  static constexpr uint64_t vexHighest = UINT64_MAX;
  static constexpr std::string_view vexExpected = "a FEC id, a whole number of 64 bits";
};

// A way out: an interface, and the label that a frame leaves it under.
struct FecVia {
  Wire::IntfId intfId;
  Wire::MplsLabel mplsLabel;
  VEX_VALUE( FecVia, "Rook::Fib::FecVia", intfId, mplsLabel )
};

// By index, from 0. Text form: the vias' brief ones, "[(DynamicTunnel1.7,100),(Ethernet1,101)]".
class FecVias : public std::vector< FecVia > {
public:
  using std::vector< FecVia >::vector;
  using VexRelocatable = std::true_type; // a vector's elements stand elsewhere

  static constexpr std::string_view vexTypeName() { return "Rook::Fib::FecVias"; }
  uint32_t hash( uint32_t seed ) const;
};

void appendText( Vex::TextBuffer & out, const FecVias & vias );
void parseText( Vex::TextCursor & in, FecVias & vias );

struct Fec {
  FecId fecId;
  FecVias via;
  VEX_VALUE( Fec, "Rook::Fib::Fec", fecId, via )
};

} // namespace Rook::Fib
