#include <sys/auxv.h>

#include "platform/Host.h"

namespace platform {

std::optional<std::string> HostExecutablePath(std::size_t bufferSize) {
  // The kernel's copy of the path given to execve; never changed by the program itself.
  const unsigned long address = getauxval(AT_EXECFN);
  if (address == 0) return std::nullopt;
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the kernel gives every value as a number
  std::string path = reinterpret_cast<const char*>(address);
  if (path.size() + 1 > bufferSize) return std::nullopt;
  return path;
}

}  // namespace platform
