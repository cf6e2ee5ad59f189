#include "fabric/Node.h"

#include "switch/SwitchAnswers.h"

namespace Fabric {

Node::Node( bool updatesEsiData )
    : updatesEsiData_( updatesEsiData ), wiring_( Agent::wire() ),
      shell_( wiring_, nowhere_, errors_ ) {
  beginSwitch();
}

void Node::line( const String & line ) {
  shell_.execute( line, line );
}

String Node::refusalLine( Switch::FallibleOperation operation, uint32_t calls ) {
  return "set switch.fault[" + Vex::text( operation ) + "].nextCalls " + Vex::text( calls );
}

std::vector< String > Node::latenessLines( const String & seconds ) {
  return { "set switchAnswers.answerDelay " + seconds, "set switchFloodSets.answerDelay " + seconds,
           "set switchMacs.answerDelay " + seconds };
}

std::vector< String > Node::hindrances() const {
  auto lines =
      latenessLines( Vex::text( root< Switch::SwitchAnswers >( "switchAnswers" )->answerDelay() ) );
  for ( const auto & [ operation, plan ] : wiring_.hardware->fault() ) {
    lines.push_back( refusalLine( operation, plan->nextCalls() ) );
  }
  return lines;
}

void Node::restart( bool hitless ) {
  const auto kept = hindrances();
  if ( hitless ) { // the plane goes on, as its switch and all inputs do
    line( "restart hitless" );
  } else {
    earlierCalls_ += callsOfSwitch();
    plane_ = nullptr;
    line( "restart" );
    beginSwitch();
  }
  for ( const auto & each : kept ) {
    line( each );
  }
}

String Node::brokenPromise() const {
  const auto & hardware = *wiring_.hardware;
  return hardware.refusalCounts() > 0 ? "wrong call " + hardware.lastRefusal() : errors_.str();
}

template< class T > Vex::Ptr< T > Node::root( std::string_view name ) const {
  return Vex::dynamicCast< T >( wiring_.roots.root( name )->entity );
}

void Node::beginSwitch() {
  line( String( "set floodingHelper.updateSupportedOnCreateEsiData " ) +
        ( updatesEsiData_ ? "true" : "false" ) );
  plane_ = Vex::makePtr< Switch::ForwardingPlane >(
      wiring_.hardware, root< Switch::ForwardingInput >( "forwardingInput" ),
      root< Kez::LagCreatorConfigDir >( "lagConfigDir" ),
      root< Evpn::EvpnStatus >( "evpnStatus" ) );
}

uint64_t Node::callsOfSwitch() const {
  uint64_t calls = 0;
  for ( const auto [ operation, count ] : wiring_.hardware->callCount() ) {
    calls += count;
  }
  return calls;
}

} // namespace Fabric
