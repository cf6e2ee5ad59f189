#include "shell/DoorPeer.h"

#include "Ringlog/Trace.h"
#include "Vex/Clock.h"

#include <cerrno>
#include <sys/socket.h>

namespace KezShell {

using Vex::String;

static Ringlog::Handle traceHandle( "KezShellDoor" );

namespace {

// Bytes that are made of an answer, and read of lines, at a time.
constexpr size_t portion = 32'768;
// Pieces that are made of an answer at a time, some of which say nothing.
constexpr size_t mostPieces = 10'000;
// Bytes that the system keeps for a peer that does not read, and as much again for the message
// that it is cut off.
constexpr int kept = 64 * 1024;

void roomIs( int descriptor, int bytes ) {
  setsockopt( descriptor, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof( bytes ) );
}

} // namespace

Door::Peer::Peer( Shell & shell, const DoorLimits & limits, Vex::Descriptor socket, Rights rights,
                  uint64_t number, std::function< void() > wake )
    : limits_( limits ), socket_( std::move( socket ) ), number_( number ),
      session_( shell, rights, out_, err_ ), lastRead_( Vex::Clock::steadyNow() ) {
  session_.wakeIs( std::move( wake ) );
  roomIs( descriptor(), kept );
  ucred who{};
  socklen_t size = sizeof( who );
  getsockopt( descriptor(), SOL_SOCKET, SO_PEERCRED, &who, &size );
  TRACE( 4, "peer ", number_, " comes: user ", who.uid, ", group ", who.gid, ", process ",
         who.pid );
  toSend_.statusIs( rights == Rights::look ? "read-only" : "ready" );
}

Door::Peer::~Peer() {
  TRACE( 4, "peer ", number_, " leaves, lines ", lines_ );
}

double Door::Peer::idle() const {
  return isToRead() ? Vex::Clock::steadyNow() - lastRead_ : 0;
}

void Door::Peer::cutOff() {
  TRACE( 2, "peer ", number_, " is cut off" );
  toSend_.text.clear();
  toSend_.atLineStart = false; // wherever it stands
  toSend_.endLine();
  err_ << "cut off: nothing was read for " << Vex::text( limits_.patience ) << " s\n";
  roomIs( descriptor(), 2 * kept );
  send();
  gone_ = true;
}

void Door::Peer::serve() {
  send();
  if ( toSend_.text.empty() && !gone_ ) {
    if ( leaving_ ) {
      gone_ = true;
    } else {
      step();
      send();
    }
  }
}

void Door::Peer::step() {
  if ( session_.isWaiting() ) {
    await();
  } else if ( isBusy() ) {
    sayMore();
  } else if ( hasLine() ) {
    takeLine();
  } else if ( !eof_ ) {
    receive();
  } else if ( at_ < input_.size() ) {
    input_ += '\n'; // the last line needs no end
  } else {
    gone_ = true;
  }
}

void Door::Peer::send() {
  auto & text = toSend_.text;
  if ( text.empty() ) {
    lastRead_ = Vex::Clock::steadyNow();
    return;
  }
  const auto sent = ::send( descriptor(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT );
  if ( sent > 0 ) {
    text.erase( 0, static_cast< size_t >( sent ) );
    lastRead_ = Vex::Clock::steadyNow();
  } else if ( errno != EAGAIN && errno != EINTR ) {
    gone_ = true;
  }
}

void Door::Peer::receive() {
  input_.erase( 0, std::exchange( at_, 0 ) );
  const auto before = input_.size();
  input_.resize( before + portion );
  const auto got = recv( descriptor(), input_.data() + before, portion, MSG_DONTWAIT );
  input_.resize( before + static_cast< size_t >( std::max< ssize_t >( got, 0 ) ) );
  if ( got == 0 ) {
    eof_ = true;
  } else if ( got < 0 && errno != EAGAIN && errno != EINTR ) {
    gone_ = true;
  }
  if ( !hasLine() && input_.size() > limits_.line ) {
    input_.clear();
    if ( !std::exchange( skipping_, true ) ) {
      ++lines_;
      refuse( "longer than " + std::to_string( limits_.line ) + " bytes" );
    }
  }
}

void Door::Peer::takeLine() {
  const auto end = input_.find( '\n', at_ );
  const std::string_view line( input_.data() + at_, end - at_ );
  at_ = end + 1;
  if ( std::exchange( skipping_, false ) ) {
    return;
  }
  ++lines_;
  if ( line.size() > limits_.line ) {
    refuse( "longer than " + std::to_string( limits_.line ) + " bytes" );
  } else {
    execute( line );
  }
}

template< class What > void Door::Peer::guarded( What && what ) {
  try {
    what();
  } catch ( const BadLine & error ) {
    session_.badLineIs( error );
  } catch ( const std::runtime_error & error ) {
    session_.badLineIs( error );
  }
}

void Door::Peer::refuse( const String & why ) {
  conclude( session_.refuse( place(), why ) );
}

void Door::Peer::execute( std::string_view line ) {
  TRACE( 5, "peer ", number_, ": ", line );
  isBusy_ = true;
  guarded( [ & ] { session_.execute( line, place() ); } );
  sayMore();
}

void Door::Peer::sayMore() {
  guarded( [ & ] {
    for ( size_t pieces = 0; session_.hasMoreToSay() && !session_.isWaiting() &&
                             toSend_.text.size() < portion && pieces < mostPieces;
          ++pieces ) {
      session_.say();
    }
  } );
  if ( !session_.hasMoreToSay() ) {
    conclude( session_.conclude() );
  }
}

void Door::Peer::await() {
  if ( !hasLine() && !eof_ ) {
    receive();
  }
  if ( hasLine() || eof_ ) {
    session_.answerEnd();
    conclude( session_.conclude() );
  }
}

void Door::Peer::conclude( LineStatus status ) {
  toSend_.statusIs( stringValue( status ) );
  isBusy_ = false;
  leaving_ = session_.isOver();
}

} // namespace KezShell
