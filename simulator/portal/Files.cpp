#include "simulator/portal/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

namespace portal {
namespace {

Descriptor Open(const std::filesystem::path& path, int flags, mode_t mode) {
  int fd = -1;
  do fd = open(path.c_str(), flags | O_CLOEXEC, mode);
  while (fd < 0 && errno == EINTR);
  return Descriptor(fd);
}

bool Flush(int fd) {
  int result = -1;
  do result = fsync(fd);
  while (result != 0 && errno == EINTR);
  return result == 0;
}

bool WriteNew(const std::filesystem::path& path, std::string_view content, mode_t mode) {
  const Descriptor file = Open(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, mode);
  // The permissions of a left-over temporary file and the process's mask must not matter.
  return file.open() && fchmod(file.get(), mode) == 0 && WriteAll(file.get(), content) &&
         Flush(file.get());
}

}  // namespace

Descriptor::~Descriptor() {
  if (_fd >= 0) close(_fd);
}

Descriptor::Descriptor(Descriptor&& other) noexcept : _fd(std::exchange(other._fd, -1)) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  std::swap(_fd, other._fd);
  return *this;
}

std::optional<std::string> ReadFile(const std::filesystem::path& path, std::size_t limit) {
  const Descriptor file = Open(path, O_RDONLY, 0);
  if (!file.open()) return std::nullopt;
  std::string content;
  std::array<char, 16384> buffer{};
  for (;;) {
    const ssize_t count = read(file.get(), buffer.data(), buffer.size());
    if (count == 0) return content;
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    content.append(buffer.data(), static_cast<std::size_t>(count));
    if (content.size() > limit) return std::nullopt;
  }
}

bool ReplaceFile(const std::filesystem::path& path, std::string_view content, mode_t mode) {
  const std::filesystem::path temporary = path.string() + kTemporarySuffix;
  if (!WriteNew(temporary, content, mode) || rename(temporary.c_str(), path.c_str()) != 0) {
    unlink(temporary.c_str());
    return false;
  }
  // The rename itself is durable only once its folder is.
  const Descriptor folder = Open(path.parent_path(), O_RDONLY | O_DIRECTORY, 0);
  return folder.open() && Flush(folder.get());
}

bool WriteAll(int fd, std::string_view content) {
  while (!content.empty()) {
    const ssize_t count = write(fd, content.data(), content.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    content.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

}  // namespace portal
