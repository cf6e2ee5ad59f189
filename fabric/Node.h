// A switch with its agent, and the plane that forwards frames by its tables. Lines are the agent's.
#pragma once

#include "agent/Shell.h"
#include "switch/ForwardingPlane.h"

#include <sstream>

namespace Fabric {

using Vex::String;

class Node {
public:
  // Whether its hardware takes new ESI data in the place of others.
  explicit Node( bool updatesEsiData );
  Node( const Node & ) = delete;
  Node & operator=( const Node & ) = delete;

  const Agent::Wiring & wiring() const { return wiring_; }
  void line( const String & line );
  // That of the next so many calls each fails; that hardware answers so many seconds after each.
  static String refusalLine( Switch::FallibleOperation operation, uint32_t calls );
  static std::vector< String > latenessLines( const String & seconds );
  // What has hardware go on to refuse calls and to answer late as it does.
  std::vector< String > hindrances() const;
  // The agent starts anew over its inputs, and over an empty switch unless hitless.
  void restart( bool hitless );
  // Of Vex::Clock.
  std::optional< double > nextDeadline() const { return wiring_.scheduler->nextDeadline(); }
  void catchUp() { shell_.catchUp(); }

  void forward( const Switch::Crossing & in, const Switch::Frame & frame,
                Switch::Forwarded & out ) {
    plane_->forward( in, frame, out );
  }
  // Of all switches that it has had.
  uint64_t hardwareCalls() const { return earlierCalls_ + callsOfSwitch(); }
  // A call that no hardware would carry out, or a task that does not end. Empty without.
  String brokenPromise() const;

private:
  template< class T > Vex::Ptr< T > root( std::string_view name ) const;
  void beginSwitch();
  uint64_t callsOfSwitch() const;

  const bool updatesEsiData_;
  Agent::Wiring wiring_;
  std::ostream nowhere_{ nullptr };
  std::ostringstream errors_;
  Agent::Shell shell_;
  Vex::Ptr< Switch::ForwardingPlane > plane_;
  uint64_t earlierCalls_ = 0;
};

} // namespace Fabric
