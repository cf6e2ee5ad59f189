// Frames sent into a network, and whether they arrive as they must. At rest that follows from the
// topology and from what has failed. In between frames may be lost, and a copy more than one
// arrives only where inputs of switches say that more than one forwards, or that the forwarder
// cannot be told where a frame is from; what hardware refused or has yet to answer excuses its
// switch.
#pragma once

#include "fabric/Network.h"

namespace Fabric {

// What one switch did to a frame.
struct Hop {
  Index node;
  Switch::Crossing in;
  Switch::Forwarded forwarded;
};

struct Walk {
  std::vector< uint32_t > copies; // by segment
  bool flooded = false;           // by the switch that it came in at
  String wrong;                   // what no frame may ever do; empty if it did not
};

// Where a frame comes into the fabric.
struct Entry {
  Index node = 0;
  IntfId port;
  VlanId vlanId;
};

// A frame of a host.
struct Sent {
  Index host = 0;
  std::optional< Index > to; // the host that it is for; a flood is for none
  Entry entry;
  Switch::Frame frame;
  bool atRest = false; // whether nothing may be lost or doubled when it is sent
};

// How many copies of a frame a segment must have, and may have.
struct Bounds {
  static constexpr uint32_t any = UINT32_MAX;
  uint32_t least = 0;
  uint32_t most = any;
};

// All that became of a frame.
struct Way {
  Sent sent;
  std::vector< Hop > hops;
  Walk walked;
  std::vector< Bounds > bounds; // by segment
  String wrong;                 // empty when nothing is
};

// Keeps each switch's part in `way`, if there is one.
Walk walk( const Network & network, const Entry & entry, const Switch::Frame & frame,
           std::vector< Hop > * way = nullptr );

Way wayOf( const Network & network, const Sent & sent );

// As text, switch by switch.
void showWay( std::ostream & out, const Network & network, const std::vector< Hop > & way );

// The links by which a host's frames come in: all that are up.
std::vector< Entry > entriesOf( const Network & network, Index host );

// The broadcast of a host by one of its links, and its frame to another host.
Sent floodOf( const Network & network, Index host, const Entry & entry );
Sent frameTo( const Network & network, Index host, Index to, const Entry & entry );

// How many copies of a flood inputs allow to reach the segment.
uint32_t allowedCopies( const Network & network, const Entry & entry, Index segment );

class Judge {
public:
  explicit Judge( const Network & network ) : network_( network ) {}

  // Sends some frames, drawn at random, and all that hosts can send. What is wrong.
  String some( size_t number, bool atRest );
  String all();

  uint64_t frames() const { return frames_; }
  // The way of the first frame that went wrong, else of the last one, if it can still be sent.
  std::optional< Way > way() const;
  // Frames that somebody else has sent, and has found wrong.
  void lastIs( const Sent & sent ) { last_ = sent; }
  void wrongIs( Way way );

  // Of a flood, of a frame to another host. What is lost or doubled is wrong only at rest, or where
  // inputs do not have it so.
  struct Verdict {
    bool lost = false;
    bool doubled = false;
    String wrong;
  };
  Verdict flood( Index host, const Entry & entry, bool atRest );
  Verdict unicast( Index host, Index to, const Entry & entry, bool atRest );

private:
  Verdict verdict( const Sent & sent );
  String one( bool atRest );
  Wire::EthAddr anyAddress();
  uint64_t below( uint64_t n );

  const Network & network_;
  std::optional< Sent > last_;
  std::optional< Way > wrong_;
  uint64_t draws_ = 0;
  uint64_t frames_ = 0;
};

} // namespace Fabric
