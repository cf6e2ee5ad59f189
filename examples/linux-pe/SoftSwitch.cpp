#include "SoftSwitch.h"

#include "Ringlog/Trace.h"

#include <future>

static Ringlog::Handle traceHandle( "LinuxPeSoftSwitch" );

namespace LinuxPe {

SoftSwitch::SoftSwitch( const SwitchOptions & options, const Vex::Ptr< SimulatedSwitch > & books,
                        const Vex::Ptr< Switch::ForwardingInput > & forwarding,
                        const Vex::Ptr< const Kez::LagCreatorConfigDir > & lags,
                        const Vex::Ptr< const Evpn::EvpnStatus > & segments,
                        const Vex::Ptr< const CoreConfig > & core )
    : books_( books ), forwarding_( forwarding ),
      thread_( options,
               [ this ]( const HostEvent & event ) {
                 thread_.tellHost( [ this, event ] { handleHost( event ); } );
               } ),
      vlan_( thread_, *books ), dot1qMapping_( thread_, *books ), nonDfPort_( thread_, *books ),
      esiData_( thread_, *books ), esiPortMap_( thread_, *books ),
      feed_( Vex::makePtr< TableFeed >( thread_,
                                        FeedSources{ books, forwarding, lags, segments, core } ) ) {
}

// What the thread was handed names the calls, which end before it does otherwise.
SoftSwitch::~SoftSwitch() {
  thread_.end();
}

void SoftSwitch::serve() {
  for ( const auto & what : thread_.told() ) {
    what();
  }
}

void SoftSwitch::awaitAnswers( const KezHelper::LateCalls & calls ) {
  while ( calls.outstanding() > 0 ) {
    std::promise< void > carriedOut;
    thread_.carryOut( [ & ]( Tables & ) { carriedOut.set_value(); } );
    carriedOut.get_future().wait();
    serve();
  }
}

void SoftSwitch::handleHost( const HostEvent & event ) {
  const auto & [ host, intfId, isThere ] = event;
  TRACE( 5, isThere ? "host " : "no host ", host, " behind ", intfId );
  const bool isOthers = forwarding_->localHostHas( host ) && !learnedHostHas( host );
  if ( isThere ) {
    learnedHostIs( host, intfId );
  } else {
    learnedHostDel( host );
  }
  if ( isOthers ) {
    return;
  }
  if ( isThere ) {
    forwarding_->localHostIs( host, intfId );
  } else {
    forwarding_->localHostDel( host );
  }
}

uint64_t SoftSwitch::fromPorts() const {
  return thread_.counts()[ FrameCount::fromPorts ];
}
uint64_t SoftSwitch::fromCore() const {
  return thread_.counts()[ FrameCount::fromCore ];
}
uint64_t SoftSwitch::toPorts() const {
  return thread_.counts()[ FrameCount::toPorts ];
}
uint64_t SoftSwitch::toCore() const {
  return thread_.counts()[ FrameCount::toCore ];
}
uint64_t SoftSwitch::malformed() const {
  return thread_.counts()[ FrameCount::malformed ];
}
uint64_t SoftSwitch::wrongTag() const {
  return thread_.counts()[ FrameCount::wrongTag ];
}
uint64_t SoftSwitch::forOthers() const {
  return thread_.counts()[ FrameCount::forOthers ];
}
uint64_t SoftSwitch::unknownPeer() const {
  return thread_.counts()[ FrameCount::unknownPeer ];
}
uint64_t SoftSwitch::expired() const {
  return thread_.counts()[ FrameCount::expired ];
}
uint64_t SoftSwitch::notForwarded() const {
  return thread_.counts()[ FrameCount::notForwarded ];
}
uint64_t SoftSwitch::noNextHop() const {
  return thread_.counts()[ FrameCount::noNextHop ];
}
uint64_t SoftSwitch::notSent() const {
  return thread_.counts()[ FrameCount::notSent ];
}
uint64_t SoftSwitch::missed() const {
  return thread_.counts()[ FrameCount::missed ];
}

} // namespace LinuxPe
