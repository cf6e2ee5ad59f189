// What happens to a network, a line at a time, with frames sent after everything that may change
// where they go. Beside the network's own lines a story has
//
//   rest                                              let it settle, and send all that hosts can
//   expect flood HOST by SWITCH at SEGMENT N of M     copies, and how many of them inputs allow
//   expect frame HOST by SWITCH to HOST N
//
// Between a rest and the next line that is no hitless restart nothing is lost or doubled.
#pragma once

#include "fabric/Judge.h"
#include "sim/Simulation.h"

namespace Fabric {

class Story {
public:
  Story( const Topology & topology, uint64_t seed );
  Story( const Story & ) = delete;
  Story & operator=( const Story & ) = delete;

  // What is wrong after the line; empty when nothing is.
  String execute( const String & line );
  uint64_t frames() const { return judge_.frames(); }
  const Network & network() const { return network_; }
  // The way of the first frame that went wrong, else of the last one, if it can still be sent.
  std::optional< Way > way() const { return judge_.way(); }
  // That of a flood of the first host that has a link, if there is one.
  std::optional< Way > firstFlood() const;

private:
  String expect( Vex::TextCursor & in );
  String brokenPromise() const;

  Network network_;
  Judge judge_;
  bool quiet_ = false;
  String wrong_;
};

// What went wrong first, if anything. `line` follows the index of the line that is executed;
// `frames` counts those of a story in which nothing did. `atEnd` is told what went wrong.
using AtEnd = std::function< void( const Story & story, const String & wrong ) >;
std::optional< Sim::Outcome > run( const Topology & topology, uint64_t seed,
                                   const Sim::Lines & lines, volatile size_t * line = nullptr,
                                   uint64_t * frames = nullptr, const AtEnd & atEnd = nullptr );

} // namespace Fabric
