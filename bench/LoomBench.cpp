// Tasks posted and run, against an intrusive queue and a virtual call. Times are per post;
// allocations are those of all that is timed of the subject.
#include "Allocations.h"
#include "Ratio.h"

#include "Loom/Task.h"
#include "Vex/Clock.h"

#include <memory>

// Nothing here is known to the compiler to be the only one of its kind, so that calls are as
// virtual as they are written.
namespace Bench {

class Job : public Loom::Task {
public:
  explicit Job( const Vex::Ptr< Loom::TaskScheduler > & scheduler ) : Task( scheduler, 4, "job" ) {}
  void run() override;
  size_t ran = 0;
};
void Job::run() {
  ++ran;
}

// In no queue twice, as a task is.
struct PlainJob {
  virtual ~PlainJob() = default;
  virtual void run() = 0;
  PlainJob * next = nullptr;
  bool queued = false;
};
struct CountingJob : PlainJob {
  void run() override;
  size_t ran = 0;
};
void CountingJob::run() {
  ++ran;
}

class PlainQueue {
public:
  void post( PlainJob & job ) {
    if ( job.queued ) {
      return;
    }
    job.queued = true;
    job.next = nullptr;
    *last_ = &job;
    last_ = &job.next;
  }
  void run() {
    while ( PlainJob * const job = first_ ) {
      first_ = job->next;
      if ( !first_ ) {
        last_ = &first_;
      }
      job->queued = false;
      job->run();
    }
  }

private:
  PlainJob * first_ = nullptr;
  PlainJob ** last_ = &first_;
};

} // namespace Bench

namespace {

using Bench::CountingJob;
using Bench::Job;
using Bench::PlainQueue;

constexpr size_t count = 100'000;

// Tasks are posted and run in batches of as many as there are tasks.
void postAndRunOn( benchmark::State & state ) {
  const auto scheduler = Vex::makePtr< Loom::TaskScheduler >();
  const auto many = static_cast< size_t >( state.range( 0 ) );
  std::vector< Vex::Ptr< Job > > jobs( many );
  std::generate( jobs.begin(), jobs.end(), [ & ] { return Vex::makePtr< Job >( scheduler ); } );
  std::vector< std::unique_ptr< CountingJob > > plain( many );
  std::generate( plain.begin(), plain.end(), [] { return std::make_unique< CountingJob >(); } );
  PlainQueue queue;
  size_t allocated = 0;
  const auto batches = [ & ]( auto && batch ) {
    for ( size_t posts = 0; posts < count; posts += many ) {
      batch();
    }
  };
  Bench::compare(
      state, count,
      [ & ] {
        Bench::counting( allocated, [ & ] {
          batches( [ & ] {
            for ( const auto & job : jobs ) {
              job->scheduleNow();
            }
            scheduler->runReady();
          } );
        } );
      },
      [ & ] {
        batches( [ & ] {
          for ( const auto & job : plain ) {
            queue.post( *job );
          }
          queue.run();
        } );
      } );
  if ( jobs.front()->ran != plain.front()->ran ) {
    state.SkipWithError( "not every post was run" );
  }
  state.counters[ "allocations" ] = static_cast< double >( allocated );
}

// The steady clock is read around each run; on virtual time it is not.
void postAndRun( benchmark::State & state ) {
  postAndRunOn( state );
}
BENCHMARK( postAndRun )->Arg( 10 )->Arg( 1000 )->UseManualTime();

void postAndRunOnVirtualTime( benchmark::State & state ) {
  Vex::Clock::virtualIs( 0 );
  postAndRunOn( state );
  Vex::Clock::steadyIs();
}
BENCHMARK( postAndRunOnVirtualTime )->Arg( 10 )->Arg( 1000 )->UseManualTime();

} // namespace
