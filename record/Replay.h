// Replays a record: hands out its lines, and meanwhile answers the calls of hardware with what the
// record has for them, in the place of the switch's own plans and capacities. On virtual time, also
// when the record is one of the steady clock: then turns of the scheduler run, and runs of tasks
// end, where they did.
//
// The first call, or line, that is not what the record has next is the difference. From there on
// the record answers nothing. The lines before the record's start are executed with the switch's
// own answers.
#pragma once

#include "record/Pace.h"
#include "record/RecordEntry.h"

#include <memory>
#include <optional>

namespace Agent {

class Replay : public Switch::SwitchListener, public Pace {
public:
  // Raises std::runtime_error for what is no record.
  Replay( const Vex::String & name, std::unique_ptr< const Vex::String > text );

  // The time at which the session began.
  double startTime() const;
  // The next line to be executed; null when there is none.
  const RecordEntry * nextLine();
  // To be asked when every line has been executed.
  bool finished();
  // What differs, in several lines: where in the record, what it has, and what came.
  const std::optional< Vex::String > & difference() const { return difference_; }
  size_t lines() const { return lines_; }
  size_t calls() const { return calls_; }

  bool isVirtual() const override { return !start_.steady; }
  void schedulerIs( Loom::TaskScheduler & scheduler ) override;
  void lineIs( std::string_view line ) override;
  Run run( Loom::TaskScheduler & scheduler, double seconds ) override;
  void hear( Switch::SwitchCall & call ) override;

private:
  const RecordEntry * next() const { return at_ < entries_.size() ? &entries_[ at_ ] : nullptr; }
  bool nextIs( EntryKind kind ) const { return next() && next()->kind == kind; }
  // Whether the record answers: it has begun, and nothing has differed.
  bool answers() const { return started_ && !difference_; }
  void pass();
  void passTimes();
  bool endsSlice( const Loom::Task & task, uint64_t question );
  void differs( const Vex::String & found );

  const std::unique_ptr< const Vex::String > text_;
  const Vex::String name_;
  const std::vector< RecordEntry > entries_;
  const RecordEntry & start_;
  size_t at_ = 0;       // of the next entry
  uint64_t passed_ = 0; // times of it
  bool started_ = false;
  bool sliceEnded_ = false; // of the run that asked last
  size_t lines_ = 0;
  size_t calls_ = 0;
  std::optional< Vex::String > difference_;
};

} // namespace Agent
