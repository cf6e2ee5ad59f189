#pragma once

#include <fstream>
#include <sstream>
#include <string>

inline std::string contents( const std::string & name ) {
  std::stringstream text;
  text << std::ifstream( name ).rdbuf();
  return text.str();
}
