// What one thread hands to another, in order: a lock that is held for a push or a swap alone, and
// a descriptor to wait at.
//
// A real product has its chip's command ring and interrupt here, or its driver's socket.
#pragma once

#include "Vex/Descriptor.h"

#include <mutex>
#include <sys/eventfd.h>
#include <unistd.h>
#include <vector>

namespace LinuxPe {

template< class T > class ThreadQueue {
public:
  ThreadQueue() : event_( eventfd( 0, EFD_CLOEXEC | EFD_NONBLOCK ) ) {
    if ( event_.number() < 0 ) {
      Vex::throwSystemError( "cannot make an event descriptor" );
    }
  }

  // Readable while there is anything to take.
  int descriptor() const { return event_.number(); }

  void push( T item ) {
    const std::lock_guard lock( mutex_ );
    if ( items_.empty() ) {
      eventfd_write( event_.number(), 1 );
    }
    items_.push_back( std::move( item ) );
  }
  std::vector< T > takeAll() {
    const std::lock_guard lock( mutex_ );
    eventfd_t count;
    eventfd_read( event_.number(), &count );
    return std::exchange( items_, {} );
  }

private:
  const Vex::Descriptor event_;
  std::mutex mutex_;
  std::vector< T > items_;
};

} // namespace LinuxPe
