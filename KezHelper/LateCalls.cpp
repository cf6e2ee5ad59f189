#include "KezHelper/LateCalls.h"

#include "Ringlog/Trace.h"

namespace KezHelper {

static Ringlog::Handle traceHandle( "KezLateCalls" );

LateCalls::Run::Run( const Vex::Ptr< Loom::TaskScheduler > & scheduler, LateCalls & owner )
    : Task( scheduler, 2, "lateCalls" ), owner_( owner ) {}

LateCalls::LateCalls( const Vex::Ptr< Loom::TaskScheduler > & scheduler )
    : run_( Vex::makePtr< Run >( scheduler, *this ) ) {}

LateCalls::~LateCalls() {
  run_->cancel();
}

void LateCalls::lostInc( const Vex::String & key, bool heard ) {
  lostIs( lost() + 1 );
  if ( heard ) {
    TRACE( 5, "lost after it was accepted: ", key );
  } else {
    TRACE( 0, "lost after it was accepted: ", key,
           ", and nobody hears it: no audit has its table" );
  }
}

uint64_t LateCalls::begin() {
  ended_.push_back( false );
  return first_ + ended_.size() - 1;
}

void LateCalls::end( uint64_t number ) {
  ended_[ number - first_ ] = true;
  while ( !ended_.empty() && ended_.front() ) {
    ended_.pop_front();
    ++first_;
  }
  while ( !waiting_.empty() && waiting_.begin()->first <= first_ ) {
    later( std::move( waiting_.extract( waiting_.begin() ).mapped() ) );
  }
}

void LateCalls::whenEndedBefore( uint64_t number, std::function< void() > next ) {
  if ( number <= first_ ) {
    next();
  } else {
    waiting_.emplace( number, std::move( next ) );
  }
}

void LateCalls::later( std::function< void() > next ) {
  due_.push_back( std::move( next ) );
  run_->scheduleNow();
}

void LateCalls::go() {
  while ( !due_.empty() ) {
    const auto next = std::move( due_.front() );
    due_.pop_front();
    next();
    run_->taskWorkInc();
    if ( run_->taskShouldYield() && !due_.empty() ) {
      run_->scheduleNow();
      return;
    }
  }
}

} // namespace KezHelper
