// Frames as the forwarding plane takes and gives them: what of a frame is looked at, how it crosses
// the edge of a switch, and what became of one.
#pragma once

#include "Bridging/MacVlanPair.h"
#include "Kez/HwTunnelId.h"
#include "KezHelper/EvpnFloodingSmHelper.h"
#include "Wire/MplsLabel.h"

#include <array>
#include <variant>
#include <vector>

namespace Switch {

struct Frame {
  Wire::EthAddr from;
  Wire::EthAddr to;

  bool isForGroup() const { return to.value() >> 40 & 1; }
  // What LAG ports and vias are chosen by: the exclusive-or of the addresses' twelve bytes.
  uint32_t hash() const;
};

// MPLS labels below the tunnel's own: the service's, and an ESI label below that. Text form: the
// labels from the top, "100,200".
class LabelStack {
public:
  static constexpr size_t capacity = 2;

  constexpr LabelStack() = default;
  constexpr LabelStack( std::initializer_list< Wire::MplsLabel > labels ) {
    for ( const auto label : labels ) {
      push( label );
    }
  }

  // Below the others. None adds nothing; one more than fit is not asked for.
  constexpr void push( Wire::MplsLabel label ) {
    ( labels_[ 0 ] == Wire::MplsLabel() ? labels_[ 0 ] : labels_[ 1 ] ) = label;
  }
  constexpr bool isFull() const { return labels_.back() != Wire::MplsLabel(); }
  constexpr bool isEmpty() const { return top() == Wire::MplsLabel(); }
  constexpr Wire::MplsLabel top() const { return labels_[ 0 ]; }
  constexpr Wire::MplsLabel second() const { return labels_[ 1 ]; }

  friend bool operator==( const LabelStack &, const LabelStack & ) = default;
  friend std::strong_ordering operator<=>( const LabelStack &, const LabelStack & ) = default;

private:
  std::array< Wire::MplsLabel, capacity > labels_; // none from where they end
};

void appendText( Vex::TextBuffer & out, const LabelStack & labels );
void parseText( Vex::TextCursor & in, LabelStack & labels );

// How a frame comes in or goes out: on a port with a tag or without one, or over a tunnel under
// labels. What goes out over a tunnel comes into another switch from that switch's tunnel, under
// the same labels. Text form: "Ethernet1", "Ethernet1 tag 110", "tunnel 5 labels 100,200".
struct Crossing {
  Tunnel::TunnelTable::TunnelId tunnelId; // not valid on a port
  Wire::IntfId port;
  Bridging::VlanIdOrNone tag;
  LabelStack labels;

  static Crossing onPort( Wire::IntfId port, Bridging::VlanIdOrNone tag ) {
    return { {}, port, tag, {} };
  }
  static Crossing overTunnel( Tunnel::TunnelTable::TunnelId tunnelId, const LabelStack & labels ) {
    return { tunnelId, {}, {}, labels };
  }
  bool isOverTunnel() const { return tunnelId.value() != 0; }

  friend bool operator==( const Crossing &, const Crossing & ) = default;
  friend auto operator<=>( const Crossing &, const Crossing & ) = default;
};

void appendText( Vex::TextBuffer & out, const Crossing & crossing );
// Reads as far as it goes, and the blanks behind it.
void parseText( Vex::TextCursor & in, Crossing & crossing );
void skipBlanks( Vex::TextCursor & in );
// Takes the word and the blanks behind it, if it comes next.
bool skipWord( Vex::TextCursor & in, std::string_view word );

// Why a copy is not made. The first five are of the whole frame.
VEX_ENUM( StopReason, "Switch::StopReason", noVlanForTag, noVlan, memberDoesNotReceive,
          unknownLabel, foreignEsiLabel, cameFromThere, nonDfPort, esiPortMap, notMapped,
          noSendingMember, noFec, noHwTunnelId, noTunnel, unknownHost, fromTunnelToTunnel )

// A port as a member of a LAG.
struct LagMemberKey {
  Wire::IntfId lag;
  Wire::IntfId port;
  friend bool operator==( const LagMemberKey &, const LagMemberKey & ) = default;
};

// A copy that is not made: where it would have gone, a port's parent interface or a tunnel, neither
// when that is not known; and the entry that stopped it, which is missing where the reason says so.
struct Stop {
  // A FEC has its hardware id; there is none where a whole table was searched.
  using EntryKey = std::variant< std::monostate, KezHelper::PortVlanKey, LagMemberKey, Wire::IntfId,
                                 Bridging::VlanId, uint64_t, Kez::HwTunnelId, Wire::MplsLabel,
                                 Bridging::MacVlanPair >;

  StopReason reason = StopReason::noVlanForTag;
  Wire::IntfId intfId;
  Tunnel::TunnelTable::TunnelId tunnelId;
  EntryKey key;

  friend bool operator==( const Stop &, const Stop & ) = default;
};

std::string_view reasonText( StopReason reason );
// By the names of an agent's roots: "switch.nonDfPort[Port-Channel1,Ethernet1,10]".
Vex::String entryPath( const Stop & stop );

// What became of a frame. Copies are in order of interfaces, then of tunnels.
struct Forwarded {
  Bridging::VlanIdOrNone vlanId; // to which the frame belongs
  bool flooded = false;
  std::vector< Crossing > copies;
  std::vector< Stop > stopped;

  friend bool operator==( const Forwarded &, const Forwarded & ) = default;
};

} // namespace Switch
