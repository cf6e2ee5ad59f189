// What lines say of frames: how one comes into the agent's switch, and which copies are expected of
// it. A frame changes nothing.
#pragma once

#include "shell/Shell.h"
#include "switch/Frame.h"

namespace Agent {

// The command "send", and what can be expected of it, for a shell with the agent's roots.
void addSend( KezShell::Shell & shell );

// What became of a frame, as the command tells it, for others that send frames: in words, and as an
// object's members.
void showForwarded( std::ostream & out, const Switch::Forwarded & all );
void putForwarded( Vex::JsonWriter & out, const Switch::Forwarded & all );

} // namespace Agent
