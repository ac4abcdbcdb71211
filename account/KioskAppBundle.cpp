#include "account/KioskAppBundle.h"

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "core/KioskLimits.h"

std::optional<platform::HostBundle> KioskAppBundle() {
  const std::optional<std::string> path = platform::HostExecutablePath(kKioskExecutablePathBytes);
  if (!path) return std::nullopt;
  const std::unique_ptr<char, decltype(&std::free)> real(realpath(path->c_str(), nullptr),
                                                         &std::free);
  if (!real) return std::nullopt;
  const std::filesystem::path helpers = std::filesystem::path(real.get()).parent_path();
  const std::filesystem::path application = helpers.parent_path().parent_path();
  if (helpers.filename() != "Helpers" || application.extension() != ".app") return std::nullopt;
  return platform::HostBundleAt(application.string());
}
