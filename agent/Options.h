// What kez-agent is told on its command line.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace Agent {

struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Options {
  std::string command;
  std::vector< std::string > files; // of attach, lines
  std::string trace;
  std::string record;
  std::string report;
  std::string ring;
  std::string tables;
  std::string journal;
  std::string toggles;
  bool echo = false;
  bool json = false;
  std::string clock;
  std::string socket = "/run/kez-agent/control";
  std::string readOnlySocket;
};

// Of a command and what follows it: "--option value" or "--option=value". Raises UsageError.
Options parseOptions( const std::vector< std::string > & arguments );

extern const char * const usage;

} // namespace Agent
