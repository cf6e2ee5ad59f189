// Whoever gives lines to a shell: a console, or one of a door's peers. Sessions are independent of
// each other; each has its own place, counts its own expectations, and is told what fails of them.
#pragma once

#include "Vex/Json.h"
#include "Vex/Value.h"
#include "shell/Answer.h"
#include "shell/JsonLines.h"
#include "shell/Line.h"

#include <memory>

namespace KezShell {

class Shell;

// What a session may do: look, change things, or keep the host waiting besides. A console is
// answered at once, whatever the length; the others have the rest of an answer said to them.
enum class Rights { look, change, console };

// How a line went: it was executed; executed, and something that it expected is not so, or its
// answer was ended; not executed.
VEX_ENUM( LineStatus, "KezShell::LineStatus", ok, failed, bad )

class Session {
public:
  // What is said goes to `out`, what was bad and what failed to `err`; all to `out` where lines are
  // answered in JSON.
  Session( Shell & shell, Rights rights, std::ostream & out, std::ostream & err );
  ~Session();
  Session( const Session & ) = delete;
  Session & operator=( const Session & ) = delete;

  // Raises BadLine, and std::runtime_error for what the line is not to blame for: a table is
  // damaged, has no room or cannot be mounted.
  void execute( std::string_view line, const Place & place );

  // Of what the latest line is answered.
  bool hasMoreToSay() const { return answer_ != nullptr; }
  // Whether that is not to be said yet; what a session calls as soon as it is, perhaps within a
  // handler.
  bool isWaiting() const { return answer_ && answer_->isWaiting(); }
  void wakeIs( std::function< void() > wake ) { wake_ = std::move( wake ); }
  // The next piece. Raises std::runtime_error, and nothing is left then.
  void say();
  // What has not been said need not be.
  void answerEnd() { answer_.reset(); }
  // Whether a line ended it: none after that is to be executed.
  bool isOver() const { return isOver_; }
  // What is left will not be said, because of this.
  void answerDel( const Vex::String & why );

  // Says why the latest line could not be executed; what it says in words.
  Vex::String badLineIs( const BadLine & error );
  Vex::String badLineIs( const std::runtime_error & error );
  // All is said of the latest line: how it went, which is said where it is answered in JSON.
  LineStatus conclude();
  // The same of a line that is refused before it is read.
  LineStatus refuse( const Place & place, const Vex::String & why );

  // Whether lines are answered in JSON unless they say otherwise.
  bool isJson() const { return isJson_; }
  void jsonIs( bool json ) { isJson_ = json; }

  // For commands.
  Rights rights() const { return rights_; }
  // Where to say it in JSON, a line at a time; null where words are wanted.
  Vex::JsonWriter * json() { return lineIsJson_.value_or( isJson_ ) ? &json_ : nullptr; }
  // Where to say it in words, of which a line makes a value in JSON where that is wanted.
  std::ostream & out() { return json() ? wordsInJson_ : out_; }
  // What else the line is answered; may be null. One that waits on a console is told after each
  // further line instead, until another takes its place.
  void answerIs( std::unique_ptr< Answer > answer );
  void standingAnswerDel() { standing_.answer.reset(); }
  // An expectation is judged: why it failed, nothing when it holds.
  void expectationIs( const Vex::String & failure );
  void judge( bool holds, const Vex::String & subject, const Vex::String & expected,
              const Vex::String & found );
  void endIs() { isOver_ = true; }
  // Something else failed.
  void failureIs( const Vex::String & text );

  size_t expectations() const { return expectations_; }
  size_t failures() const { return failures_; }
  const Vex::String & lastFailure() const { return lastFailure_; }

private:
  Vex::String sayError( const std::runtime_error & error, const BadLine * badLine );
  void sayStanding();
  void putPlace();

  Shell & shell_;
  const Rights rights_;
  std::ostream & out_;
  std::ostream & err_;
  Vex::JsonWriter json_{ out_ };
  JsonLines wordLines_{ json_ };
  std::ostream wordsInJson_{ &wordLines_ };
  bool isJson_ = false;
  std::optional< bool > lineIsJson_; // of the line that is executed, as all of these
  Place place_ = "";
  bool isRemark_ = true;
  bool isBad_ = false;
  bool isOver_ = false;
  size_t failuresBefore_ = 0;
  std::unique_ptr< Answer > answer_;
  std::function< void() > wake_ = [] {};
  struct Standing {
    std::unique_ptr< Answer > answer;
    std::optional< bool > isJson; // of the line that asked for it
  };
  Standing standing_; // of a console
  size_t expectations_ = 0;
  size_t failures_ = 0;
  Vex::String lastFailure_;
};

// Reads the word by which a line says that it alone is answered in JSON, or in words, and the
// blanks after it; none without one.
std::optional< bool > takeAnswerForm( Vex::TextCursor & in );

} // namespace KezShell
