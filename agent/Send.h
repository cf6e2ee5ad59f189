// What lines say of frames: how one comes into the agent's switch, and which copies are expected of
// it. A frame changes nothing.
#pragma once

#include "shell/Shell.h"

namespace Agent {

// The command "send", and what can be expected of it, for a shell with the agent's roots.
void addSend( KezShell::Shell & shell );

} // namespace Agent
