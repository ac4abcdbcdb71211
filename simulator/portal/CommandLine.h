// The program's command line.
#pragma once

namespace portal {

/// Reads the command line and does what it says.
/// @return the process's exit status, an `ExitStatus`
int RunCommandLine(int argc, char** argv);

}  // namespace portal
