#include "agent/Recorder.h"

#include "Vex/Clock.h"
#include "agent/RecordEntry.h"

namespace Agent {

void Recorder::fileIs( const Vex::String & name ) {
  file_ = std::make_unique< RecordFile >( name );
  for ( const auto & line : lines_ ) {
    file_->append( line );
    file_->append( "\n" );
  }
  time_ = Vex::Clock::now();
  latest_.clear();
  failure_.clear();
  entry_.clear();
  entry_.append( entryMark );
  entry_.append( steady_ ? steadyStart : virtualStart );
  appendText( entry_, time_ );
  writeEntry();
}

void Recorder::lineIs( std::string_view line ) {
  lines_.emplace_back( line );
  if ( !file_ ) {
    return;
  }
  if ( steady_ ) {
    writeTime();
  }
  if ( !failure_.empty() ) {
    file_.reset();
    throw std::runtime_error( failure_ );
  }
  file_->append( line );
  file_->append( "\n" );
  latest_.clear();
}

void Recorder::lineDel() {
  if ( file_ ) {
    file_->cut( file_->size() - lines_.back().size() - 1 );
  }
  lines_.pop_back();
}

void Recorder::hear( SwitchCall & call ) {
  if ( file_ ) {
    writeTime();
    entry_.clear();
    entry_.append( entryMark );
    appendText( entry_, call );
    writeEntry();
  }
}

void Recorder::turnIs() {
  if ( file_ ) {
    writeTime();
    entry_.clear();
    entry_.append( entryMark );
    entry_.append( turnWord );
    writeEntry();
  }
}

void Recorder::yieldIs( const Vex::String & task, uint64_t run, uint64_t question ) {
  if ( file_ ) {
    entry_.clear();
    entry_.append( entryMark );
    entry_.append( yieldText( task, run, question ) );
    writeEntry();
  }
}

void Recorder::writeTime() {
  if ( const double now = Vex::Clock::now(); now != time_ ) {
    time_ = now;
    entry_.clear();
    entry_.append( entryMark );
    entry_.append( timeWord );
    appendText( entry_, now );
    writeEntry();
  }
}

// What cannot be written in the midst of a call is told when the next line comes.
void Recorder::writeEntry() {
  try {
    if ( entry_.view() == latest_ ) {
      ++times_;
      file_->cut( latestAt_ );
      file_->append( entryMark );
      file_->append( Vex::text( times_ ) );
      file_->append( timesMark );
      file_->append( entry_.view().substr( entryMark.size() ) );
    } else {
      latest_ = entry_.view();
      times_ = 1;
      latestAt_ = file_->size();
      file_->append( entry_.view() );
    }
    file_->append( "\n" );
  } catch ( const std::runtime_error & error ) {
    failure_ = error.what();
  }
}

} // namespace Agent
