// The command explain: what machines say of a subject, or what is not in hardware at all.
#pragma once

#include "shell/Shell.h"

namespace KezShell {

void addExplain( Shell & shell );

} // namespace KezShell
