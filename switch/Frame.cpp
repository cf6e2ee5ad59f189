#include "switch/Frame.h"

#include "Vex/Assert.h"

namespace Switch {

using Wire::MplsLabel;

uint32_t Frame::hash() const {
  const auto both = from.value() ^ to.value();
  uint32_t hash = 0;
  for ( unsigned byte = 0; byte < Wire::EthAddr::bytes; ++byte ) {
    hash ^= static_cast< uint32_t >( both >> 8 * byte ) & 0xff;
  }
  return hash;
}

void appendText( Vex::TextBuffer & out, const LabelStack & labels ) {
  appendText( out, labels.top() );
  if ( labels.isFull() ) {
    out.append( ',' );
    appendText( out, labels.second() );
  }
}

void parseText( Vex::TextCursor & in, LabelStack & labels ) {
  labels = {};
  do {
    if ( labels.isFull() ) {
      in.fail( "two labels at most" );
    }
    MplsLabel label;
    auto ahead = in;
    parseText( ahead, label );
    if ( label == MplsLabel() ) {
      in.fail( "an MPLS label, 0 to 1048575" );
    }
    in = ahead;
    labels.push( label );
    // What a comma and a blank follow is another crossing.
  } while ( !in.startsWith( ", " ) && in.skip( "," ) );
}

void skipBlanks( Vex::TextCursor & in ) {
  while ( in.skip( " " ) ) {}
}

bool skipWord( Vex::TextCursor & in, std::string_view word ) {
  const bool there = in.peekWord() == word;
  if ( there ) {
    in.word();
    skipBlanks( in );
  }
  return there;
}

void appendText( Vex::TextBuffer & out, const Crossing & crossing ) {
  if ( crossing.isOverTunnel() ) {
    out.append( "tunnel " );
    appendText( out, crossing.tunnelId );
    if ( !crossing.labels.isEmpty() ) {
      out.append( " labels " );
      appendText( out, crossing.labels );
    }
  } else {
    appendText( out, crossing.port );
    if ( crossing.tag != Bridging::VlanIdOrNone() ) {
      out.append( " tag " );
      appendText( out, crossing.tag );
    }
  }
}

void parseText( Vex::TextCursor & in, Crossing & crossing ) {
  crossing = {};
  if ( skipWord( in, "tunnel" ) ) {
    auto ahead = in;
    parseText( ahead, crossing.tunnelId );
    if ( !crossing.isOverTunnel() ) {
      in.fail( "a tunnel id, a whole number of 64 bits, not 0" );
    }
    in = ahead;
    skipBlanks( in );
    if ( skipWord( in, "labels" ) ) {
      parseText( in, crossing.labels );
    }
  } else {
    if ( in.atWordEnd() ) {
      in.fail( "a port, or tunnel and its id" );
    }
    parseText( in, crossing.port );
    skipBlanks( in );
    if ( skipWord( in, "tag" ) ) {
      Bridging::VlanId tag;
      parseText( in, tag );
      crossing.tag = tag;
    }
  }
  skipBlanks( in );
}

namespace {

struct ReasonType {
  StopReason reason;
  std::string_view text;
  std::string_view table;
};

constexpr auto reasonTypes = [] {
  using enum StopReason;
  return std::to_array< ReasonType >( {
      { noVlanForTag, "the port has no VLAN with that tag", "switch.dot1qMapping" },
      { noVlan, "the VLAN is not in hardware", "switch.vlan" },
      { memberDoesNotReceive, "the LAG member does not receive", "lagConfigDir.lagConfig" },
      { unknownLabel, "the top label is no service's", "forwardingInput.serviceLabel" },
      { foreignEsiLabel, "the ESI label is another switch's", "evpnStatus.localEsiLabel" },
      { cameFromThere, "it came from there", "switch.dot1qMapping" },
      { nonDfPort, "not designated forwarder", "switch.nonDfPort" },
      { esiPortMap, "it came from that segment", "switch.esiPortMap" },
      { notMapped, "the VLAN is not on the port", "switch.dot1qMapping" },
      { noSendingMember, "no LAG member sends", "lagConfigDir.lagConfig" },
      { noFec, "the FEC is not there", "switch.fec" },
      { noHwTunnelId, "the hardware tunnel id is not in use", "switch.hwTunnelIdPool" },
      { noTunnel, "the FEC leads over no MPLS tunnel", "switch.fec" },
      { unknownHost, "a unicast label, and no host of it here", "forwardingInput.localHost" },
      { fromTunnelToTunnel, "the host is behind a tunnel too", "switch.macEntry" },
  } );
}();

const ReasonType & typeOf( StopReason reason ) {
  const auto & type = reasonTypes[ static_cast< size_t >( reason ) ];
  VEX_ASSERT( type.reason == reason );
  return type;
}

struct KeyText {
  Vex::String operator()( std::monostate ) const { return ""; }
  Vex::String operator()( const LagMemberKey & key ) const {
    return "[" + Vex::text( key.lag ) + "].member[" + Vex::text( key.port ) + "]";
  }
  Vex::String operator()( Kez::HwTunnelId id ) const {
    return "[" + Vex::text( id.hwTunnelIdType() ) + "].inUse[" + Vex::text( id ) + "]";
  }
  template< class Key > Vex::String operator()( const Key & key ) const {
    return "[" + Vex::briefText( key ) + "]";
  }
};

} // namespace

std::string_view reasonText( StopReason reason ) {
  return typeOf( reason ).text;
}

Vex::String entryPath( const Stop & stop ) {
  return Vex::String( typeOf( stop.reason ).table ) + std::visit( KeyText(), stop.key );
}

} // namespace Switch
