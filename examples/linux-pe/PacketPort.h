// A network interface, as a port of the switch: frames come and go through rings in memory that is
// shared with the kernel, without a system call for each.
//
// A real product has the chip's own ports here, and frames never come to the processor.
#pragma once

#include "Port.h"
#include "Vex/Descriptor.h"

namespace LinuxPe {

class PacketPort final : public Port {
public:
  // What of the interface's frames is seen: everything, whomever it is for; or what is for the
  // interface and of MPLS.
  enum class Sees { all, mplsForInterface };

  // Raises std::runtime_error, which names the interface.
  PacketPort( const Vex::String & interface, Sees sees );
  ~PacketPort() override;
  PacketPort( const PacketPort & ) = delete;
  PacketPort & operator=( const PacketPort & ) = delete;

  // Readable when frames have come.
  int descriptor() const { return socket_.number(); }
  Wire::EthAddr address() const { return address_; }

  // Runs `what( frame )` for each that has come, of a few blocks of them at most, with the tag that
  // it had on the wire. What the host itself sends through the interface is none of them.
  template< class What > void receive( What && what ) {
    for ( int blocks = 0; blocks < blocksAtATime && blockIsHere(); ++blocks ) {
      for ( auto left = framesOfBlock(); left > 0; --left ) {
        if ( const auto frame = nextFrame(); !frame.empty() ) {
          what( frame );
        }
      }
      blockDone();
    }
  }
  bool send( const Head & head, Bytes rest ) override;
  // How many frames have come since this was asked last for which the ring had no room.
  uint64_t takeMissed();
  // The descriptor has an error: the interface has gone down, and may come up again.
  void errorDel();
  // Has the kernel send what it was given.
  void flush();

private:
  static constexpr int blocksAtATime = 16;

  void openRings( const Vex::String & interface );
  bool blockIsHere() const;
  uint32_t framesOfBlock();
  Bytes nextFrame();
  void blockDone();

  const Vex::Descriptor socket_;
  Wire::EthAddr address_;
  size_t largest_ = 0; // of what the interface carries behind its link's head
  uint8_t * rings_ = nullptr;
  size_t block_ = 0;         // of the receiving ring, which is looked at next
  uint8_t * next_ = nullptr; // frame of it
  size_t slot_ = 0;          // of the sending ring, which is filled next
  bool hasUnsent_ = false;
};

} // namespace LinuxPe
