// The values of the label forwarding table (LFIB): routes by their incoming label, what they
// forward over, and how hardware programming answers. All are flat, as records of shared tables
// must be.
//
// A route names a via set, a via set lists the keys of its vias, and a via is looked up among
// those of the type that its key carries. Each may come and go before the others.
#pragma once

#include "Wire/IntfId.h"
#include "Wire/MplsLabel.h"

#include <array>

namespace Mpls {

// A route, by the label on top of the packets that take it. None by default. Prints as the label.
class RouteKey : public Vex::WordValue< RouteKey, uint32_t > {
public:
  constexpr RouteKey( Wire::MplsLabel topLabel = {} ) : WordValue( topLabel.value() ) {}
  explicit constexpr RouteKey( uint32_t topLabel ) : RouteKey( Wire::MplsLabel( topLabel ) ) {}

  constexpr Wire::MplsLabel topLabel() const { return value(); }

  static constexpr std::string_view vexTypeName() { return "Mpls::RouteKey"; }
  static constexpr uint32_t vexLowest = 0;
  static constexpr uint32_t vexHighest = Wire::MplsLabel::none - 1;
  static constexpr std::string_view vexExpected = "a route's label, 0 to 1048575";
};

VEX_ENUM( LfibViaType, "Mpls::LfibViaType", none, mpls, ipLookup, pseudowire, evpnUnicast,
          evpnFlood, evpnEthernetSegmentFilter )

// A via's type and its number among all vias, in one 32-bit word with the type in the top byte. A
// number above `highestNumber` raises Vex::RangeError. Empty, `none:0`, by default. Text form:
// "<type>:<number>", "mpls:7".
class LfibViaKey : public Vex::WordValue< LfibViaKey, uint32_t > {
public:
  static constexpr uint32_t highestNumber = 0xffffff;

  constexpr LfibViaKey() : WordValue( 0 ) {}
  constexpr LfibViaKey( LfibViaType viaType, uint32_t number )
      : WordValue( uint32_t( viaType ) << 24 | number ) {
    if ( number > highestNumber ) {
      throw Vex::RangeError( "LfibViaKey::number > 16777215 not allowed" );
    }
  }

  constexpr LfibViaType viaType() const { return static_cast< LfibViaType >( value() >> 24 ); }
  constexpr uint32_t number() const { return value() & highestNumber; }
  explicit constexpr operator bool() const { return value() != 0; }

  static constexpr std::string_view vexTypeName() { return "Mpls::LfibViaKey"; }
};

void appendText( Vex::TextBuffer & out, LfibViaKey key );
void parseText( Vex::TextCursor & in, LfibViaKey & key );

// Up to eight via keys in order; one more raises Vex::RangeError. Text form: the keys, separated
// by commas, none of them empty; an empty list prints as nothing.
class LfibViaKeys {
public:
  LfibViaKeys() = default;
  LfibViaKeys( std::initializer_list< LfibViaKey > keys );

  void append( LfibViaKey key );
  size_t size() const { return size_; }
  const LfibViaKey * begin() const { return keys_.data(); }
  const LfibViaKey * end() const { return begin() + size_; }

  static constexpr std::string_view vexTypeName() { return "Mpls::LfibViaKeys"; }
  uint32_t hash( uint32_t seed ) const;
  friend bool operator==( const LfibViaKeys &, const LfibViaKeys & ) = default;
  friend std::strong_ordering operator<=>( const LfibViaKeys &, const LfibViaKeys & ) = default;

private:
  std::array< LfibViaKey, 8 > keys_; // empty from `size_` on
  uint32_t size_ = 0;
};

void appendText( Vex::TextBuffer & out, const LfibViaKeys & keys );
void parseText( Vex::TextCursor & in, LfibViaKeys & keys );

// A route of the label table: its labels, and the set of vias that it leads to.
struct LfibRoute {
  RouteKey routeKey;
  uint32_t viaSetId = 0;
  VEX_VALUE( LfibRoute, "Mpls::LfibRoute", routeKey, viaSetId )
};

// The vias of routes, in order.
struct LfibViaSet {
  uint32_t viaSetId = 0;
  LfibViaKeys viaKeys;
  VEX_VALUE( LfibViaSet, "Mpls::LfibViaSet", viaSetId, viaKeys )
};

// Out of an interface, with another label or none.
struct LfibMplsVia {
  LfibViaKey viaKey;
  Wire::IntfId intfId;
  Wire::MplsLabel outLabel;
  VEX_VALUE( LfibMplsVia, "Mpls::LfibMplsVia", viaKey, intfId, outLabel )
};

// Traffic that arrives with the ESI label `label` is not sent out of the interface.
struct LfibEvpnEthernetSegmentFilterVia {
  LfibViaKey viaKey;
  Wire::MplsLabel label;
  Wire::IntfId intfId;
  VEX_VALUE( LfibEvpnEthernetSegmentFilterVia, "Mpls::LfibEvpnEthernetSegmentFilterVia", viaKey,
             label, intfId )
};

// The outcome of programming a route. `conflict`: another route has what it needs; the last two
// are transient.
VEX_ENUM( LfibHwProgrammingReturnCode, "Mpls::LfibHwProgrammingReturnCode", success, conflict,
          notProgrammed, tableFull )

// A route that is not programmed, and why.
struct RouteInfo {
  RouteKey routeKey;
  LfibHwProgrammingReturnCode returnCode = LfibHwProgrammingReturnCode::success;
  VEX_VALUE( RouteInfo, "Mpls::RouteInfo", routeKey, returnCode )
};

} // namespace Mpls
