#include <mach-o/dyld.h>

#include "platform/Host.h"

namespace platform {

std::optional<std::string> HostExecutablePath(std::size_t bufferSize) {
  std::string path(bufferSize, '\0');
  auto size = static_cast<std::uint32_t>(bufferSize);
  if (_NSGetExecutablePath(path.data(), &size) != 0) return std::nullopt;
  return path.c_str();
}

}  // namespace platform
