#include "inspect/Inspect.h"

#include <iostream>

int main( int argc, char ** argv ) {
  return Inspect::kezInspect( { argv + 1, argv + argc }, std::cout, std::cerr );
}
