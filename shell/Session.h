// Whoever gives lines to a shell: a console, or one of a door's peers. Sessions are independent of
// each other; each has its own place, counts its own expectations, and is told what fails of them.
#pragma once

#include "Vex/Text.h"
#include "shell/Answer.h"

#include <memory>

namespace KezShell {

class Shell;

// What a session may do: look, change things, or keep the host waiting besides. A console is
// answered at once, whatever the length; the others have the rest of an answer said to them.
enum class Rights { look, change, console };

class Session {
public:
  // What is said goes to `out`, what was bad and what failed to `err`.
  Session( Shell & shell, Rights rights, std::ostream & out, std::ostream & err );
  ~Session();
  Session( const Session & ) = delete;
  Session & operator=( const Session & ) = delete;

  // `place` is where the line stands, for reports. Raises BadLine, and std::runtime_error for what
  // the line is not to blame for: a table is damaged, has no room or cannot be mounted.
  void execute( std::string_view line, const Vex::String & place );

  // Of what the latest line is answered.
  bool hasMoreToSay() const { return answer_ != nullptr; }
  // The next piece. Raises std::runtime_error, and nothing is left then.
  void say();
  // What is left will not be said, because of this.
  void answerDel( const Vex::String & why );

  // For commands.
  Rights rights() const { return rights_; }
  std::ostream & out() { return out_; }
  // What else the line is answered; may be null.
  void answerIs( std::unique_ptr< Answer > answer );
  // An expectation is judged: why it failed, nothing when it holds.
  void expectationIs( const Vex::String & failure );
  void judge( bool holds, const Vex::String & subject, const Vex::String & expected,
              const Vex::String & found );
  // Something else failed.
  void failureIs( const Vex::String & text );

  size_t expectations() const { return expectations_; }
  size_t failures() const { return failures_; }
  const Vex::String & lastFailure() const { return lastFailure_; }

private:
  Shell & shell_;
  const Rights rights_;
  std::ostream & out_;
  std::ostream & err_;
  Vex::String place_; // of the line that is executed
  std::unique_ptr< Answer > answer_;
  size_t expectations_ = 0;
  size_t failures_ = 0;
  Vex::String lastFailure_;
};

} // namespace KezShell
