// What stands in a record, line by line (docs/record-format.md): the lines of a session, and
// entries, which begin with a mark that makes them comments to whoever runs the lines alone.
#pragma once

#include "switch/SwitchCall.h"

#include <vector>

namespace Agent {

constexpr std::string_view entryMark = "#= ";
constexpr std::string_view timesMark = " x ";
constexpr std::string_view virtualStart = "record 1, virtual clock at ";
constexpr std::string_view steadyStart = "record 1, steady clock at ";
constexpr std::string_view timeWord = "time ";
constexpr std::string_view turnWord = "turn";
constexpr std::string_view yieldWord = "yield ";

VEX_ENUM( EntryKind, "Agent::EntryKind", line, start, time, turn, yield, call )

struct RecordEntry {
  EntryKind kind;
  size_t number;         // of the line in the file, from 1
  std::string_view text; // without mark and count, and without the answer of a call
  bool steady = false;   // of a start
  double time = 0;       // of a start or a time, in seconds
  uint64_t times = 1;
  Switch::SwitchAnswer answer = {};
};

// Of the entry for a run, by the task's count, that ended at this question after its time slice.
Vex::String yieldText( const Vex::String & task, uint64_t run, uint64_t question );

// The entries of a record, which refer to its text. Raises std::runtime_error that begins with
// "NAME:LINE:COLUMN: " for what is none.
std::vector< RecordEntry > recordEntries( const Vex::String & name, std::string_view text );

} // namespace Agent
