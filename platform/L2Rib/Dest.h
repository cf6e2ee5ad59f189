// Destinations of the L2 routing information base: where a frame goes, flat and trivially
// copyable. Text forms: "intf(Ethernet1)", "mpls(<interface>,<label>,<tunnel id>)".
#pragma once

#include "Tunnel/TunnelTable.h"
#include "Vex/Assert.h"
#include "Wire/IntfId.h"
#include "Wire/MplsLabel.h"

namespace L2Rib {

VEX_ENUM( DestType, "L2Rib::DestType", destTypeIntf_, destTypeVxlan_, destTypeTunnel_,
          destTypeMpls_ )
using enum DestType;

// What an MPLS destination consists of.
class DestDataMpls {
public:
  DestDataMpls() = default;
  DestDataMpls( Wire::IntfId intfId, Wire::MplsLabel label, Tunnel::TunnelTable::TunnelId tunnelId )
      : intfId_( intfId ), label_( label ), tunnelId_( tunnelId ) {}

  Wire::IntfId intfId() const { return intfId_; }
  Wire::MplsLabel label() const { return label_; }
  Tunnel::TunnelTable::TunnelId tunnelId() const { return tunnelId_; }

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
  Wire::IntfId intfId_;
  Wire::MplsLabel label_;
  Tunnel::TunnelTable::TunnelId tunnelId_;
};

// Ordered by type, then by what the type has. By default the empty interface.
class Dest {
public:
  Dest() = default;
  static Dest ofIntf( Wire::IntfId intfId ) { return { destTypeIntf_, { intfId, {}, {} } }; }
  static Dest ofMpls( const DestDataMpls & mpls ) { return { destTypeMpls_, mpls }; }

  DestType destType() const { return destType_; }
  // Of an interface destination only.
  Wire::IntfId intfId() const {
    VEX_ASSERT( destType() == destTypeIntf_ );
    return data_.intfId();
  }
  // Of an MPLS destination only.
  const DestDataMpls & mpls() const {
    VEX_ASSERT( destType() == destTypeMpls_ );
    return data_;
  }

  static constexpr std::string_view vexTypeName() { return "L2Rib::Dest"; }
  uint64_t vexWord() const { return Vex::foldHash( static_cast< uint64_t >( destType_ ), data_ ); }
  uint32_t hash( uint32_t seed ) const { return data_.hash( Vex::hashOf( destType_, seed ) ); }
  friend bool operator==( const Dest &, const Dest & ) = default;
  friend std::strong_ordering operator<=>( const Dest &, const Dest & ) = default;

private:
  Dest( DestType destType, const DestDataMpls & data ) : destType_( destType ), data_( data ) {}

  DestType destType_ = destTypeIntf_;
  DestDataMpls data_; // an interface destination has the interface alone
};

void appendText( Vex::TextBuffer & out, const Dest & dest );
void parseText( Vex::TextCursor & in, Dest & dest );
std::ostream & operator<<( std::ostream & out, const Dest & dest );

} // namespace L2Rib
