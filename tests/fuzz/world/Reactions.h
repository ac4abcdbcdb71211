// What the daemon may and must do after what a tool told it, restated for the doubles.
#pragma once

#include <string>
#include <vector>

#include "tests/fuzz/world/World.h"

/// Holds a command against what the tools said before it. The tool's name comes first.
void ExpectReaction(const std::vector<std::string>& command);

/// Takes notice of what a tool said.
void NoteRun(WorldRun run);
