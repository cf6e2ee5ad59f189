// The agent as a daemon.
#pragma once

#include "agent/MetricsFile.h"
#include "shell/Door.h"

namespace Agent {

// Runs what is due and serves those at the door until SIGTERM or SIGINT comes; keeps the file of
// figures, which may be null, and writes it in the end. Tells a service manager that the agent is
// ready, that it lives and that it ends, if there is one.
void serve( Shell & shell, KezShell::Door & door, MetricsFile * metrics, std::ostream & out );

} // namespace Agent
