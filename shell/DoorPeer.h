// One who is connected to a door: what it wrote and what it is to read.
#pragma once

#include "shell/Door.h"
#include "shell/Framing.h"

namespace KezShell {

class Door::Peer {
public:
  // `wake` is called when it is to be served though it was not to read.
  Peer( Shell & shell, const DoorLimits & limits, Vex::Descriptor socket, Rights rights,
        uint64_t number, std::function< void() > wake );
  ~Peer();

  int descriptor() const { return socket_.number(); }
  // Sends what there is to send, and then takes one step: makes more of the answer, or executes a
  // line, or reads.
  void serve();
  // Whether it has left, or is done.
  bool isGone() const { return gone_; }
  // Whether it is to be served when it reads, and not when it writes.
  bool isToRead() const {
    return !toSend_.text.empty() || ( isBusy() && !session_.isWaiting() ) || eof_ || leaving_ ||
           hasLine();
  }
  // Seconds for which it has read nothing of what there is for it.
  double idle() const;
  // Tells it so, and lets it go.
  void cutOff();
  // What the door's events are set to.
  uint32_t events = 0;

private:
  bool isBusy() const { return isBusy_; }
  bool hasLine() const { return input_.find( '\n', at_ ) != Vex::String::npos; }
  void step();
  void send();
  void receive();
  void takeLine();
  void execute( std::string_view line );
  void sayMore();
  // With an answer that ends when something comes.
  void await();
  void conclude( LineStatus status );
  // Something that says what was wrong with the line by what it raises.
  template< class What > void guarded( What && what );
  void refuse( const Vex::String & why );
  Place place() const { return { "line " + std::to_string( lines_ ), lines_ }; }

  const DoorLimits & limits_;
  const Vex::Descriptor socket_;
  const uint64_t number_; // among the door's peers
  FramedText toSend_;
  FramedStream answers_{ toSend_, FramedStream::Kind::answer };
  FramedStream errors_{ toSend_, FramedStream::Kind::error };
  std::ostream out_{ &answers_ };
  std::ostream err_{ &errors_ };
  Session session_;
  double lastRead_; // when it last read something, or had nothing to read

  Vex::String input_;
  size_t at_ = 0;         // of the input, what comes next
  bool skipping_ = false; // to the end of a line that is too long
  bool eof_ = false;
  bool gone_ = false;
  bool leaving_ = false; // as soon as it has read what there is
  size_t lines_ = 0;
  bool isBusy_ = false; // with answering a line
};

} // namespace KezShell
