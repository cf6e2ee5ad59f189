// A way out of the data plane, onto a wire.
#pragma once

#include "Frames.h"

namespace LinuxPe {

class Port {
public:
  virtual ~Port() = default;
  // The frame is `head` and `rest`, one behind the other. False when it cannot be sent: it is too
  // long, or there is no room.
  virtual bool send( const Head & head, Bytes rest ) = 0;
};

} // namespace LinuxPe
