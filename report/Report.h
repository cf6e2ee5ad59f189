// What happened in a session, in bounded space, and the page that shows it (docs/report.md): the
// lines and what stands between them, the calls of hardware, what failed, and what was traced; how
// many members the entities had at which time.
//
// The first of everything is kept, within limits of their own for refusals, failures and traces;
// histograms count all. How the entities stood is looked at after every so many lines and times,
// ever rarer as a session grows.
#pragma once

#include "Ringlog/TextTrace.h"
#include "report/Histogram.h"
#include "shell/Roots.h"
#include "switch/SwitchCall.h"

#include <deque>
#include <ostream>

namespace Agent {

using KezShell::Role;
using KezShell::Roots;

class Report : public Switch::SwitchListener {
public:
  static constexpr size_t eventLimit = 16'000; // lines, comments and calls
  static constexpr size_t refusalLimit = 4'000;
  static constexpr size_t failureLimit = 4'000;
  static constexpr size_t traceLimit = 8'000;
  // A text is kept whole while there is room for what is beyond this of all texts.
  static constexpr size_t textLimit = 240;
  static constexpr size_t roomForLongTexts = 500'000;
  static constexpr size_t sampleLimit = 300;
  static constexpr size_t tableRowLimit = 400;

  // Where lines come from. The step of its line with the number n is before + n.
  struct Source {
    Vex::String name;
    uint64_t before;
  };
  struct Event {
    Happening what;
    uint64_t step; // the line that it came with; 0 before the first
    double time;   // in seconds
    Vex::String text;
  };
  // A collection of a root.
  struct Column {
    size_t root; // among all; where it was, once they have changed
    Vex::String name;
    const Vex::AttributeType * attribute;
  };
  struct Sample {
    uint64_t step;
    double time;
    std::vector< size_t > counts; // by column
  };

  // Of a session that begins now. `roots` are looked at whenever something happens; they may become
  // the first of those that they are now, and all of them again.
  Report( const Vex::String & title, const Roots & roots );

  // A line that is about to be executed, and when it has been. It may be a comment or empty, and
  // has this number in the source, where lines may be passed over.
  void lineIs( std::string_view line, const Vex::String & source, uint64_t number );
  void lineEnds();
  // Of the line: a bad one, or one with a failed expectation.
  void failureIs( const Vex::String & what );
  void hear( Switch::SwitchCall & call ) override;
  void traceIs( const Ringlog::TextRecord & record );

  // A page of HTML. `verdict` is how the session ended.
  void write( std::ostream & out, const Vex::String & verdict, bool isVirtual );

private:
  // Counts it. Whether there is room for it among the events, where it is to be added then.
  bool count( Happening what );
  void add( Happening what, Vex::String text );
  // Null for what is not there now.
  const KezShell::Root * rootOf( const Column & column ) const;
  void lookAtEntities();
  Sample sample() const;

  const Vex::String title_;
  const Roots & roots_;
  Histogram times_;
  Histogram steps_{ 1 };
  std::array< uint64_t, happeningCount > happened_{};
  std::array< uint64_t, happeningCount > leftOut_{};
  std::deque< Event > events_;
  // By happening. What counts for the limit of another has none of its own.
  std::array< size_t, happeningCount > roomFor_{ eventLimit,   0, refusalLimit,
                                                 failureLimit, 0, traceLimit };
  size_t roomForRescues_ = failureLimit;
  size_t roomForLongTexts_ = roomForLongTexts;
  uint64_t textsCut_ = 0;
  uint64_t calls_ = 0;
  std::vector< Source > sources_;
  uint64_t step_ = 0;
  double time_;
  std::vector< Column > columns_;
  std::vector< Sample > samples_;
  uint64_t looks_ = 0;
  uint64_t looksASample_ = 1;
};

} // namespace Agent
