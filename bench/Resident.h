// The memory that the process has, large collections too, which are not on the heap, and shared
// tables; without its code, of which the system reads in what is run.
#pragma once

#include <fstream>
#include <string>

namespace Bench {

inline double residentBytes() {
  std::ifstream status( "/proc/self/status" );
  double all = 0;
  double kibibytes = 0;
  for ( std::string word; status >> word; ) {
    if ( ( word == "RssAnon:" || word == "RssShmem:" ) && status >> kibibytes ) {
      all += kibibytes * 1024;
    }
  }
  return all;
}

} // namespace Bench
