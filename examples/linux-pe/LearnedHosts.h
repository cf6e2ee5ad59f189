// The hosts that the switch has seen frames from on its own ports, by MAC address and VLAN, and
// when it saw the last one.
//
// A real product's chip keeps this table, and tells its driver of what is new, has moved and has
// aged, through a ring or by being polled.
#pragma once

#include "Bridging/MacVlanPair.h"
#include "Vex/Collection.h"
#include "Wire/IntfId.h"

#include <map>
#include <vector>

namespace LinuxPe {

// What the switch tells of a host.
struct HostEvent {
  Bridging::MacVlanPair host;
  Wire::IntfId intfId; // behind which it is, or was
  bool isThere = false;

  friend bool operator==( const HostEvent &, const HostEvent & ) = default;
};

class LearnedHosts {
public:
  // Hosts that have sent nothing for so many seconds are gone. Beyond `room` none is learned.
  explicit LearnedHosts( double age = 300, size_t room = 16'384 ) : age_( age ), room_( room ) {}

  // A frame of the host has come in. Whether there is anything to tell: it is new, or has moved.
  bool seen( const Bridging::MacVlanPair & host, Wire::IntfId intfId, double now );
  // Those that are gone, which are forgotten.
  std::vector< HostEvent > aged( double now );
  size_t size() const { return hosts_.size(); }

private:
  struct Place {
    Wire::IntfId intfId;
    double seen;
  };

  const double age_;
  const size_t room_;
  std::map< Bridging::MacVlanPair, Place > hosts_;
};

} // namespace LinuxPe
