// kez-sim: random lives of the whole agent against what its inputs say.

#include "program/CommandLine.h"
#include "sim/Events.h"
#include "sim/Shrink.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace Sim {

namespace {

constexpr auto usage =
    R"(kez-sim lives random lives of the whole agent, and compares it with what its inputs say.

  kez-sim --seeds A-B [--events N]   the lives of these seeds, N events each, 1000 at first; the
                                     first that fails is cut down and printed as a scenario
  kez-sim --replay FILE              the lines of a scenario, compared at each "# compare"
  kez-sim help                       this text
  kez-sim --version                  its version

Exit status: 0; 1 something failed; 2 a bad command line or file.
)";

// As a scenario that the agent runs too.
void print( const Lines & lines ) {
  for ( const auto & line : lines ) {
    if ( line == compareLine || line == hitlessLine ) {
      for ( const auto & each : settleLines ) {
        std::cout << each << '\n';
      }
    }
    std::cout << line << '\n' << ( line == hitlessLine ? "restart hitless\nadvance 60\n" : "" );
  }
}

void printComment( const Vex::String & text ) {
  std::istringstream in( text );
  for ( Vex::String line; std::getline( in, line ); ) {
    std::cout << "# " << line << '\n';
  }
}

int replay( const Vex::String & name ) {
  std::ifstream file( name );
  if ( !file ) {
    throw std::runtime_error( "cannot read " + name );
  }
  Lines lines;
  for ( Vex::String line; std::getline( file, line ); ) {
    lines.push_back( line );
  }
  const auto outcome = runApart( lines );
  if ( outcome ) {
    std::cout << name << ':' << outcome->line + 1 << ": " << outcome->text << '\n';
  } else {
    std::cout << "nothing is wrong\n";
  }
  return outcome ? 1 : 0;
}

int cutDown( uint64_t seed, size_t events ) {
  const auto lines = randomLines( seed, events );
  const auto outcome = runApart( lines );
  if ( !outcome ) {
    std::cout << "# seed " << seed << " fails only after the seeds before it\n";
    return 1;
  }
  std::cout << "# seed " << seed << ", " << events << " events, fails at line " << outcome->line + 1
            << ":\n";
  printComment( outcome->text );
  std::cout << std::flush;
  const auto least = shrink( lines, *outcome );
  std::cout << "# cut down to " << least.size() << " lines, which fail so:\n";
  const auto again = runApart( least );
  printComment( again ? again->text : "not any more" );
  print( least );
  return 1;
}

// The seeds one after the other in one process, which a failure ends; `seed` follows them.
bool runAll( uint64_t first, uint64_t last, size_t events, volatile uint64_t * seed ) {
  const pid_t child = fork();
  if ( child == 0 ) {
    prctl( PR_SET_PDEATHSIG, SIGKILL );
    for ( uint64_t each = first; each <= last; ++each ) {
      *seed = each;
      alarm( 60 );
      if ( run( randomLines( each, events ) ) ) {
        _exit( 1 );
      }
    }
    _exit( 0 );
  }
  const bool isWatched = isatty( STDERR_FILENO ) != 0;
  int status = 1;
  while ( waitpid( child, &status, isWatched ? WNOHANG : 0 ) == 0 ) {
    std::cerr << "\rseed " << *seed << " of " << last << ' ' << std::flush;
    std::this_thread::sleep_for( std::chrono::milliseconds( 200 ) );
  }
  std::cerr << ( isWatched ? "\r\033[K" : "" ) << std::flush;
  std::filesystem::remove_all( tablesOf( child ) );
  return status == 0;
}

int runSeeds( uint64_t first, uint64_t last, size_t events ) {
  auto * const seed = static_cast< uint64_t * >( mmap(
      nullptr, sizeof( uint64_t ), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0 ) );
  VEX_ASSERT( seed != MAP_FAILED );
  const auto begin = std::chrono::steady_clock::now();
  if ( !runAll( first, last, events, seed ) ) {
    return cutDown( *seed, events );
  }
  const std::chrono::duration< double > taken = std::chrono::steady_clock::now() - begin;
  std::cout << "seeds " << first << " to " << last << ", " << events
            << " events each: nothing is wrong; "
            << size_t( double( ( last - first + 1 ) * events ) / taken.count() )
            << " events a second\n";
  return 0;
}

int dispatch( const Program::Arguments & arguments ) {
  size_t events = 1000;
  uint64_t first = 0;
  uint64_t last = 0;
  Vex::String file;
  const auto words = Program::takeOptions( arguments, { Program::range( "--seeds", first, last ),
                                                        Program::value( "--events", events ),
                                                        Program::text( "--replay", file ) } );
  if ( !words.empty() || ( last == 0 ) == file.empty() ) {
    throw Program::UsageError( "expected --seeds A-B, from 1, or --replay FILE" );
  }
  return file.empty() ? runSeeds( first, last, events ) : replay( file );
}

} // namespace

} // namespace Sim

int main( int argc, char ** argv ) {
  return Program::run( { "kez-sim", Sim::usage }, { argv + 1, argv + argc }, std::cout, std::cerr,
                       Sim::dispatch );
}
