// What a line is answered when that may be long: said piece by piece, so that whoever sends it
// needs room for no more than a piece, and lets time pass in between. It holds the entities that it
// tells of; they may change meanwhile.
#pragma once

#include <functional>

namespace KezShell {

class Session;

class Answer {
public:
  virtual ~Answer() = default;
  // Has the session say the next piece, if any is left; whether more is.
  virtual bool say( Session & session ) = 0;

  // Whether more is to be said, but not yet. Such an answer ends when the session goes on.
  virtual bool isWaiting() const { return false; }
  // What an answer that waits calls as soon as it does not any more, which may be within a handler.
  void wakeIs( std::function< void() > wake ) { wake_ = std::move( wake ); }

protected:
  void wake() const { wake_(); }

private:
  std::function< void() > wake_ = [] {};
};

} // namespace KezShell
