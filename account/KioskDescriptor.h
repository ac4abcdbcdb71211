// Ownership of a file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

/// Owns a file descriptor and closes it; a negative value is none. Move-only.
class KioskDescriptor {
 public:
  KioskDescriptor() = default;
  explicit KioskDescriptor(int descriptor) : _descriptor(descriptor) {}
  KioskDescriptor(KioskDescriptor&& other) noexcept
      : _descriptor(std::exchange(other._descriptor, -1)) {}
  KioskDescriptor& operator=(KioskDescriptor&& other) noexcept {
    std::swap(_descriptor, other._descriptor);
    return *this;
  }
  ~KioskDescriptor() { static_cast<void>(close()); }

  int get() const { return _descriptor; }
  explicit operator bool() const { return _descriptor >= 0; }

  /// Gives the descriptor up to the caller.
  [[nodiscard]] int release() { return std::exchange(_descriptor, -1); }

  /// Closes now. The result of close(2), or 0 when there was nothing to close. Not retried: the
  /// descriptor is gone whatever the result.
  int close() {
    const int descriptor = release();
    return descriptor < 0 ? 0 : ::close(descriptor);
  }

 private:
  int _descriptor = -1;
};
