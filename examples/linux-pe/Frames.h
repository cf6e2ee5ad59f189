// Ethernet frames as bytes: what is read of one, and the heads that are put before one.
//
// A real product has none of this: the chip's parser and its rewrite engine do it, at line rate.
#pragma once

#include "switch/Frame.h"

#include <optional>
#include <span>

namespace LinuxPe {

using Bytes = std::span< const uint8_t >;

constexpr size_t addressesLength = 2 * Wire::EthAddr::bytes;
constexpr size_t ethernetLength = addressesLength + 2;
constexpr size_t tagLength = 4;
constexpr size_t labelLength = 4;

// A frame without its 802.1Q tag, which it may have had; a tag of VLAN 0, which says nothing but a
// priority, counts as none.
struct EthernetFrame {
  Switch::Frame addresses;
  Bridging::VlanIdOrNone tag;
  Bytes addressBytes;
  Bytes rest; // from the type on
};

// Nothing for what is too short, and for what has a tag of VLAN 4095, which is no VLAN.
std::optional< EthernetFrame > parseEthernet( Bytes frame );

// What is under the labels.
struct MplsPacket {
  Switch::LabelStack labels;
  uint8_t ttl = 0; // of the label on top
  Bytes payload;
};

// A frame of type MPLS, of which the Ethernet head has been read. Nothing where the stack does not
// end within the frame, or has more labels than the forwarding plane looks at.
std::optional< MplsPacket > parseMpls( const EthernetFrame & frame );
bool isMpls( const EthernetFrame & frame );

// What stands before a frame's `rest` when it is sent.
class Head {
public:
  // On a port, under a tag if there is one.
  static Head onPort( const EthernetFrame & frame, Bridging::VlanIdOrNone tag );
  // Over a tunnel: to the next hop's address, under the labels, and without a tag of the frame's.
  static Head overTunnel( const EthernetFrame & frame, Wire::EthAddr nextHop, Wire::EthAddr own,
                          const Switch::LabelStack & labels );

  Bytes bytes() const { return { bytes_.data(), size_ }; }
  // Of that, what does not count towards the largest size of what an interface carries.
  size_t linkLength() const { return linkLength_; }

private:
  void add( Bytes bytes );
  void add( Wire::EthAddr addr );
  void add16( uint16_t number );
  void add( Wire::MplsLabel label, bool isBottom );

  std::array< uint8_t,
              ethernetLength + Switch::LabelStack::capacity * labelLength + addressesLength >
      bytes_{};
  size_t size_ = 0;
  size_t linkLength_ = ethernetLength;
};

} // namespace LinuxPe
