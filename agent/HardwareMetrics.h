// Figures of the agent's switch: how it answered what it was called for, and how full it is.
#pragma once

#include "shell/Metrics.h"
#include "switch/SimulatedSwitch.h"

namespace Agent {

void addHardwareMetrics( KezShell::Metrics & metrics, const Switch::SimulatedSwitch & hardware );

} // namespace Agent
