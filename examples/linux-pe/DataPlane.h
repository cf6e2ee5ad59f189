// What the switch does with frames: from bytes to a crossing, by the tables to others, and to bytes
// again. On the way it learns where hosts are.
//
// A real product has none of this: its chip does it.
#pragma once

#include "LearnedHosts.h"
#include "Port.h"
#include "Tables.h"

#include <atomic>
#include <functional>

namespace LinuxPe {

// A frame may count under several.
VEX_ENUM( FrameCount, "LinuxPe::FrameCount",
          fromPorts,    // have come in
          fromCore,     //
          toPorts,      // copies that have gone out
          toCore,       //
          missed,       // have come in, and there was no room for them
          malformed,    // too short, or under labels that make no sense; nothing is done
          wrongTag,     // on an access port, in or out, under a tag that is not its own
          forOthers,    // from the core, to another's address
          unknownPeer,  // from the core, and from nobody to whom a tunnel leads
          expired,      // from the core, and its time to live is over
          notForwarded, // the tables stop it altogether
          noNextHop,    // a copy over a tunnel that leads nowhere yet
          notSent )     // a copy that is too long for the wire, or for which there is no room

// Read by any thread.
class FrameCounts {
public:
  void inc( FrameCount count, uint64_t by = 1 ) {
    at( count ).fetch_add( by, std::memory_order_relaxed );
  }
  uint64_t operator[]( FrameCount count ) const {
    return counts_[ static_cast< size_t >( count ) ].load( std::memory_order_relaxed );
  }

private:
  std::atomic< uint64_t > & at( FrameCount count ) {
    return counts_[ static_cast< size_t >( count ) ];
  }

  std::array< std::atomic< uint64_t >, vexNames( FrameCount() ).size() > counts_{};
};

// An access port's frames have no tag on the wire, and its access tag in the switch. Without one a
// port's frames are in the switch as they are on the wire.
struct AttachedPort {
  Wire::IntfId intfId;
  Bridging::VlanIdOrNone accessTag;
  Port * port = nullptr;
};

// The port to the provider's network; a switch may have none.
struct CorePort {
  Port * port = nullptr;
  Wire::EthAddr address;
};

class DataPlane {
public:
  // What is new of hosts on own ports is told.
  using Tell = std::function< void( const HostEvent & event ) >;

  DataPlane( Tables & tables, std::vector< AttachedPort > ports, const CorePort & core,
             FrameCounts & counts, LearnedHosts & hosts, Tell tell );

  // A frame has come in on one of the ports, by its number among them.
  void fromPort( size_t number, Bytes bytes, double now );
  void fromCore( Bytes bytes );
  // At any time, now and then.
  void age( double now );

private:
  void learn( Wire::IntfId port, const Switch::Frame & frame, double now );
  void send( const EthernetFrame & frame );
  void sendOnPort( const EthernetFrame & frame, const Switch::Crossing & out );
  void sendOverTunnel( const EthernetFrame & frame, const Switch::Crossing & out );

  Tables & tables_;
  const std::vector< AttachedPort > ports_;
  const CorePort core_;
  FrameCounts & counts_;
  LearnedHosts & hosts_;
  const Tell tell_;
  Switch::Forwarded forwarded_;
};

} // namespace LinuxPe
