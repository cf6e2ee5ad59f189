// The agent takes any lines: a bad one is answered and changes nothing, a good one is carried out
// by the machines. Left out is what ends the process by rule or writes files, and long times.
#include "Vex/Clock.h"
#include "agent/Line.h"
#include "agent/Shell.h"

#include <sstream>

namespace {

bool isLeftOut( const std::string & line ) {
  for ( const auto part : { "record", "fatal", "invalidHwId", "advance" } ) {
    if ( line.find( part ) != std::string::npos ) {
      return !line.starts_with( "advance " ) || line.size() > 10;
    }
  }
  return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t * data, size_t size ) {
  Vex::Clock::virtualIs( 0 );
  auto wiring = Agent::wire();
  std::ostringstream out;
  Agent::Shell shell( wiring, out, out );
  std::istringstream lines( std::string( reinterpret_cast< const char * >( data ), size ) );
  for ( std::string line; std::getline( lines, line ); ) {
    if ( isLeftOut( line ) ) {
      continue;
    }
    try {
      shell.execute( line, "fuzz:1" );
    } catch ( const Agent::BadLine & ) {}
  }
  return 0;
}
