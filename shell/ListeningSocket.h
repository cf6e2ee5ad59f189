// A name in the file system at which peers connect to a stream socket. Who may is decided by the
// mode, and by that of the directory. The name goes with the socket; one that a process left which
// ended otherwise is taken over, one that a process serves never, nor what another user owns.
#pragma once

#include "Vex/Descriptor.h"
#include "Vex/Text.h"

#include <sys/stat.h>

namespace KezShell {

class ListeningSocket {
public:
  // Raises std::runtime_error.
  ListeningSocket( const Vex::String & path, mode_t mode );
  ~ListeningSocket();
  ListeningSocket( const ListeningSocket & ) = delete;
  ListeningSocket & operator=( const ListeningSocket & ) = delete;

  int descriptor() const { return socket_.number(); }

private:
  const Vex::String path_;
  Vex::Descriptor socket_;
  struct stat name_ {}; // what stands there
};

} // namespace KezShell
