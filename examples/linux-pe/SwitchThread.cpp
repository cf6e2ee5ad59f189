#include "SwitchThread.h"

#include <chrono>
#include <csignal>
#include <poll.h>
#include <pthread.h>

namespace LinuxPe {

namespace {

constexpr double ageInterval = 1; // seconds

double now() {
  return std::chrono::duration< double >( std::chrono::steady_clock::now().time_since_epoch() )
      .count();
}

// A thread that is started meanwhile leaves signals to the others.
class SignalsBlocked {
public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset( &all );
    pthread_sigmask( SIG_SETMASK, &all, &before_ );
  }
  ~SignalsBlocked() { pthread_sigmask( SIG_SETMASK, &before_, nullptr ); }
  SignalsBlocked( const SignalsBlocked & ) = delete;
  SignalsBlocked & operator=( const SignalsBlocked & ) = delete;

private:
  sigset_t before_;
};

} // namespace

SwitchThread::SwitchThread( const SwitchOptions & options, const DataPlane::Tell & tell )
    : hasCore_( !options.coreInterface.empty() ), hosts_( options.hostAge ) {
  std::vector< AttachedPort > attached;
  attached.reserve( options.ports.size() );
  for ( const auto & [ intfId, interface, accessTag ] : options.ports ) {
    attached.push_back(
        { intfId, accessTag, &ports_.emplace_back( interface, PacketPort::Sees::all ) } );
  }
  CorePort core;
  if ( hasCore_ ) {
    auto & port = ports_.emplace_back( options.coreInterface, PacketPort::Sees::mplsForInterface );
    core = { &port, port.address() };
  }
  plane_.emplace( tables_, std::move( attached ), core, counts_, hosts_, tell );
  const SignalsBlocked blocked;
  thread_ = std::thread( [ this ] { run(); } );
}

void SwitchThread::end() {
  if ( thread_.joinable() ) {
    carryOut( [ this ]( Tables & ) { isOver_ = true; } );
    thread_.join();
  }
}

void SwitchThread::run() {
  std::vector< pollfd > watched{ { toSwitch_.descriptor(), POLLIN, 0 } };
  watched.reserve( 1 + ports_.size() );
  for ( const auto & port : ports_ ) {
    watched.push_back( { port.descriptor(), POLLIN, 0 } );
  }
  for ( double aged = now(); !isOver_; ) {
    poll( watched.data(), watched.size(), static_cast< int >( ageInterval * 1000 ) );
    if ( watched[ 0 ].revents ) {
      for ( const auto & work : toSwitch_.takeAll() ) {
        work( tables_ );
      }
    }
    auto port = ports_.begin();
    for ( size_t i = 1; i < watched.size(); ++i, ++port ) {
      if ( watched[ i ].revents & POLLERR ) {
        port->errorDel();
      }
    }
    const double present = now();
    forwardOnce( present );
    if ( present - aged >= ageInterval ) {
      plane_->age( present );
      for ( auto & each : ports_ ) {
        counts_.inc( FrameCount::missed, each.takeMissed() );
      }
      aged = present;
    }
  }
}

void SwitchThread::forwardOnce( double now ) {
  size_t number = 0;
  for ( auto & port : ports_ ) {
    const bool isCore = hasCore_ && &port == &ports_.back();
    port.receive( [ & ]( Bytes frame ) {
      if ( isCore ) {
        plane_->fromCore( frame );
      } else {
        plane_->fromPort( number, frame, now );
      }
    } );
    ++number;
  }
  for ( auto & port : ports_ ) {
    port.flush();
  }
}

} // namespace LinuxPe
