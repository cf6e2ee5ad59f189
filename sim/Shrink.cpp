#include "sim/Shrink.h"

#include <cstdio>
#include <filesystem>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Sim {

namespace {

[[noreturn]] void runHere( const Lines & lines, const Runner & runner, int output,
                           volatile size_t * line ) {
  dup2( output, STDERR_FILENO );
  alarm( runner.longestRun );
  const auto outcome = runner.run( lines, line );
  if ( outcome ) {
    std::fputs( outcome->text.c_str(), stderr );
  }
  std::fflush( stderr );
  _exit( outcome ? 1 : 0 );
}

Vex::String readAll( int input ) {
  Vex::String text;
  char buffer[ 4096 ];
  for ( ssize_t n; ( n = read( input, buffer, sizeof( buffer ) ) ) > 0; ) {
    text.append( buffer, size_t( n ) );
  }
  close( input );
  return text;
}

// Keeps `fewer`, as far as it goes, if it fails too.
bool keepIfItFails( Lines fewer, const Runner & runner, Lines & least ) {
  const auto still = runApart( fewer, runner );
  if ( still ) {
    fewer.resize( still->line + 1 );
    least = std::move( fewer );
  }
  return still.has_value();
}

// Leaves out machines that need not be named.
void shrinkNames( const Runner & runner, Lines & least ) {
  for ( size_t i = 0; i < least.size(); ++i ) {
    for ( const auto & name : machineNames() ) {
      auto fewer = least;
      const bool names = i < least.size() && least[ i ].starts_with( '#' );
      const auto at = names ? least[ i ].find( " " + name ) : Vex::String::npos;
      if ( at != Vex::String::npos ) {
        fewer[ i ].erase( at, name.size() + 1 );
        keepIfItFails( std::move( fewer ), runner, least );
      }
    }
  }
}

} // namespace

std::optional< Outcome > runApart( const Lines & lines, const Runner & runner ) {
  auto * const line = static_cast< size_t * >( mmap(
      nullptr, sizeof( size_t ), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0 ) );
  int ends[ 2 ];
  VEX_ASSERT( line != MAP_FAILED && pipe( ends ) == 0 );
  const pid_t child = fork();
  VEX_ASSERT( child >= 0 );
  if ( child == 0 ) {
    runHere( lines, runner, ends[ 1 ], line );
  }
  close( ends[ 1 ] );
  Outcome outcome;
  outcome.text = readAll( ends[ 0 ] );
  int status = 0;
  waitpid( child, &status, 0 );
  outcome.line = *line;
  munmap( line, sizeof( size_t ) );
  std::filesystem::remove_all( tablesOf( child ) ); // what ends by a signal leaves them
  if ( WIFEXITED( status ) && WEXITSTATUS( status ) == 0 ) {
    return std::nullopt;
  }
  if ( WIFSIGNALED( status ) ) {
    outcome.endedProcess = true;
    outcome.text += "ended by signal " + std::to_string( WTERMSIG( status ) );
  }
  return outcome;
}

Lines shrink( const Lines & lines, const Outcome & outcome, const Runner & runner ) {
  Lines least( lines.begin(), lines.begin() + ptrdiff_t( outcome.line ) + 1 );
  for ( size_t chunk = least.size(); chunk > 0; ) {
    bool shorter = false;
    for ( size_t from = 0; from < least.size(); ) {
      const auto first = least.begin() + ptrdiff_t( from );
      const auto last = least.begin() + ptrdiff_t( std::min( from + chunk, least.size() ) );
      Lines fewer( least.begin(), first );
      fewer.insert( fewer.end(), last, least.end() );
      if ( keepIfItFails( std::move( fewer ), runner, least ) ) {
        shorter = true;
      } else {
        from += chunk;
      }
    }
    chunk = chunk > 1 ? chunk / 2 : shorter ? 1 : 0;
  }
  shrinkNames( runner, least );
  return least;
}

} // namespace Sim
