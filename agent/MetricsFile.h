// The agent's figures in a file for a collector, written anew after every interval of the steady
// clock, of which nobody sees a half. A file that cannot be written is told once, until it can be.
#pragma once

#include "agent/Shell.h"

namespace Agent {

class MetricsFile {
public:
  // Raises std::runtime_error when it cannot be written now. What fails later is said to `err`.
  MetricsFile( const Shell & shell, const std::string & path, double interval, std::ostream & err );

  // If it is time.
  void refresh();
  // As they stand now.
  void write();
  // Seconds until it is time.
  double timeLeft() const;

private:
  void put() const;

  const Shell & shell_;
  const std::string path_;
  const double interval_;
  std::ostream & err_;
  double written_ = 0; // when that was tried
  bool failed_ = false;
};

} // namespace Agent
