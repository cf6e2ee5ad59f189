// What happened in a session, in bounded space, and the page that shows it (docs/report.md): the
// lines, the calls of hardware and what failed; how many members the entities had at which time.
//
// The first lines and calls are kept, and the first failures beyond them; histograms count all. How
// the entities stood is looked at after every so many lines and times, ever rarer as a session
// grows.
#pragma once

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
  static constexpr size_t eventLimit = 16'000;
  static constexpr size_t failureLimit = 4'000;
  static constexpr size_t sampleLimit = 300;
  static constexpr size_t tableRowLimit = 400;

  struct Event {
    Happening what;
    uint64_t step; // the line that it came with, from 1
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

  // A line that is about to be executed, and when it has been.
  void lineIs( std::string_view line );
  void lineEnds();
  // Of the line: a bad one, or one with a failed expectation.
  void failureIs( const Vex::String & what );
  void hear( Switch::SwitchCall & call ) override;

  // A page of HTML. `verdict` is how the session ended.
  void write( std::ostream & out, const Vex::String & verdict, bool isVirtual );

private:
  void add( Happening what, Vex::String text );
  // Null for what is not there now.
  const KezShell::Root * rootOf( const Column & column ) const;
  void lookAtEntities();
  Sample sample() const;

  const Vex::String title_;
  const Roots & roots_;
  Histogram times_;
  Histogram steps_{ 1 };
  std::array< uint64_t, 3 > happened_{};
  std::array< uint64_t, 3 > leftOut_{};
  std::deque< Event > events_;
  size_t failuresKept_ = 0;
  size_t failureLimit_ = failureLimit;
  uint64_t troubles_ = 0; // failures that are no calls
  uint64_t step_ = 0;
  double time_;
  std::vector< Column > columns_;
  std::vector< Sample > samples_;
  uint64_t looks_ = 0;
  uint64_t looksASample_ = 1;
};

} // namespace Agent
