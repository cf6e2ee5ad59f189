#include "shell/Door.h"

#include "shell/DoorPeer.h"

#include <array>
#include <cerrno>
#include <cmath>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace KezShell {

using Vex::String;

namespace {

Vex::Descriptor spareFile() {
  return Vex::Descriptor( open( "/dev/null", O_RDONLY | O_CLOEXEC ) );
}

} // namespace

Door::Door( Shell & shell, const DoorLimits & limits )
    : shell_( shell ), limits_( limits ), events_( epoll_create1( EPOLL_CLOEXEC ) ),
      timer_( timerfd_create( CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC ) ),
      spare_( spareFile() ) {
  if ( events_.number() < 0 || timer_.number() < 0 ) {
    Vex::throwSystemError( "cannot open a door" );
  }
  eventsAre( timer_.number(), EPOLLIN, true );
}

Door::~Door() = default;

void Door::eventsAre( int descriptor, uint32_t events, bool isNew ) {
  epoll_event event{};
  event.events = events;
  event.data.fd = descriptor;
  if ( epoll_ctl( events_.number(), isNew ? EPOLL_CTL_ADD : EPOLL_CTL_MOD, descriptor, &event ) !=
       0 ) {
    Vex::throwSystemError( "a door cannot watch its peers" );
  }
}

void Door::socketIs( const String & path, Rights rights, mode_t mode ) {
  eventsAre( entrances_.emplace_back( path, rights, mode ).socket.descriptor(), EPOLLIN, true );
}

void Door::peerIs( Vex::Descriptor socket, Rights rights ) {
  const int descriptor = socket.number();
  auto peer = std::make_unique< Peer >( shell_, limits_, std::move( socket ), rights, ++admitted_,
                                        [ this, descriptor ] { wakePeer( descriptor ); } );
  eventsAre( descriptor, peer->events = EPOLLOUT, true );
  if ( peers_.empty() ) {
    timerIs( limits_.patience );
  }
  peers_.emplace( descriptor, std::move( peer ) );
}

void Door::admit( const Entrance & entrance ) {
  const auto accept = [ & ] {
    return Vex::Descriptor(
        accept4( entrance.socket.descriptor(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC ) );
  };
  auto socket = accept();
  if ( socket.number() < 0 ) {
    // Who cannot be let in would stand there, and keep the door busy, until there is room.
    if ( errno == EMFILE || errno == ENFILE ) {
      spare_ = Vex::Descriptor();
      socket = accept();
      socket = Vex::Descriptor();
      spare_ = spareFile();
    }
    return;
  }
  if ( peers_.size() < limits_.peers ) {
    peerIs( std::move( socket ), entrance.rights );
    return;
  }
  const auto full = String( errorMark ) + "no more than " + std::to_string( limits_.peers ) +
                    " are served at a time\n";
  send( socket.number(), full.data(), full.size(), MSG_NOSIGNAL | MSG_DONTWAIT );
}

void Door::serve() {
  std::array< epoll_event, 16 > ready;
  const int count =
      epoll_wait( events_.number(), ready.data(), static_cast< int >( ready.size() ), 0 );
  for ( int i = 0; i < count; ++i ) {
    const int descriptor = ready[ static_cast< size_t >( i ) ].data.fd;
    if ( descriptor == timer_.number() ) {
      cutOffTheSlow();
    } else if ( const auto at = std::find_if( entrances_.begin(), entrances_.end(),
                                              [ & ]( const Entrance & each ) {
                                                return each.socket.descriptor() == descriptor;
                                              } );
                at != entrances_.end() ) {
      admit( *at );
    } else {
      servePeer( descriptor );
    }
  }
}

void Door::servePeer( int descriptor ) {
  const auto at = peers_.find( descriptor );
  if ( at == peers_.end() ) {
    return; // was cut off just now
  }
  auto & peer = *at->second;
  peer.serve();
  if ( peer.isGone() ) {
    peers_.erase( at );
  } else if ( const uint32_t events = peer.isToRead() ? EPOLLOUT : EPOLLIN;
              events != peer.events ) {
    eventsAre( descriptor, peer.events = events, false );
  }
}

void Door::wakePeer( int descriptor ) {
  auto & peer = *peers_.at( descriptor );
  if ( peer.events != EPOLLOUT ) {
    eventsAre( descriptor, peer.events = EPOLLOUT, false );
  }
}

void Door::cutOffTheSlow() {
  double longest = 0;
  for ( auto at = peers_.begin(); at != peers_.end(); ) {
    const double idle = at->second->idle();
    if ( idle >= limits_.patience ) {
      at->second->cutOff();
      at = peers_.erase( at );
    } else {
      longest = std::max( longest, idle );
      ++at;
    }
  }
  timerIs( peers_.empty() ? 0 : limits_.patience - longest );
}

// Without peers there is nothing to wait for, which is 0.
void Door::timerIs( double seconds ) {
  itimerspec when{};
  when.it_value.tv_sec = static_cast< time_t >( seconds );
  when.it_value.tv_nsec = static_cast< long >( ( seconds - std::floor( seconds ) ) * 1e9 );
  timerfd_settime( timer_.number(), 0, &when, nullptr );
}

} // namespace KezShell
