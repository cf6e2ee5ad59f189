// A damaged ring is refused or decoded as far as it goes, never with harm.
#include "DamagedFile.h"
#include "Ringlog/Ring.h"
#include "Ringlog/Trace.h"
#include "inspect/Inspect.h"

namespace {

Ringlog::Handle traceHandle( "FuzzRing" );

const std::string & goodRing() {
  static const std::string content = [] {
    const auto path = Fuzz::temporaryPath( "good-ring" );
    Ringlog::ringIs( path, Ringlog::smallestRing );
    for ( int i = 0; i < 200; ++i ) {
      TRACE( 5, "number ", i, " and ", i * 0.5, " of ", std::string_view( "many" ) );
      TRACE( 8, "entry" );
    }
    Ringlog::ringDel();
    return Fuzz::contentOf( path );
  }();
  return content;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t * data, size_t size ) {
  const auto path = Fuzz::temporaryPath( "ring" );
  Fuzz::writeDamaged( path, goodRing(), data, size );
  std::ostringstream out;
  Inspect::kezInspect( { "ring", path, "--source" }, out, out );
  return 0;
}
