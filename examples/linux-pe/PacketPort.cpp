#include "PacketPort.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>

namespace LinuxPe {

namespace {

// With a block for each moment in which frames come, there is room for half a second in which the
// thread does not run.
constexpr size_t blockSize = 1 << 14;
constexpr size_t receivingBlocks = 512;
constexpr size_t sendingBlocks = 32;
constexpr size_t slotSize = 1 << 12; // a sent frame and the kernel's record of it
constexpr size_t slots = sendingBlocks * blockSize / slotSize;
constexpr size_t slotHead = TPACKET_ALIGN( sizeof( tpacket3_hdr ) );
constexpr size_t ringsSize = ( receivingBlocks + sendingBlocks ) * blockSize;
// After which a block that has a frame is handed over although it is not full.
constexpr unsigned patience = 1; // milliseconds

[[noreturn]] void fail( const Vex::String & interface, const char * what ) {
  Vex::throwSystemError( "interface " + interface + ": cannot " + what );
}

void optionIs( int socket, int name, const auto & value, const Vex::String & interface,
               const char * what ) {
  if ( setsockopt( socket, SOL_PACKET, name, &value, sizeof( value ) ) != 0 ) {
    fail( interface, what );
  }
}

ifreq ask( int socket, unsigned long question, const Vex::String & interface, const char * what ) {
  ifreq request{};
  if ( interface.size() >= sizeof( request.ifr_name ) ) {
    errno = ENAMETOOLONG;
    fail( interface, what );
  }
  interface.copy( request.ifr_name, interface.size() );
  if ( ioctl( socket, question, &request ) != 0 ) {
    fail( interface, what );
  }
  return request;
}

uint32_t statusOf( const uint32_t & status ) {
  return __atomic_load_n( &status, __ATOMIC_ACQUIRE );
}
void statusIs( uint32_t & status, uint32_t value ) {
  __atomic_store_n( &status, value, __ATOMIC_RELEASE );
}

tpacket_block_desc * blockAt( uint8_t * rings, size_t number ) {
  return reinterpret_cast< tpacket_block_desc * >( rings + number * blockSize );
}

// A tag that the kernel has taken out of the frame is put back where it was: the ring has room for
// it in front of each frame.
Bytes frameOf( uint8_t * record ) {
  const auto & head = *reinterpret_cast< const tpacket3_hdr * >( record );
  uint8_t * frame = record + head.tp_mac;
  size_t length = head.tp_snaplen;
  if ( head.tp_snaplen < head.tp_len || length < ethernetLength ) {
    return {}; // cut off
  }
  if ( head.tp_status & TP_STATUS_VLAN_VALID ) {
    const auto & taken = head.hv1;
    const uint16_t type =
        head.tp_status & TP_STATUS_VLAN_TPID_VALID ? taken.tp_vlan_tpid : ETH_P_8021Q;
    frame -= tagLength;
    length += tagLength;
    std::memmove( frame, frame + tagLength, addressesLength );
    const std::array< uint16_t, 2 > tag{ htons( type ),
                                         htons( static_cast< uint16_t >( taken.tp_vlan_tci ) ) };
    std::memcpy( frame + addressesLength, tag.data(), tagLength );
  }
  return { frame, length };
}

} // namespace

PacketPort::PacketPort( const Vex::String & interface, Sees sees )
    : socket_( socket( AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, 0 ) ) {
  const int socket = socket_.number();
  if ( socket < 0 ) {
    fail( interface, "open a packet socket" );
  }
  const int index = ask( socket, SIOCGIFINDEX, interface, "find it" ).ifr_ifindex;
  largest_ =
      static_cast< size_t >( ask( socket, SIOCGIFMTU, interface, "ask what it carries" ).ifr_mtu );
  const auto hardware = ask( socket, SIOCGIFHWADDR, interface, "ask for its address" ).ifr_hwaddr;
  if ( hardware.sa_family != ARPHRD_ETHER ) {
    errno = EPROTOTYPE;
    fail( interface, "use it, which is no Ethernet" );
  }
  uint64_t address = 0;
  for ( size_t i = 0; i < Wire::EthAddr::bytes; ++i ) {
    address = address << 8 | static_cast< uint8_t >( hardware.sa_data[ i ] );
  }
  address_ = address;
  openRings( interface );
  if ( sees == Sees::all ) {
    packet_mreq everybody{};
    everybody.mr_ifindex = index;
    everybody.mr_type = PACKET_MR_PROMISC;
    optionIs( socket, PACKET_ADD_MEMBERSHIP, everybody, interface, "see what is for others" );
  }
  sockaddr_ll local{};
  local.sll_family = AF_PACKET;
  local.sll_ifindex = index;
  local.sll_protocol = htons( sees == Sees::all ? ETH_P_ALL : ETH_P_MPLS_UC );
  if ( bind( socket, reinterpret_cast< const sockaddr * >( &local ), sizeof( local ) ) != 0 ) {
    fail( interface, "listen there" );
  }
}

PacketPort::~PacketPort() {
  if ( rings_ ) {
    munmap( rings_, ringsSize );
  }
}

void PacketPort::openRings( const Vex::String & interface ) {
  const int socket = socket_.number();
  const auto is = [ & ]( int name, const auto & value, const char * what ) {
    optionIs( socket, name, value, interface, what );
  };
  is( PACKET_VERSION, int( TPACKET_V3 ), "have rings" );
  is( PACKET_IGNORE_OUTGOING, 1, "leave out what is sent" );
  is( PACKET_RESERVE, unsigned( tagLength ), "have room for tags" );
  is( PACKET_LOSS, 1, "drop what is too long" );
  is( PACKET_QDISC_BYPASS, 1, "send at once" );
  tpacket_req3 ring{};
  ring.tp_block_size = blockSize;
  ring.tp_frame_size = slotSize;
  ring.tp_block_nr = receivingBlocks;
  ring.tp_frame_nr = receivingBlocks * blockSize / slotSize;
  ring.tp_retire_blk_tov = patience;
  is( PACKET_RX_RING, ring, "have a ring to receive" );
  ring.tp_block_nr = sendingBlocks;
  ring.tp_frame_nr = slots;
  ring.tp_retire_blk_tov = 0;
  is( PACKET_TX_RING, ring, "have a ring to send" );
  void * const at = mmap( nullptr, ringsSize, PROT_READ | PROT_WRITE, MAP_SHARED, socket, 0 );
  if ( at == MAP_FAILED ) {
    fail( interface, "reach its rings" );
  }
  rings_ = static_cast< uint8_t * >( at );
}

bool PacketPort::blockIsHere() const {
  return statusOf( blockAt( rings_, block_ )->hdr.bh1.block_status ) & TP_STATUS_USER;
}

uint32_t PacketPort::framesOfBlock() {
  auto * const block = blockAt( rings_, block_ );
  next_ = reinterpret_cast< uint8_t * >( block ) + block->hdr.bh1.offset_to_first_pkt;
  return block->hdr.bh1.num_pkts;
}

Bytes PacketPort::nextFrame() {
  auto * const record = next_;
  next_ += reinterpret_cast< const tpacket3_hdr * >( record )->tp_next_offset;
  return frameOf( record );
}

void PacketPort::blockDone() {
  statusIs( blockAt( rings_, block_ )->hdr.bh1.block_status, TP_STATUS_KERNEL );
  block_ = ( block_ + 1 ) % receivingBlocks;
}

bool PacketPort::send( const Head & head, Bytes rest ) {
  const auto length = head.bytes().size() + rest.size();
  if ( length > largest_ + head.linkLength() || length > slotSize - slotHead ) {
    return false;
  }
  auto * const slot = rings_ + receivingBlocks * blockSize + slot_ * slotSize;
  auto & record = *reinterpret_cast< tpacket3_hdr * >( slot );
  if ( statusOf( record.tp_status ) != TP_STATUS_AVAILABLE ) {
    return false;
  }
  std::ranges::copy( head.bytes(), slot + slotHead );
  std::ranges::copy( rest, slot + slotHead + head.bytes().size() );
  record.tp_len = static_cast< uint32_t >( length );
  record.tp_snaplen = static_cast< uint32_t >( length );
  record.tp_next_offset = 0;
  statusIs( record.tp_status, TP_STATUS_SEND_REQUEST );
  slot_ = ( slot_ + 1 ) % slots;
  hasUnsent_ = true;
  return true;
}

uint64_t PacketPort::takeMissed() {
  tpacket_stats_v3 statistics{};
  socklen_t size = sizeof( statistics );
  getsockopt( socket_.number(), SOL_PACKET, PACKET_STATISTICS, &statistics, &size );
  return statistics.tp_drops;
}

void PacketPort::errorDel() {
  int error = 0;
  socklen_t size = sizeof( error );
  getsockopt( socket_.number(), SOL_SOCKET, SO_ERROR, &error, &size );
}

void PacketPort::flush() {
  if ( std::exchange( hasUnsent_, false ) ) {
    // What the interface does not take now goes with the next call.
    hasUnsent_ = ::send( socket_.number(), nullptr, 0, MSG_DONTWAIT ) < 0;
  }
}

} // namespace LinuxPe
