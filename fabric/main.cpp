#include "fabric/CommandLine.h"

#include <iostream>

int main( int argc, char ** argv ) {
  return Fabric::kezFabric( { argv + 1, argv + argc }, std::cout, std::cerr );
}
