// A run of flood-set destinations through the agent, a line each, that is recorded with what
// hardware answers, against the same run unrecorded. Times are per line.
#include "Ratio.h"

#include "Vex/Clock.h"
#include "agent/Shell.h"

#include <filesystem>
#include <memory>
#include <sstream>
#include <unistd.h>

namespace {

constexpr uint32_t tunnels = 512;
constexpr uint32_t destsOfAVlan = 256;

std::vector< std::string > linesOf( uint32_t count ) {
  std::vector< std::string > lines;
  for ( uint32_t i = 0; i < count; ++i ) {
    const auto vlan = i / destsOfAVlan + 1;
    lines.push_back( "set floodSetOutput.vlanFloodSet[" + std::to_string( vlan ) +
                     "].floodSet[ff:ff:ff:ff:ff:ff].destSet[mpls(,100," +
                     std::to_string( ( i + vlan * 37 ) % tunnels + 1 ) + ")]" );
  }
  return lines;
}

struct Session {
  Agent::Wiring wiring = Agent::wire();
  std::ostringstream out;
  Agent::Shell shell{ wiring, out, out };
};

void recording( benchmark::State & state ) {
  Vex::Clock::virtualIs( 0 );
  const auto lines = linesOf( static_cast< uint32_t >( state.range( 0 ) ) );
  const auto file = std::filesystem::temp_directory_path() /
                    ( "record-bench-" + std::to_string( getpid() ) + ".kez" );
  const auto session = [ & ]( bool recorded ) {
    std::filesystem::remove( file );
    auto made = std::make_unique< Session >();
    if ( recorded ) {
      made->shell.execute( "record " + file.string(), "bench" );
    }
    return [ &lines, made = std::move( made ) ] {
      for ( const auto & line : lines ) {
        made->shell.execute( line, "bench" );
      }
    };
  };
  Bench::compareWith(
      state, double( lines.size() ), { "ratio" }, [ & ] { return session( true ); },
      [ & ] { return session( false ); } );
  state.counters[ "bytes" ] = double( std::filesystem::file_size( file ) ) / double( lines.size() );
  std::filesystem::remove( file );
}
BENCHMARK( recording )
    ->Arg( 102'400 )
    ->Arg( 1'024'000 )
    ->Iterations( 5 )
    ->UseManualTime()
    ->Unit( benchmark::kMillisecond );

} // namespace
