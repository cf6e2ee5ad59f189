// A door to a running host: serves a shell's lines over stream sockets of the local machine, to any
// number of peers up to a bound.
//
//   KezShell::Door door( shell );
//   door.socketIs( "/run/daemon/look", KezShell::Rights::look, 0660 );
//   ... whenever door.descriptor() is readable: door.serve();
//
// It owns no thread and never waits. Whatever there is to do, for peers that write, read or do
// neither for too long, makes its descriptor readable; each call does a little for each of some
// peers and returns. A peer's answer is made as the peer reads it, and its next line is not looked
// at before. What is sent is framed by Framing.h; docs/door.md tells peers all they need.
//
// A door holds entities while it tells of them: it goes before the host does.
#pragma once

#include "shell/ListeningSocket.h"
#include "shell/Shell.h"

#include <list>
#include <map>

namespace KezShell {

// What peers may take of the host.
struct DoorLimits {
  size_t peers = 64;
  size_t line = 65'536; // bytes; a longer one is refused
  double patience = 30; // seconds in which a peer that has something to read must read some
};

class Door {
public:
  explicit Door( Shell & shell, const DoorLimits & limits = {} );
  ~Door();
  Door( const Door & ) = delete;
  Door & operator=( const Door & ) = delete;

  // Peers may connect at this path, which gets this mode. Raises std::runtime_error.
  void socketIs( const Vex::String & path, Rights rights, mode_t mode );
  // A peer that is connected already, to a stream socket.
  void peerIs( Vex::Descriptor socket, Rights rights );

  // Of an open file that is readable while there is something to do.
  int descriptor() const { return events_.number(); }
  // Does a part of it.
  void serve();

  size_t peers() const { return peers_.size(); }

private:
  class Peer;
  struct Entrance {
    Entrance( const Vex::String & path, Rights granted, mode_t mode )
        : socket( path, mode ), rights( granted ) {}
    const ListeningSocket socket;
    const Rights rights;
  };

  void admit( const Entrance & entrance );
  void servePeer( int descriptor );
  void wakePeer( int descriptor );
  void cutOffTheSlow();
  void timerIs( double seconds );
  // Of a descriptor that it has or has not been told of yet.
  void eventsAre( int descriptor, uint32_t events, bool isNew );

  Shell & shell_;
  const DoorLimits limits_;
  Vex::Descriptor events_;
  Vex::Descriptor timer_; // runs out when it is time to look for peers that do not read
  std::list< Entrance > entrances_;
  std::map< int, std::unique_ptr< Peer > > peers_; // by descriptor
  uint64_t admitted_ = 0;
  Vex::Descriptor spare_; // given up for a moment to turn somebody away when no file can be opened
};

} // namespace KezShell
