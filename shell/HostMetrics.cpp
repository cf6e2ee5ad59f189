// What every host's figures are, read from its roots by reflection, and from the process.
#include "Loom/Task.h"
#include "Vex/Clock.h"
#include "shell/Machines.h"
#include "shell/Metrics.h"
#include "shell/Shell.h"

#include <ctime>
#include <fstream>
#include <sstream>
#include <sys/resource.h>
#include <unistd.h>

namespace KezShell {

using Vex::Access;
using Vex::AttributeType;
using Vex::String;

namespace {

using enum MetricType;

constexpr MetricFamily members{ "kez_members", gauge, "", "Members of a collection of a root." };
constexpr MetricFamily capacity{ "kez_table_capacity", gauge, "",
                                 "Records for which a shared table has memory already." };
constexpr MetricFamily attributeValue{ "kez_attribute", gauge, "",
                                       "Value of an attribute of a root that is only read." };
constexpr MetricFamily parked{ "kez_machine_parked", gauge, "",
                               "Keys of a machine that wait for another try." };
constexpr MetricFamily refused{ "kez_machine_refused", gauge, "",
                                "Keys of a machine that hardware refused when last tried." };
constexpr MetricFamily oldestRefusal{ "kez_machine_oldest_refusal_seconds", gauge, "seconds",
                                      "Time since the first refusal of the key that hardware "
                                      "refuses longest, 0 for none." };
constexpr MetricFamily retries{ "kez_machine_retries", counter, "",
                                "Tries of parked keys by a machine's reviews." };
constexpr MetricFamily taskRuns{ "kez_task_runs", counter, "",
                                 "Runs of a task, such as a review." };
constexpr MetricFamily taskYields{ "kez_task_yields", counter, "",
                                   "Runs of a task that the scheduler had it end early." };
constexpr MetricFamily taskWork{ "kez_task_work", counter, "",
                                 "Units of work of a task, in a review keys looked at." };
constexpr MetricFamily taskLongestRun{ "kez_task_longest_run_seconds", gauge, "seconds",
                                       "Longest run of a task on the steady clock." };
constexpr MetricFamily readyTasks{ "kez_scheduler_ready_tasks", gauge, "",
                                   "Tasks that are ready to run." };
constexpr MetricFamily delayedTasks{ "kez_scheduler_delayed_tasks", gauge, "",
                                     "Tasks that wait for their time." };
constexpr MetricFamily longestTurn{ "kez_scheduler_longest_turn_seconds", gauge, "seconds",
                                    "Longest hold of the loop by a turn on the steady clock." };
constexpr MetricFamily residentMemory{ "kez_process_resident_memory_bytes", gauge, "bytes",
                                       "Memory of the process that is in RAM." };
constexpr MetricFamily virtualMemory{ "kez_process_virtual_memory_bytes", gauge, "bytes",
                                      "Address space of the process." };
constexpr MetricFamily processorTime{ "kez_process_cpu_seconds", counter, "seconds",
                                      "Processor time that the process has used." };
constexpr MetricFamily startTime{ "kez_process_start_time_seconds", gauge, "seconds",
                                  "When the process began, since 1970." };

// What a machine calls the collection of its parked keys begins so, and its review of them is
// called this.
constexpr std::string_view parkedPrefix = "unprogrammed";
constexpr std::string_view reviewOfParked = "reviewUnprogrammed";
constexpr std::string_view refusalName = "refusal";

String nameOf( const AttributeType & attribute ) {
  return String( attribute.name );
}

void addSizes( Metrics & metrics, const Root & root ) {
  for ( const auto * attribute : root.entity->fwkType().attributes() ) {
    if ( !attribute->isCollection() ) {
      continue;
    }
    const MetricLabels labels{ { "root", root.entity->name() },
                               { "collection", nameOf( *attribute ) } };
    metrics.put( members, labels, attribute->size( *root.entity ) );
    if ( const auto room = attribute->capacity( *root.entity ) ) {
      metrics.put( capacity, labels, *room );
    }
  }
}

// Of what runs beside the machines: what is tunable is no figure.
void addValues( Metrics & metrics, const Root & root ) {
  for ( const auto * attribute : root.entity->fwkType().attributes() ) {
    if ( !attribute->keyed() && attribute->valueForm == Vex::TextForm::number &&
         attribute->access == Access::readOnly ) {
      metrics.put( attributeValue,
                   { { "root", root.entity->name() }, { "attribute", nameOf( *attribute ) } },
                   Vex::parseBriefly< double >( attribute->value( *root.entity ) ) );
    }
  }
}

void addTask( Metrics & metrics, const String & root, const String & name,
              const Loom::Task & task ) {
  const MetricLabels labels{ { "root", root }, { "task", name } };
  metrics.put( taskRuns, labels, task.runs() );
  metrics.put( taskYields, labels, task.yields() );
  metrics.put( taskWork, labels, task.work() );
  metrics.put( taskLongestRun, labels, task.longestRun() );
}

void addTasks( Metrics & metrics, const Vex::Entity & entity ) {
  for ( const auto * attribute : entity.fwkType().attributes() ) {
    if ( attribute->kind != Vex::referenceKind ) {
      continue;
    }
    const auto target = attribute->target( entity );
    if ( const auto * const task = dynamic_cast< const Loom::Task * >( target.get() ) ) {
      addTask( metrics, entity.name(), nameOf( *attribute ), *task );
    }
  }
}

size_t parkedIn( const Vex::Entity & entity ) {
  size_t all = 0;
  for ( const auto * attribute : entity.fwkType().attributes() ) {
    if ( attribute->isCollection() && attribute->name.starts_with( parkedPrefix ) ) {
      all += attribute->size( entity );
    }
  }
  return all;
}

// How long ago the first member came, which is the one that has stood longest; none where values do
// not tell, as "2 since 3, last 8" does.
std::optional< double > age( const AttributeType & refusal, const Vex::Entity & entity ) {
  const auto first = refusal.walk( entity )->next();
  if ( !first ) {
    return 0;
  }
  constexpr std::string_view mark = " since ";
  const auto at = first->value.find( mark );
  double since = 0;
  Vex::TextCursor in(
      std::string_view( first->value ).substr( std::min( at, first->value.size() ) ) );
  return in.skip( mark ) && Vex::readNumber( in, since )
             ? std::optional( Vex::Clock::now() - since )
             : std::nullopt;
}

// Keys may be parked in an output too. A machine that parks is one that counts what was refused.
void addParking( Metrics & metrics, const Kez::StateMachine & machine ) {
  const auto & type = machine.fwkType();
  const auto * const refusal = type.attribute( refusalName );
  if ( !refusal || !refusal->isCollection() ) {
    return;
  }
  size_t all = parkedIn( machine );
  for ( const auto * attribute : type.attributes() ) {
    if ( attribute->kind == Vex::referenceKind && attribute->writesTarget() ) {
      const auto output = attribute->target( machine );
      all += output ? parkedIn( *output ) : 0;
    }
  }
  const MetricLabels labels{ { "machine", machine.name() } };
  metrics.put( parked, labels, all );
  metrics.put( refused, labels, refusal->size( machine ) );
  if ( const auto seconds = age( *refusal, machine ) ) {
    metrics.put( oldestRefusal, labels, *seconds );
  }
  const auto * const review = type.attribute( reviewOfParked );
  const auto target = review ? review->target( machine ) : nullptr;
  if ( const auto * const task = dynamic_cast< const Loom::Task * >( target.get() ) ) {
    metrics.put( retries, labels, task->work() );
  }
}

void addScheduler( Metrics & metrics, const Loom::TaskScheduler & scheduler ) {
  const MetricLabels labels{ { "root", scheduler.name() } };
  metrics.put( readyTasks, labels, scheduler.readyTasks() );
  metrics.put( delayedTasks, labels, scheduler.delayedTasks() );
  metrics.put( longestTurn, labels, scheduler.longestTurn() );
}

std::string firstLineOf( const char * file ) {
  std::ifstream in( file );
  std::string line;
  std::getline( in, line );
  return line;
}

// In seconds since 1970, from when the kernel says that it began after the machine; 0 where it does
// not tell.
double processStart() {
  constexpr int wordsBeforeStart = 19; // behind the process's name
  const auto line = firstLineOf( "/proc/self/stat" );
  std::istringstream words( line.substr( line.rfind( ')' ) + 1 ) );
  std::string skipped;
  for ( int i = 0; i < wordsBeforeStart; ++i ) {
    words >> skipped;
  }
  const auto now = []( clockid_t clock ) {
    timespec time{};
    clock_gettime( clock, &time );
    return double( time.tv_sec ) + double( time.tv_nsec ) / 1e9;
  };
  double ticks = 0;
  return words >> ticks ? now( CLOCK_REALTIME ) - now( CLOCK_BOOTTIME ) +
                              ticks / double( sysconf( _SC_CLK_TCK ) )
                        : 0;
}

void addProcess( Metrics & metrics ) {
  const auto page = static_cast< uint64_t >( sysconf( _SC_PAGESIZE ) );
  std::istringstream pages( firstLineOf( "/proc/self/statm" ) );
  if ( uint64_t all = 0, resident = 0; pages >> all >> resident ) {
    metrics.put( residentMemory, {}, resident * page );
    metrics.put( virtualMemory, {}, all * page );
  }
  rusage used{};
  if ( getrusage( RUSAGE_SELF, &used ) == 0 ) {
    const auto seconds = []( const timeval & time ) {
      return double( time.tv_sec ) + double( time.tv_usec ) / 1e6;
    };
    metrics.put( processorTime, {}, seconds( used.ru_utime ) + seconds( used.ru_stime ) );
  }
  static const double begun = processStart();
  if ( begun > 0 ) {
    metrics.put( startTime, {}, begun );
  }
}

void tellMetrics( const Shell & shell, Vex::TextCursor & in, Session & session ) {
  Vex::expectEnd( in );
  const auto metrics = metricsOf( shell.host() );
  if ( auto * const json = session.json() ) {
    metrics.writeInJson( *json );
  } else {
    metrics.write( session.out(), MetricForm::openMetrics );
  }
}

} // namespace

Metrics metricsOf( const Host & host ) {
  Metrics metrics;
  const auto & roots = host.roots();
  for ( const auto & root : roots ) {
    addSizes( metrics, root );
  }
  forEachMachine( roots,
                  [ & ]( const Kez::StateMachine & machine ) { addParking( metrics, machine ); } );
  for ( const auto & root : roots ) {
    addTasks( metrics, *root.entity );
    const auto * const scheduler = dynamic_cast< const Loom::TaskScheduler * >( root.entity.get() );
    if ( scheduler ) {
      addScheduler( metrics, *scheduler );
    } else if ( root.role == Role::runtime || root.role == Role::hardware ) {
      addValues( metrics, root );
    }
  }
  host.addMetrics( metrics );
  addProcess( metrics );
  return metrics;
}

void addMetrics( Shell & shell ) {
  shell.commandIs(
      { "metrics", "", "tell figures of the process, for a collector",
        "Says what machines have and wait for, how tasks ran, how hardware answered and what memory\n"
        "the process has, as OpenMetrics text; in JSON a sample a line.\n"
        "  metrics\n",
        Effect::none,
        [ &shell ]( Vex::TextCursor & in, Session & session ) {
          tellMetrics( shell, in, session );
        } },
      "call" );
}

} // namespace KezShell
