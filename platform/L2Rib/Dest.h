// Destinations of the L2 routing information base: where a frame goes, flat and trivially
// copyable. Text forms: "intf(Ethernet1)", "vxlan(10.0.0.1)", "tunnel(5)",
// "mpls(<interface>,<label>,<tunnel id>)".
#pragma once

#include "Tunnel/TunnelTable.h"
#include "Vex/Assert.h"
#include "Wire/IntfId.h"
#include "Wire/Ip4Addr.h"
#include "Wire/MplsLabel.h"

#include <compare>
#include <tuple>

namespace L2Rib {

VEX_ENUM( DestType, "L2Rib::DestType", destTypeIntf_, destTypeVxlan_, destTypeTunnel_,
          destTypeMpls_ )
using enum DestType;

// The tunnel id of an MPLS destination. One above 56 bits, for which no interface can stand, raises
// Vex::RangeError.
class DestTunnelId : public Vex::WordValue< DestTunnelId, uint64_t > {
public:
  constexpr DestTunnelId() : WordValue( 0 ) {}
  DestTunnelId( Tunnel::TunnelTable::TunnelId tunnelId );

  static constexpr std::string_view vexTypeName() { return "Tunnel::TunnelTable::TunnelId"; }
  static constexpr uint64_t vexLowest = 0;
  static constexpr uint64_t vexHighest = ( uint64_t( 1 ) << Wire::IntfId::numberBits ) - 1;
  static constexpr std::string_view vexExpected =
      "a tunnel id of at most 56 bits, which an interface can stand for";
};

// What an MPLS destination consists of. Raises Vex::RangeError as its tunnel id does.
class DestDataMpls {
public:
  DestDataMpls() = default;
  DestDataMpls( Wire::IntfId intfId, Wire::MplsLabel label, Tunnel::TunnelTable::TunnelId tunnelId )
      : intfId_( intfId ), label_( label ), tunnelId_( tunnelId ) {}

  Wire::IntfId intfId() const { return intfId_; }
  Wire::MplsLabel label() const { return label_; }
  Tunnel::TunnelTable::TunnelId tunnelId() const { return tunnelId_.value(); }

  static constexpr std::string_view vexTypeName() { return "L2Rib::DestDataMpls"; }
  static constexpr auto vexFields() {
    return std::make_tuple( Vex::field( "intfId", &DestDataMpls::intfId_ ),
                            Vex::field( "label", &DestDataMpls::label_ ),
                            Vex::field( "tunnelId", &DestDataMpls::tunnelId_ ) );
  }
  uint32_t hash( uint32_t seed ) const { return Vex::hashFields( *this, seed ); }
  friend bool operator==( const DestDataMpls &, const DestDataMpls & ) = default;
  friend std::strong_ordering operator<=>( const DestDataMpls &, const DestDataMpls & ) = default;

private:
  friend class Dest;

  Wire::IntfId intfId_;
  Wire::MplsLabel label_;
  DestTunnelId tunnelId_;
};

// Ordered by type, then by what the type has, which alone may be asked for. By default the empty
// interface. Kept in great numbers: three words without padding, compared and hashed as such.
class Dest {
public:
  using VexEqualAsBytes = void;

  Dest() = default;
  static Dest ofIntf( Wire::IntfId intfId ) { return { destTypeIntf_, intfId, {}, 0 }; }
  static Dest ofVxlan( Wire::Ip4Addr vtep ) { return { destTypeVxlan_, {}, {}, vtep.value() }; }
  static Dest ofTunnel( Tunnel::TunnelTable::TunnelId tunnelId ) {
    return { destTypeTunnel_, {}, tunnelId, 0 };
  }
  static Dest ofMpls( const DestDataMpls & mpls ) {
    return { destTypeMpls_, mpls.intfId_, mpls.tunnelId_, mpls.label_.value() };
  }

  DestType destType() const { return destType_; }
  Wire::IntfId intfId() const {
    VEX_ASSERT( destType() == destTypeIntf_ );
    return intfId_;
  }
  Wire::Ip4Addr vtep() const {
    VEX_ASSERT( destType() == destTypeVxlan_ );
    return number_;
  }
  Tunnel::TunnelTable::TunnelId tunnelId() const {
    VEX_ASSERT( destType() == destTypeTunnel_ );
    return tunnelId_.value();
  }
  DestDataMpls mpls() const {
    VEX_ASSERT( destType() == destTypeMpls_ );
    return dataWith( number_ );
  }

  static constexpr std::string_view vexTypeName() { return "L2Rib::Dest"; }
  uint64_t vexWord() const {
    return Vex::foldWord( Vex::foldHash( Vex::foldHash( 0, intfId_ ), tunnelId_ ),
                          uint64_t( destType_ ) << 32 | number_ );
  }
  uint32_t hash( uint32_t seed ) const {
    const bool mpls = destType_ == destTypeMpls_;
    const Wire::Ip4Addr vtep( mpls ? 0 : number_ );
    return dataWith( mpls ? number_ : Wire::MplsLabel::none )
        .hash( vtep.hash( Vex::hashOf( destType_, seed ) ) );
  }
  friend bool operator==( const Dest & a, const Dest & b ) { return Vex::equalWords( a, b ); }
  friend std::strong_ordering operator<=>( const Dest & a, const Dest & b ) {
    return a.inOrder() <=> b.inOrder();
  }

private:
  Dest( DestType destType, Wire::IntfId intfId, DestTunnelId tunnelId, uint32_t number )
      : intfId_( intfId ), tunnelId_( tunnelId ), number_( number ), destType_( destType ) {}

  DestDataMpls dataWith( Wire::MplsLabel label ) const {
    DestDataMpls data;
    data.intfId_ = intfId_;
    data.label_ = label;
    data.tunnelId_ = tunnelId_;
    return data;
  }
  std::tuple< DestType, Wire::IntfId, uint32_t, DestTunnelId > inOrder() const {
    return { destType_, intfId_, number_, tunnelId_ };
  }

  // What the type does not have stands at its default, or 0.
  Wire::IntfId intfId_;
  DestTunnelId tunnelId_;
  uint32_t number_ = 0; // the endpoint's address, or an MPLS destination's label
  DestType destType_ = destTypeIntf_;
};
static_assert( sizeof( Dest ) == 24 );

void appendText( Vex::TextBuffer & out, const Dest & dest );
void parseText( Vex::TextCursor & in, Dest & dest );
std::ostream & operator<<( std::ostream & out, const Dest & dest );

} // namespace L2Rib
