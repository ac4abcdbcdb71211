// What every Mac needs from the host, prepared once for all of them in a cache folder. The folder
// is made and brought up to date when needed, under a lock, by whoever comes first.
#pragma once

#include <string>
#include <vector>

#include "simulator/mac/commands/Tree.h"

namespace simmac {

/// Puts everything that these executables (paths outside the Mac) load into the Mac, the
/// interpreter included, at the places where they look for it.
void InstallLibraries(TreeBuilder& tree, const std::vector<std::string>& executables,
                      const std::string& cache);

/// Puts an executable (a path outside the Mac) into the Mac as a file of its own, mode 0755,
/// without its debugging information, which is most of a program and of no use in there.
void InstallExecutable(TreeBuilder& tree, const std::string& path, const std::string& executable,
                       const std::string& cache);

/// Puts the host's time zones into /usr/share/zoneinfo. A host without them makes a Mac without.
void InstallTimeZones(TreeBuilder& tree, const std::string& cache);

}  // namespace simmac
