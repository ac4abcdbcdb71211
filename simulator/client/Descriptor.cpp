#include "simulator/client/Descriptor.h"

#include <unistd.h>

#include <cerrno>

namespace client {

bool WriteAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(descriptor, bytes.data(), bytes.size());
    if (written > 0) bytes.remove_prefix(static_cast<std::size_t>(written));
    if (written == 0 || (written < 0 && errno != EINTR)) return false;
  }
  return true;
}

std::optional<std::string> ReadAll(int descriptor, std::size_t limit) {
  std::string bytes(limit + 1, '\0');
  std::size_t have = 0;
  while (have < bytes.size()) {
    const ssize_t got = read(descriptor, &bytes[have], bytes.size() - have);
    if (got < 0 && errno != EINTR) return std::nullopt;
    if (got == 0) break;
    if (got > 0) have += static_cast<std::size_t>(got);
  }
  if (have > limit) return std::nullopt;
  bytes.resize(have);
  return bytes;
}

}  // namespace client
