#include "record/Replay.h"

#include "Loom/Task.h"
#include "Vex/Clock.h"

#include <algorithm>

namespace Agent {

namespace {

Vex::String textOf( std::string_view call, const Switch::SwitchAnswer & answer, double time ) {
  return Vex::String( call ) + " -> " + Vex::text( answer ) + ", at " + Vex::text( time ) + " s";
}

// Whether `recorded` can be the answer to a call for which the switch has `own`.
bool fits( const Switch::SwitchAnswer & recorded, const Switch::SwitchAnswer & own ) {
  return recorded.wrong == own.wrong &&
         ( recorded.outcome != Switch::Outcome::done || recorded.given == own.given );
}

} // namespace

Replay::Replay( const Vex::String & name, std::unique_ptr< const Vex::String > text )
    : text_( std::move( text ) ), name_( name ), entries_( recordEntries( name, *text_ ) ),
      start_( *std::find_if( entries_.begin(), entries_.end(), []( const RecordEntry & each ) {
        return each.kind == EntryKind::start;
      } ) ) {}

double Replay::startTime() const {
  return start_.steady ? start_.time : 0;
}

const RecordEntry * Replay::nextLine() {
  if ( nextIs( EntryKind::start ) ) {
    started_ = true;
    pass();
  }
  const auto at =
      std::find_if( entries_.begin() + static_cast< ptrdiff_t >( at_ ), entries_.end(),
                    []( const RecordEntry & each ) { return each.kind == EntryKind::line; } );
  return at == entries_.end() ? nullptr : &*at;
}

bool Replay::finished() {
  if ( !difference_ && next() ) {
    differs( "the end of the replay" );
  }
  return !difference_;
}

void Replay::pass() {
  if ( ++passed_ == next()->times ) {
    ++at_;
    passed_ = 0;
  }
}

void Replay::passTimes() {
  while ( nextIs( EntryKind::time ) ) {
    Vex::Clock::advanceTo( next()->time );
    pass();
  }
}

void Replay::lineIs( std::string_view line ) {
  if ( difference_ ) {
    return;
  }
  if ( start_.steady ) {
    passTimes();
  }
  if ( nextIs( EntryKind::line ) ) {
    ++lines_;
    pass();
  } else {
    differs( "the line " + Vex::String( line ) );
  }
}

void Replay::schedulerIs( Loom::TaskScheduler & scheduler ) {
  if ( start_.steady ) {
    scheduler.sliceJudgeIs( [ this ]( const Loom::Task & task, uint64_t question, bool ) {
      return endsSlice( task, question );
    } );
  }
}

bool Replay::endsSlice( const Loom::Task & task, uint64_t question ) {
  sliceEnded_ = sliceEnded_ && question > 0;
  if ( answers() && nextIs( EntryKind::yield ) &&
       next()->text == yieldText( task.taskName(), task.runs(), question ) ) {
    sliceEnded_ = true;
    pass();
  }
  return sliceEnded_;
}

Pace::Run Replay::run( Loom::TaskScheduler & scheduler, double seconds ) {
  if ( !start_.steady ) {
    return Pace::run( scheduler, seconds );
  }
  size_t turns = 0;
  for ( passTimes(); answers() && nextIs( EntryKind::turn ); passTimes() ) {
    pass();
    scheduler.runReady();
    ++turns;
  }
  return turns < turnLimit ? Run::done : Run::endless;
}

void Replay::hear( Switch::SwitchCall & call ) {
  if ( !answers() ) {
    return;
  }
  const double now = Vex::Clock::now();
  if ( nextIs( EntryKind::time ) && next()->time == now ) {
    pass();
  }
  const auto text = Vex::text( call.operation ) + " " + Vex::String( call.arguments );
  const auto * recorded = next();
  if ( !recorded || recorded->kind != EntryKind::call || recorded->text != text ||
       !fits( recorded->answer, call.answer ) ) {
    differs( textOf( text, call.answer, now ) );
    return;
  }
  // The record does not tell the failure of a refusal, which is the switch's own.
  const auto failure = recorded->answer.outcome == Switch::Outcome::refused
                           ? call.answer.failure
                           : recorded->answer.failure;
  call.answer = recorded->answer;
  call.answer.failure = failure;
  ++calls_;
  pass();
}

void Replay::differs( const Vex::String & found ) {
  double time = start_.time;
  size_t at = 0;
  for ( ; at < entries_.size() && ( at < at_ || entries_[ at ].kind == EntryKind::time ); ++at ) {
    time = entries_[ at ].kind == EntryKind::time ? entries_[ at ].time : time;
  }
  Vex::String recorded = "nothing more";
  if ( at < entries_.size() ) {
    const auto & entry = entries_[ at ];
    recorded = entry.kind == EntryKind::call   ? textOf( entry.text, entry.answer, time )
               : entry.kind == EntryKind::line ? "the line " + Vex::String( entry.text )
                                               : Vex::String( entry.text );
  }
  const auto & place = at < entries_.size() ? entries_[ at ] : entries_.back();
  difference_ = name_ + ":" + std::to_string( place.number ) +
                ": the replay differs from the record\n  recorded  " + recorded + "\n  replayed  " +
                found;
}

} // namespace Agent
