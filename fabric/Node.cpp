#include "fabric/Node.h"

namespace Fabric {

Node::Node( bool updatesEsiData )
    : updatesEsiData_( updatesEsiData ), wiring_( Agent::wire() ),
      shell_( wiring_, nowhere_, errors_ ) {
  beginSwitch();
}

void Node::line( const String & line ) {
  shell_.execute( line, line );
}

void Node::restart( bool hitless ) {
  if ( hitless ) { // the plane goes on, as its switch and all inputs do
    line( "restart hitless" );
    return;
  }
  earlierCalls_ += callsOfSwitch();
  plane_ = nullptr;
  line( "restart" );
  beginSwitch();
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
