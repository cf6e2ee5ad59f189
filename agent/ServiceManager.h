// Whoever started the agent as a service and wants to know how it goes, by datagrams to the socket
// that the variable NOTIFY_SOCKET names; nobody when there is no such variable. Where WATCHDOG_USEC
// is set, the agent is taken for dead unless it says in time that it lives.
#pragma once

#include <optional>
#include <string_view>

namespace Agent {

class ServiceManager {
public:
  ServiceManager();

  void tell( std::string_view state ) const;
  // Says so if it is time.
  void alive();
  // Seconds until it is time, if that is of interest.
  std::optional< double > timeLeft() const;

private:
  std::optional< double > interval_;
  double told_;
};

} // namespace Agent
