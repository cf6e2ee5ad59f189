#include "agent/CommandLine.h"

#include <iostream>
#include <unistd.h>

int main( int argc, char ** argv ) {
  return Agent::kezAgent( { argv + 1, argv + argc }, { std::cin, isatty( STDIN_FILENO ) != 0 },
                          std::cout, std::cerr );
}
