#include "record/Recorder.h"

#include "Vex/Clock.h"
#include "record/RecordEntry.h"

namespace Agent {

Vex::String Recorder::sessionLines() const {
  if ( !file_ ) {
    return lines_;
  }
  Vex::String lines;
  const auto text = file_->text();
  for ( size_t at = 0; at < text.size(); ) {
    const auto line = std::string_view( text ).substr( at, text.find( '\n', at ) + 1 - at );
    if ( !line.starts_with( entryMark ) ) {
      lines += line;
    }
    at += line.size();
  }
  return lines;
}

void Recorder::fileIs( const Vex::String & name ) {
  auto file = std::make_unique< RecordFile >( name );
  file->append( sessionLines() );
  file_ = std::move( file );
  lines_ = {};
  time_ = Vex::Clock::now();
  latest_.clear();
  failure_.clear();
  entry_.clear();
  entry_.append( entryMark );
  entry_.append( steady_ ? steadyStart : virtualStart );
  appendText( entry_, time_ );
  writeEntry();
}

void Recorder::fileDel() {
  if ( file_ ) {
    lines_ = sessionLines();
    file_.reset();
  }
}

void Recorder::lineIs( std::string_view line ) {
  if ( !file_ ) {
    lineAt_ = lines_.size();
    lines_ += line;
    lines_ += '\n';
    return;
  }
  if ( steady_ ) {
    writeTime();
  }
  lineAt_ = file_->size();
  latest_.clear();
  try {
    if ( !failure_.empty() ) {
      throw std::runtime_error( failure_ );
    }
    file_->append( line );
    file_->append( "\n" );
  } catch ( const std::runtime_error & ) {
    file_->cut( lineAt_ );
    fileDel();
    throw;
  }
}

void Recorder::lineDel() {
  if ( file_ ) {
    file_->cut( lineAt_ );
    latest_.clear();
  } else {
    lines_.resize( lineAt_ );
  }
}

void Recorder::hear( Switch::SwitchCall & call ) {
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
