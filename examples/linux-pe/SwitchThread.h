// The thread that forwards. Its tables are its own: whoever wants them changed hands it a function
// that does, and they are carried out in order, between frames; what it has to say comes back as
// functions, to be run on the host's thread. So nothing is locked while a frame is forwarded.
//
// A real product has the chip here, with the registers that its driver writes, and the completions
// and events that it reads.
#pragma once

#include "DataPlane.h"
#include "PacketPort.h"
#include "ThreadQueue.h"

#include <list>
#include <thread>

namespace LinuxPe {

// A port of the switch, and the network interface that is its wire.
struct PortOption {
  Wire::IntfId intfId;
  Vex::String interface;
  Bridging::VlanIdOrNone accessTag;
};

struct SwitchOptions {
  std::vector< PortOption > ports;
  Vex::String coreInterface; // empty for none
  double hostAge = 300;      // seconds
};

class SwitchThread {
public:
  // Events of hosts are given to `tell` on the thread. Raises std::runtime_error when an interface
  // cannot be used.
  SwitchThread( const SwitchOptions & options, const DataPlane::Tell & tell );
  ~SwitchThread() { end(); }
  SwitchThread( const SwitchThread & ) = delete;
  SwitchThread & operator=( const SwitchThread & ) = delete;

  // From the host's thread.
  void carryOut( std::function< void( Tables & tables ) > work ) {
    toSwitch_.push( std::move( work ) );
  }
  // Once what it was handed before has been carried out; nothing is forwarded then.
  void end();
  // From the switch's; the host runs it.
  void tellHost( std::function< void() > what ) { toHost_.push( std::move( what ) ); }
  // For the host: what is readable when something has been told, and that.
  int descriptor() const { return toHost_.descriptor(); }
  std::vector< std::function< void() > > told() { return toHost_.takeAll(); }

  const FrameCounts & counts() const { return counts_; }

private:
  void run();
  void forwardOnce( double now );

  ThreadQueue< std::function< void( Tables & ) > > toSwitch_;
  ThreadQueue< std::function< void() > > toHost_;
  FrameCounts counts_;
  Tables tables_;
  std::list< PacketPort > ports_; // the core's is the last, if there is one
  const bool hasCore_;
  LearnedHosts hosts_;
  std::optional< DataPlane > plane_;
  bool isOver_ = false;
  std::thread thread_;
};

} // namespace LinuxPe
