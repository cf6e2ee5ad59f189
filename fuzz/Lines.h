// What fuzzers let the agent execute: all but what ends the process by rule or writes files, and
// long times.
#pragma once

#include <string>

namespace Fuzz {

inline bool isLeftOut( const std::string & line ) {
  for ( const auto part : { "record", "fatal", "invalidHwId", "advance" } ) {
    if ( line.find( part ) != std::string::npos ) {
      return !line.starts_with( "advance " ) || line.size() > 10;
    }
  }
  return false;
}

} // namespace Fuzz
