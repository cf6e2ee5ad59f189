// Interface ids: the interface's kind in the top byte of one 64-bit word, its numbers below.
//
// A name takes a kind only if printing the id gives it back exactly; every other name ("swp12",
// "Ethernet01") is interned, for the life of the process, and its number is worth nothing in
// another one. A name is made of at most 63 letters, digits and / . _ : -, else Vex::ParseError;
// the empty name is the empty id. Ids are ordered by kind, numbers, and interned ones by name.
#pragma once

#include "Vex/WordValue.h"
#include "Wire/Ip4Addr.h"

#include <bit>

namespace Tunnel::TunnelTable {
class TunnelId;
}

namespace Wire {

class IntfId {
public:
  enum class Kind : uint8_t {
    empty,
    cpu,           // Cpu
    ethernet,      // Ethernet1, Ethernet3/1, Ethernet3/1/2
    portChannel,   // Port-Channel7
    vlan,          // Vlan10
    dynamicTunnel, // DynamicTunnel<type>.<index> of the tunnel id
    srTePolicy,    // SrTePolicy<type>.<index>
    other          // interned
  };
  using VexEqualAsBytes = void;
  static constexpr unsigned numberBits = 56;
  static constexpr unsigned portBits = 16; // of an Ethernet interface's second and third number

  constexpr IntfId() = default;
  IntfId( const Vex::String & name ) : IntfId( std::string_view( name ) ) {}
  IntfId( const char * name ) : IntfId( std::string_view( name ) ) {}
  IntfId( std::nullptr_t ) = delete; // which the number 0 would be
  explicit IntfId( std::string_view name );
  // `number` is of numberBits, encoded as the kind has it.
  constexpr IntfId( Kind kind, uint64_t number )
      : word_( uint64_t( kind ) << numberBits | number ) {}

  constexpr Kind kind() const { return static_cast< Kind >( word_ >> numberBits ); }
  constexpr uint64_t number() const { return word_ & ( ( uint64_t( 1 ) << numberBits ) - 1 ); }

  // The same in every process; for an interned name, of the name.
  uint32_t hash( uint32_t seed ) const;
  constexpr uint64_t vexWord() const { return word_; }
  // With the last number of an Ethernet interface's name lowest, whichever of its numbers that is.
  constexpr uint64_t vexNeighbourWord() const {
    constexpr uint64_t end = uint64_t( 1 ) << 63; // which no kind has
    constexpr int multiplesOfPortBits = 64 - portBits;
    static_assert( std::has_single_bit( portBits ) );
    return std::rotr( word_, std::countr_zero( word_ | end ) & multiplesOfPortBits );
  }
  static constexpr std::string_view vexTypeName() { return "Wire::IntfId"; }

  friend constexpr bool operator==( IntfId a, IntfId b ) { return a.word_ == b.word_; }
  friend constexpr std::strong_ordering operator<=>( IntfId a, IntfId b ) {
    if ( a.kind() == Kind::other && b.kind() == Kind::other ) [[unlikely]] {
      return compareNames( a, b );
    }
    return a.word_ <=> b.word_;
  }

private:
  static std::strong_ordering compareNames( IntfId a, IntfId b );

  uint64_t word_ = 0;
};

void appendText( Vex::TextBuffer & out, IntfId intfId );
void parseText( Vex::TextCursor & in, IntfId & intfId );
std::ostream & operator<<( std::ostream & out, IntfId intfId );

// LAGs: "Port-Channel" and a number.
struct PortChannelIntfId {
  static constexpr bool isPortChannelIntfId( IntfId intfId ) {
    return intfId.kind() == IntfId::Kind::portChannel;
  }
  static constexpr IntfId intfId( uint32_t number ) {
    return { IntfId::Kind::portChannel, number };
  }
};
constexpr bool isLag( IntfId intfId ) {
  return PortChannelIntfId::isPortChannelIntfId( intfId );
}

// Interfaces that stand for a tunnel and carry its id. What carries none, or one that is out of
// range, raises Vex::RangeError when its tunnel id is asked for; so does making an interface of
// a tunnel id above 56 bits.
struct DynamicTunnelIntfId {
  static constexpr bool isDynamicTunnelIntfId( IntfId intfId ) {
    return intfId.kind() == IntfId::Kind::dynamicTunnel;
  }
  // At most TunnelId::maxValue.
  static Tunnel::TunnelTable::TunnelId tunnelId( IntfId intfId );
  static IntfId intfId( Tunnel::TunnelTable::TunnelId tunnelId );
};

// Interfaces of segment routing policies.
struct FecIdIntfId {
  static constexpr bool isSrTePolicyIntfId( IntfId intfId ) {
    return intfId.kind() == IntfId::Kind::srTePolicy;
  }
  static Tunnel::TunnelTable::TunnelId tunnelId( IntfId intfId );
  static IntfId srTePolicyIntfId( Tunnel::TunnelTable::TunnelId tunnelId );
};

// The interface that stands for a remote VXLAN tunnel endpoint: "Vtep10.0.0.1".
struct VtepIntfId {
  static IntfId intfId( Ip4Addr vtep );
};

} // namespace Wire
