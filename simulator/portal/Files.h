// Small files, read whole and replaced whole.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace portal {

/// A descriptor that closes itself.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : _fd(fd) {}
  ~Descriptor();
  Descriptor(Descriptor&& other) noexcept;
  Descriptor& operator=(Descriptor&& other) noexcept;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return _fd; }
  bool open() const { return _fd >= 0; }

 private:
  int _fd;
};

/// Reads a file.
/// @param limit the most bytes it may have
/// @return its content; nothing when it cannot be read or is larger
std::optional<std::string> ReadFile(const std::filesystem::path& path, std::size_t limit);

/// What follows a file's name in that of the temporary file by which it is replaced.
inline constexpr char kTemporarySuffix[] = ".new";

/// Replaces a file so that a reader, or a machine that loses power, finds the old content or the
/// new one, never a part.
/// @param mode permissions of the file
/// @return false when that failed; the old file then still stands
bool ReplaceFile(const std::filesystem::path& path, std::string_view content, mode_t mode);

/// Writes all of `content`.
/// @return false on an error, with errno set
bool WriteAll(int fd, std::string_view content);

}  // namespace portal
