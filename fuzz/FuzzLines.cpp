// The agent takes any lines: a bad one is answered and changes nothing, a good one is carried out
// by the machines.
#include "Lines.h"
#include "Vex/Clock.h"
#include "agent/Shell.h"
#include "shell/Line.h"

#include <sstream>

extern "C" int LLVMFuzzerTestOneInput( const uint8_t * data, size_t size ) {
  Vex::Clock::virtualIs( 0 );
  auto wiring = Agent::wire();
  std::ostringstream out;
  Agent::Shell shell( wiring, out, out );
  std::istringstream lines( std::string( reinterpret_cast< const char * >( data ), size ) );
  for ( std::string line; std::getline( lines, line ); ) {
    if ( Fuzz::isLeftOut( line ) ) {
      continue;
    }
    try {
      shell.execute( line, "fuzz:1" );
    } catch ( const Agent::BadLine & ) {}
  }
  return 0;
}
