// What kez-agent is told on its command line.
#pragma once

#include "program/CommandLine.h"

#include <limits>
#include <sys/types.h>

namespace Agent {

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
  mode_t fileMode = 0644;
  size_t until = std::numeric_limits< size_t >::max(); // the line of the record to stop before
  std::string socket = "/run/kez-agent/control";
  std::string readOnlySocket;
  std::string metrics;
  double metricsInterval = 15; // seconds
};

// Of a command and what follows it. Raises Program::UsageError.
Options parseOptions( const Program::Arguments & arguments );

extern const char * const usage;

} // namespace Agent
