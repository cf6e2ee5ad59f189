// The memory that the process has for itself, large collections too, which are not on the heap; of
// what it shares, such as code and tables, nothing.
#pragma once

#include <cstddef>
#include <fstream>
#include <unistd.h>

namespace Bench {

inline double residentBytes() {
  size_t size = 0;
  size_t resident = 0;
  size_t shared = 0;
  std::ifstream( "/proc/self/statm" ) >> size >> resident >> shared;
  return static_cast< double >( resident - shared ) *
         static_cast< double >( sysconf( _SC_PAGESIZE ) );
}

} // namespace Bench
