// What a line is answered when that may be long: said piece by piece, so that whoever sends it
// needs room for no more than a piece, and lets time pass in between. It holds the entities that it
// tells of; they may change meanwhile.
#pragma once

namespace KezShell {

class Session;

class Answer {
public:
  virtual ~Answer() = default;
  // Has the session say the next piece, if any is left; whether more is.
  virtual bool say( Session & session ) = 0;
};

} // namespace KezShell
