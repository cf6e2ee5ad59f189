// Any text is no record, which is told with its place, or one that is replayed until something
// differs.
#include "Lines.h"
#include "Vex/Clock.h"
#include "agent/Session.h"
#include "agent/Shell.h"
#include "record/Replay.h"

#include <algorithm>
#include <limits>
#include <sstream>

namespace {

bool isLeftOut( const std::string & text ) {
  const auto entries = Agent::recordEntries( "fuzz", text );
  return std::any_of( entries.begin(), entries.end(), []( const Agent::RecordEntry & each ) {
    return each.kind == Agent::EntryKind::line ? Fuzz::isLeftOut( std::string( each.text ) )
                                               : each.time > 1e6;
  } );
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t * data, size_t size ) {
  auto text = std::make_unique< std::string >( reinterpret_cast< const char * >( data ), size );
  try {
    if ( isLeftOut( *text ) ) {
      return -1;
    }
  } catch ( const std::runtime_error & ) {
    return 0;
  }
  Agent::Replay replay( "fuzz", std::move( text ) );
  Vex::Clock::virtualIs( replay.startTime() );
  auto wiring = Agent::wire();
  wiring.hardware->listenerIs( replay );
  std::ostringstream out;
  Agent::Shell shell( wiring, out, out );
  shell.paceIs( replay );
  Agent::Session( shell, false, nullptr, out, out )
      .replay( replay, "fuzz", std::numeric_limits< size_t >::max() );
  return 0;
}
