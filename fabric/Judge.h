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

// Keeps each switch's part in `way`, if there is one.
Walk walk( const Network & network, const Entry & entry, const Switch::Frame & frame,
           std::vector< Hop > * way = nullptr );

// As text, switch by switch.
void showWay( std::ostream & out, const Network & network, const std::vector< Hop > & way );

// The links by which a host's frames come in: all that are up.
std::vector< Entry > entriesOf( const Network & network, Index host );

// How many copies of a flood inputs allow to reach the segment.
uint32_t allowedCopies( const Network & network, const Entry & entry, Index segment );

class Judge {
public:
  explicit Judge( const Network & network ) : network_( network ) {}

  // Sends some frames, drawn at random, and all that hosts can send. What is wrong.
  String some( size_t number, bool atRest );
  String all();

  uint64_t frames() const { return frames_; }

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
  String one( bool atRest );
  Wire::EthAddr anyAddress();
  uint64_t below( uint64_t n );
  String told( const String & what, const Entry & entry, const Switch::Frame & frame );
  bool isReachable( Index from, Index to ) const;

  const Network & network_;
  uint64_t draws_ = 0;
  uint64_t frames_ = 0;
};

} // namespace Fabric
