#include "report/Report.h"

#include "Vex/Clock.h"
#include "report/ReportPage.h"

namespace Agent {

namespace {

// For whose limit it counts.
Happening limitOf( Happening what ) {
  return what == Happening::call || what == Happening::comment ? Happening::line : what;
}

Happening happeningOf( const Switch::SwitchAnswer & answer ) {
  using enum Switch::Outcome;
  return answer.outcome == refused || !answer.wrong.empty() ? Happening::failure
         : answer.outcome == done                           ? Happening::call
                                                            : Happening::refusal;
}

std::vector< Report::Column > columnsOf( const Roots & roots ) {
  std::vector< Report::Column > columns;
  size_t number = 0;
  for ( const auto & root : roots ) {
    for ( const auto * attribute : root.entity->fwkType().attributes() ) {
      if ( attribute->isCollection() ) {
        columns.push_back( { number, root.entity->name(), attribute } );
      }
    }
    ++number;
  }
  return columns;
}

} // namespace

Report::Report( const Vex::String & title, const Roots & roots )
    : title_( title ), roots_( roots ), times_( 1.0 / 1024, Vex::Clock::now() ),
      time_( Vex::Clock::now() ), columns_( columnsOf( roots ) ) {
  samples_.push_back( sample() );
}

void Report::lineIs( std::string_view line, const Vex::String & source, uint64_t number ) {
  if ( sources_.empty() || sources_.back().name != source ||
       sources_.back().before + number <= step_ ) {
    sources_.push_back( { source, step_ } );
  }
  step_ = sources_.back().before + number;
  if ( line.empty() ) {
    return;
  }
  const auto what = line.starts_with( '#' ) ? Happening::comment : Happening::line;
  if ( count( what ) ) {
    add( what, Vex::String( line ) );
  }
}

void Report::lineEnds() {
  lookAtEntities();
}

void Report::failureIs( const Vex::String & what ) {
  // It is kept even when it comes after many calls that failed.
  auto & room = roomFor_[ static_cast< size_t >( Happening::failure ) ];
  if ( room == 0 && roomForRescues_ > 0 ) {
    --roomForRescues_;
    ++room;
  }
  if ( count( Happening::failure ) ) {
    add( Happening::failure, what );
  }
}

void Report::hear( Switch::SwitchCall & call ) {
  if ( Vex::Clock::now() != time_ ) {
    lookAtEntities();
  }
  ++calls_;
  const auto what = happeningOf( call.answer );
  if ( count( what ) ) {
    add( what, Vex::text( call ) );
  }
}

void Report::traceIs( const Ringlog::TextRecord & record ) {
  if ( count( Happening::trace ) ) {
    Vex::TextBuffer text;
    text.append( record.handle );
    text.append( '/' );
    appendText( text, record.level );
    text.append( ' ' );
    text.append( record.text );
    add( Happening::trace, Vex::String( text.view() ) );
  }
}

bool Report::count( Happening what ) {
  const auto now = Vex::Clock::now();
  // What is traced of a call comes before it, which is the one to be looked at.
  if ( what != Happening::trace ) {
    time_ = now;
  }
  times_.add( now, what );
  steps_.add( static_cast< double >( step_ ), what );
  const auto index = static_cast< size_t >( what );
  ++happened_[ index ];
  auto & room = roomFor_[ static_cast< size_t >( limitOf( what ) ) ];
  if ( room == 0 ) {
    ++leftOut_[ index ];
    return false;
  }
  --room;
  return true;
}

void Report::add( Happening what, Vex::String text ) {
  if ( text.size() > textLimit ) {
    const auto beyond = text.size() - textLimit;
    if ( beyond <= roomForLongTexts_ ) {
      roomForLongTexts_ -= beyond;
    } else {
      ++textsCut_;
      text.resize( textLimit );
      text += "...";
    }
  }
  events_.push_back( { what, step_, Vex::Clock::now(), std::move( text ) } );
}

Report::Sample Report::sample() const {
  Sample sample{ step_, Vex::Clock::now(), {} };
  for ( const auto & column : columns_ ) {
    const auto * const root = rootOf( column );
    sample.counts.push_back( root ? column.attribute->size( *root->entity ) : 0 );
  }
  return sample;
}

// A restart leaves roots in their places, but for some that come or go with it.
const KezShell::Root * Report::rootOf( const Column & column ) const {
  const auto at = roots_.begin() + static_cast< ptrdiff_t >( column.root );
  return column.root < static_cast< size_t >( roots_.end() - roots_.begin() ) &&
                 at->entity->name() == column.name
             ? &*at
             : roots_.root( column.name );
}

void Report::lookAtEntities() {
  // While the agent restarts, or cannot, only the first ones are there.
  if ( !rootOf( columns_.back() ) || looks_++ % looksASample_ != 0 ) {
    return;
  }
  auto now = sample();
  if ( now.counts == samples_.back().counts ) {
    return;
  }
  samples_.push_back( std::move( now ) );
  if ( samples_.size() > sampleLimit ) {
    looksASample_ *= 2;
    for ( size_t i = 1; 2 * i < samples_.size(); ++i ) {
      samples_[ i ] = std::move( samples_[ 2 * i ] );
    }
    samples_.resize( ( samples_.size() + 1 ) / 2 );
  }
}

void Report::write( std::ostream & out, const Vex::String & verdict, bool isVirtual ) {
  for ( size_t at = columns_.size(); at-- > 0; ) {
    const auto place = static_cast< ptrdiff_t >( at );
    if ( const auto * const root = rootOf( columns_[ at ] ) ) {
      columns_[ at ].root = static_cast< size_t >( root - &*roots_.begin() );
      continue;
    }
    columns_.erase( columns_.begin() + place );
    for ( auto & each : samples_ ) {
      each.counts.erase( each.counts.begin() + place );
    }
  }
  samples_.push_back( sample() );
  ReportPage page( out );
  page.write( [ & ] {
    page.member( "title", title_ );
    page.member( "verdict", verdict );
    page.member( "clock", isVirtual ? "virtual" : "steady" );
    page.member( "start", times_.origin() );
    page.member( "end", Vex::Clock::now() );
    page.member( "happened", happened_ );
    page.member( "calls", calls_ );
    page.member( "leftOut", leftOut_ );
    page.member( "textsCut", textsCut_ );
    page.sources( sources_ );
    page.machines( roots_ );
    page.samples( columns_, samples_ );
    page.histogram( "times", times_ );
    page.histogram( "steps", steps_ );
    page.events( events_ );
    page.tables( roots_ );
  } );
}

} // namespace Agent
