// An owned file descriptor, and whole reads and writes that survive signals.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <utility>

namespace platform {

/// Owns a descriptor; -1 is none. Move-only.
class Descriptor {
 public:
  explicit Descriptor(int descriptor = -1) : _descriptor(descriptor) {}
  ~Descriptor() {
    if (_descriptor >= 0) (void)close(_descriptor);  // nothing that was written hangs on its result
  }
  Descriptor(Descriptor&& other) noexcept : _descriptor(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(_descriptor, other._descriptor);
    return *this;
  }

  int get() const { return _descriptor; }
  bool valid() const { return _descriptor >= 0; }
  int release() { return std::exchange(_descriptor, -1); }

 private:
  int _descriptor;
};

/// Calls `call` until it is not interrupted by a signal; returns its result.
template <typename Call>
auto RetryInterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

/// Writes all of `bytes`. False with errno set on failure.
inline bool WriteWhole(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written =
        RetryInterrupted([&] { return write(descriptor, bytes.data(), bytes.size()); });
    if (written < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace platform
