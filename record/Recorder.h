// Keeps the lines of a session. While it has a file it writes them there, with what hardware is
// called for and answers and, of a session on the steady clock, the times at which lines came and
// turns of the scheduler ran: all that a replay takes (docs/record-format.md). A line is written
// before it is executed, so that one that ends the process stands in the record.
#pragma once

#include "record/RecordFile.h"
#include "switch/SwitchCall.h"

#include <memory>

namespace Agent {

class Recorder : public Switch::SwitchListener {
public:
  // Writes the session's lines so far, and then all that comes, to this file and no other. Raises
  // std::runtime_error when there is a file of this name, or none can be made.
  void fileIs( const Vex::String & name );
  // Raises std::runtime_error when the file's lines cannot be had back.
  void fileDel();
  // Vex::Clock stands between the turns that it is told of.
  void steadyIs() { steady_ = true; }

  // Raises std::runtime_error when the line cannot be written, or something before it: then the
  // file ends with the line before.
  void lineIs( std::string_view line );
  // Takes the latest line back.
  void lineDel();

  void hear( Switch::SwitchCall & call ) override;
  void turnIs();
  // The task's run that is under way ends since its time slice is over.
  void yieldIs( const Vex::String & task, uint64_t run, uint64_t question );

private:
  // Of the session, with a line end each.
  Vex::String sessionLines() const;
  void writeTime();
  // Writes entry_; one like the latest is counted there.
  void writeEntry();

  // With a line end each. While there is a file they stand there alone: two copies of them are
  // what recording a million lines would cost most.
  Vex::String lines_;
  size_t lineAt_ = 0; // where the latest begins, in the file or lines_
  bool steady_ = false;
  std::unique_ptr< RecordFile > file_;
  double time_ = 0; // that the file has told
  Vex::TextBuffer entry_;
  Vex::String latest_; // entry, while nothing follows it
  size_t times_ = 0;
  size_t latestAt_ = 0;
  Vex::String failure_; // to write what was no line
};

} // namespace Agent
