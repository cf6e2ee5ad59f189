#include "Frames.h"

#include <algorithm>

namespace LinuxPe {

using Bridging::VlanIdOrNone;
using Switch::LabelStack;
using Wire::EthAddr;
using Wire::MplsLabel;

namespace {

constexpr uint16_t typeOfTag = 0x8100;
constexpr uint16_t typeOfMpls = 0x8847;
// Of what enters the provider's network; the hosts' frames have none of their own.
constexpr uint8_t firstTtl = 255;

uint16_t read16( Bytes bytes, size_t at ) {
  return static_cast< uint16_t >( bytes[ at ] << 8 | bytes[ at + 1 ] );
}

EthAddr readAddress( Bytes bytes, size_t at ) {
  uint64_t value = 0;
  for ( size_t i = 0; i < EthAddr::bytes; ++i ) {
    value = value << 8 | bytes[ at + i ];
  }
  return value;
}

} // namespace

std::optional< EthernetFrame > parseEthernet( Bytes frame ) {
  if ( frame.size() < ethernetLength ) {
    return std::nullopt;
  }
  EthernetFrame parsed;
  parsed.addresses.to = readAddress( frame, 0 );
  parsed.addresses.from = readAddress( frame, EthAddr::bytes );
  parsed.addressBytes = frame.first( addressesLength );
  parsed.rest = frame.subspan( addressesLength );
  if ( read16( parsed.rest, 0 ) == typeOfTag ) {
    if ( parsed.rest.size() < tagLength + 2 ) {
      return std::nullopt;
    }
    const uint16_t vlan = read16( parsed.rest, 2 ) & 0xfff;
    if ( vlan > VlanIdOrNone::vexHighest ) {
      return std::nullopt;
    }
    parsed.tag = vlan;
    parsed.rest = parsed.rest.subspan( tagLength );
  }
  return parsed;
}

bool isMpls( const EthernetFrame & frame ) {
  return read16( frame.rest, 0 ) == typeOfMpls;
}

std::optional< MplsPacket > parseMpls( const EthernetFrame & frame ) {
  MplsPacket packet;
  packet.payload = frame.rest.subspan( 2 );
  for ( bool isBottom = false; !isBottom; packet.payload = packet.payload.subspan( labelLength ) ) {
    if ( packet.payload.size() < labelLength || packet.labels.isFull() ) {
      return std::nullopt;
    }
    const uint32_t high = read16( packet.payload, 0 );
    const uint32_t low = read16( packet.payload, 2 );
    if ( packet.labels.isEmpty() ) {
      packet.ttl = low & 0xff;
    }
    packet.labels.push( high << 4 | low >> 12 );
    isBottom = low >> 8 & 1;
  }
  return packet;
}

Head Head::onPort( const EthernetFrame & frame, VlanIdOrNone tag ) {
  Head head;
  head.add( frame.addressBytes );
  if ( tag != VlanIdOrNone() ) {
    head.add16( typeOfTag );
    head.add16( tag.value() );
    head.linkLength_ += tagLength;
  }
  return head;
}

Head Head::overTunnel( const EthernetFrame & frame, EthAddr nextHop, EthAddr own,
                       const LabelStack & labels ) {
  Head head;
  head.add( nextHop );
  head.add( own );
  head.add16( typeOfMpls );
  head.add( labels.top(), !labels.isFull() );
  if ( labels.isFull() ) {
    head.add( labels.second(), true );
  }
  head.add( frame.addressBytes );
  return head;
}

void Head::add( Bytes bytes ) {
  std::ranges::copy( bytes, bytes_.begin() + static_cast< ptrdiff_t >( size_ ) );
  size_ += bytes.size();
}

void Head::add( EthAddr addr ) {
  for ( unsigned byte = EthAddr::bytes; byte-- > 0; ) {
    bytes_[ size_++ ] = static_cast< uint8_t >( addr.value() >> 8 * byte );
  }
}

void Head::add16( uint16_t number ) {
  bytes_[ size_++ ] = static_cast< uint8_t >( number >> 8 );
  bytes_[ size_++ ] = static_cast< uint8_t >( number );
}

void Head::add( MplsLabel label, bool isBottom ) {
  const uint32_t entry = label.value() << 12 | ( isBottom ? 1U << 8 : 0 ) | firstTtl;
  add16( static_cast< uint16_t >( entry >> 16 ) );
  add16( static_cast< uint16_t >( entry ) );
}

} // namespace LinuxPe
